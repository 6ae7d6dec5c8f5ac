#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "platform/win32/upgrade_library_win32.h"
#include "tests/win/stand_in_path.h"
#include "touchpad/btl_upgrade_config.h"

namespace calder {
namespace {

void IgnoreMessage(int32_t, const char*) {}

TEST(Win32UpgradeLibrary, MissingDllOrEntryPointBindsNothingAndSaysWhy) {
  Win32UpgradeLibrary absent(L"btl_upgrade_absent.dll");
  btl_upgrade_config config = BuildUpgradeConfig("ACPI\\BLTP7853", 0x41, 1, nullptr, nullptr);
  EXPECT_EQ(absent.Init(&config), kUpgradeLibraryNotFound);
  uint32_t checksum = 5;
  EXPECT_EQ(absent.GetChecksum(&checksum), kUpgradeLibraryNotFound);
  EXPECT_EQ(checksum, 5u);
  absent.Deinit();
  EXPECT_EQ(absent.BindError(), "btl_upgrade_absent.dll could not be loaded (error 126)");

  Win32UpgradeLibrary wrong(L"C:\\windows\\system32\\kernel32.dll");
  EXPECT_EQ(wrong.Init(nullptr), kUpgradeEntryPointNotFound);
  EXPECT_EQ(wrong.BindError(), "kernel32.dll has no entry point btl_upgrade_init");
  wrong.Deinit();
}

TEST(Win32UpgradeLibrary, StandInAnswersThroughTheTypedTable) {
  Win32UpgradeLibrary library(StandInPath(L"sim\\btl_upgrade\\btl_upgrade.dll").c_str());
  btl_upgrade_config config =
      BuildUpgradeConfig("ACPI\\BLTP7853", 0x41, 1, &IgnoreMessage, &IgnoreMessage);
  ASSERT_EQ(library.Init(&config), 0) << library.BindError();
  EXPECT_EQ(library.BindError(), "");
  uint8_t chipId = 0;
  EXPECT_EQ(library.GetChipId(&chipId), 0);
  EXPECT_EQ(chipId, 0x41);
  uint32_t need = 0;
  EXPECT_NE(library.CheckNeedUpgrade("C:\\no-such-firmware.bin", &need), 0);
  library.Deinit();
  // A closed connection refuses queries.
  EXPECT_NE(library.GetChipId(&chipId), 0);
}

}  // namespace
}  // namespace calder
