#include <windows.h>

#include <gtest/gtest.h>

#include "platform/win32/library_binding.h"
#include "tests/win/stand_in_path.h"

namespace calder {
namespace {

struct Entries {
  int32_t (*init)(void*);
  void (*deinit)();
};

int g_fills = 0;
const char* g_second = nullptr;

void Fill(EntryPointFinder& find, Entries* t) {
  ++g_fills;
  find("btl_upgrade_init", &t->init);
  find(g_second, &t->deinit);
}

TEST(LibraryBinding, BindsEveryEntryPointOrNoneOnceAndReleasesALibraryThatLacksOne) {
  // A library that nothing else in this process holds.
  const std::wstring path = StandInPath(L"sim\\btl_upgrade\\btl_upgrade.dll");

  g_second = "btl_no_such_entry";
  LibraryBinding<Entries> partial(path, LibraryFolder::kBesideExecutable, &Fill);
  EXPECT_EQ(partial.Bind(), nullptr);
  EXPECT_EQ(partial.Bind(), nullptr);
  EXPECT_EQ(g_fills, 1);
  EXPECT_EQ(partial.Missing(), "btl_upgrade.dll has no entry point btl_no_such_entry");
  EXPECT_EQ(GetModuleHandleW(path.c_str()), nullptr);

  g_second = "btl_upgrade_deinit";
  LibraryBinding<Entries> whole(path, LibraryFolder::kBesideExecutable, &Fill);
  ASSERT_NE(whole.Bind(), nullptr);
  EXPECT_NE(whole.Bind()->deinit, nullptr);
  EXPECT_NE(GetModuleHandleW(path.c_str()), nullptr);
}

}  // namespace
}  // namespace calder
