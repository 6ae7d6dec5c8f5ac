#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "platform/win32/library_binding.h"

namespace calder {
namespace {

struct TwoEntries {
  int32_t (*init)(void*);
  void (*second)();
};

int g_fills = 0;

void FillWithAbsentSecond(EntryPointFinder& find, TwoEntries* t) {
  ++g_fills;
  find("btl_upgrade_init", &t->init);
  find("btl_no_such_entry", &t->second);
  find("btl_upgrade_deinit", &t->second);
}

void FillWithBoth(EntryPointFinder& find, TwoEntries* t) {
  find("btl_upgrade_init", &t->init);
  find("btl_upgrade_deinit", &t->second);
}

// A library nothing else in this process holds: the stand-in upgrade DLL
// built into sim\btl_upgrade beside this test program.
std::wstring StandIn() {
  wchar_t exe[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, exe, MAX_PATH);
  std::wstring path(exe);
  path.resize(path.find_last_of(L"\\/"));
  return path + L"\\sim\\btl_upgrade\\btl_upgrade.dll";
}

TEST(LibraryBinding, BindsEveryEntryPointOrNoneOnceAndReleasesALibraryThatLacksOne) {
  const std::wstring path = StandIn();
  ASSERT_EQ(GetModuleHandleW(path.c_str()), nullptr);

  LibraryBinding<TwoEntries> partial(path, LibraryFolder::kBesideExecutable,
                                     &FillWithAbsentSecond);
  EXPECT_EQ(partial.Bind(), nullptr);
  EXPECT_EQ(partial.Bind(), nullptr);
  EXPECT_EQ(g_fills, 1);
  EXPECT_EQ(partial.failure(), BindFailure::kEntryPointMissing);
  EXPECT_EQ(partial.Missing(), "btl_upgrade.dll has no entry point btl_no_such_entry");
  EXPECT_EQ(GetModuleHandleW(path.c_str()), nullptr);

  LibraryBinding<TwoEntries> whole(path, LibraryFolder::kBesideExecutable, &FillWithBoth);
  const TwoEntries* table = whole.Bind();
  ASSERT_NE(table, nullptr);
  EXPECT_NE(table->init, nullptr);
  EXPECT_NE(table->second, nullptr);
  EXPECT_EQ(whole.failure(), BindFailure::kNone);
  EXPECT_EQ(whole.Missing(), "");
  EXPECT_NE(GetModuleHandleW(path.c_str()), nullptr);
}

}  // namespace
}  // namespace calder
