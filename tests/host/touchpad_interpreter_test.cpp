#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "platform/environment.h"
#include "sim/touchpad_controller.h"
#include "tests/support/fake_system.h"
#include "tests/support/log_capture.h"
#include "touchpad/tp_update.h"

namespace calder {
namespace {

using sim::ChecksumMode;
using sim::TouchpadController;
using Strings = std::vector<std::string>;

const char kBanner[] =
    "========================================\n"
    "BTL Firmware Upgrade Tool\n"
    "========================================\n"
    "Hardware ID: ACPI\\BLTP7853\n"
    "Chip ID:     0x41\n"
    "Have Boot:   Yes\n"
    "========================================\n\n"
    "Initializing...\n";
const char kInitialized[] = "Initialized successfully.\n\n";
const char kClosing[] = "\nDeinitializing...\nDone.\n";

const char kUsage[] =
    "BTL Firmware Upgrade Tool\n\n"
    "Usage: TPUpdate.exe <command> [options]\n\n"
    "Commands:\n"
    "  upgrade <bin_file>     Upgrade firmware from file\n"
    "  version                Get firmware version\n"
    "  chipid                 Get chip ID\n"
    "  checksum               Get firmware checksum\n"
    "  check <bin_file>       Check if upgrade needed\n"
    "\nOptions:\n"
    "  --hw-id <id>           Hardware ID (default: ACPI\\BTLTP7853)\n"
    "  --chip-id <id>         Chip ID in hex (default: 42)\n"
    "  --no-boot              No boot in firmware\n"
    "\nExamples:\n"
    "  TPUpdate.exe upgrade firmware.bin\n"
    "  TPUpdate.exe --chip-id 43 upgrade firmware.bin\n"
    "  TPUpdate.exe version\n";

class TPMainTest : public testing::Test {
 protected:
  TPMainTest() {
    sys.Into(&env);
    env.upgrade = &chip;
    chip.upgradeLogs.clear();
    chip.upgradeProgress = {{0, std::string("erase")}, {50, std::string("write")},
                            {100, std::string("done")}};
  }

  int Run(Strings args) {
    ScopedEnvironment scope(env);
    args.insert(args.begin(), "TPUpdate.exe");
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    testing::internal::CaptureStdout();
    const int rc = TPMain(static_cast<int>(args.size()), argv.data());
    out = testing::internal::GetCapturedStdout();
    return rc;
  }

  // A firmware file in the test's own temp folder.
  std::string Firmware(const std::string& content, const std::string& name = "fw.bin") {
    const std::string path = testing::TempDir() + "calder_tp_" +
                             testing::UnitTest::GetInstance()->current_test_info()->name() +
                             "_" + name;
    std::ofstream(path, std::ios::binary) << content;
    made_.push_back(path);
    return path;
  }

  ~TPMainTest() override {
    for (const std::string& path : made_) std::remove(path.c_str());
  }

  test::FakeSystem sys;
  Environment env;
  TouchpadController chip;
  test::LogCapture log;
  std::string out;

 private:
  Strings made_;
};

// Bytes sum to 0x1_0103: above 16 bits, low half 0x0103.
std::string BigSumImage() {
  std::string image(0x102, '\xFF');
  image += std::string(1, '\x05');
  return image;
}

TEST_F(TPMainTest, UpgradeVerifiesTheChecksumAgainstTheLowSixteenBits) {
  const std::string fw = Firmware(BigSumImage());
  EXPECT_EQ(Run({"upgrade", fw}), 0);
  EXPECT_EQ(out, std::string(kBanner) + kInitialized + "Upgrading from: " + fw + "\n\n" +
                     "[  0%] erase\n[ 50%] write\n[100%] done\n\n"
                     "SUCCESS: Upgrade completed successfully!\n"
                     "Checksum: 0x00010103\n"
                     "Checksum inside : 0x00000103\n"
                     "Upgrade checksum pass!\n" + kClosing);
  EXPECT_EQ(log.Lines(), (Strings{"INFO tp_update.cpp: Initializing...",
                                  "INFO tp_update.cpp: Initialized successfully.",
                                  "INFO tp_update.cpp: Upgrading from:" + fw,
                                  "INFO tp_update.cpp: SUCCESS: Upgrade completed successfully!",
                                  "INFO tp_update.cpp: Checksum: 65795",
                                  "INFO tp_update.cpp: Checksum inside: 259",
                                  "INFO tp_update.cpp: Upgrade checksum pass!"}));
  EXPECT_EQ(sys.posts, (std::vector<int>{0, 10, 20}));
  EXPECT_EQ(chip.calls, (Strings{"btl_upgrade_init", "btl_upgrade_from_file", "btl_get_checksum",
                                 "btl_upgrade_deinit"}));
  EXPECT_EQ(chip.seenConfig.hwId, "ACPI\\BLTP7853");
  EXPECT_EQ(chip.seenConfig.haveBoot, 1);
  EXPECT_TRUE(chip.seenConfig.zeroBytesClean);
}

TEST_F(TPMainTest, ChipReportingTheFullSumFailsVerification) {
  chip.checksumMode = ChecksumMode::Full32;
  EXPECT_EQ(Run({"upgrade", Firmware(BigSumImage())}), 1);
  EXPECT_NE(out.find("Checksum inside : 0x00010103\nUpgrade checksum failed!\n"), std::string::npos);
  EXPECT_EQ(log.Lines().back(), "INFO tp_update.cpp: Upgrade checksum failed!");
  EXPECT_EQ(chip.calls.back(), "btl_upgrade_deinit");
}

TEST_F(TPMainTest, FailedChecksumReadStillComparesAndFails) {
  // The preset 0 equals the low half of a file summing to 0x10000.
  chip.checksumResult = -9;
  EXPECT_EQ(Run({"upgrade", Firmware(std::string(0x101, '\xFF') + '\x01')}), 1);
  EXPECT_NE(out.find("Checksum: 0x00010000\nERROR: Get checksum failed: -9\n"
                     "Upgrade checksum pass!\n"),
            std::string::npos);
  EXPECT_TRUE(log.Contains("ERROR: Get checksum failed: -9"));

  EXPECT_EQ(Run({"upgrade", Firmware("\x01\x02", "other.bin")}), 1);
  EXPECT_NE(out.find("ERROR: Get checksum failed: -9\nUpgrade checksum failed!\n"),
            std::string::npos);
}

TEST_F(TPMainTest, AlreadyLatestSucceedsWithoutVerification) {
  const std::string fw = Firmware("same image");
  chip.flash = "same image";
  EXPECT_EQ(Run({"upgrade", fw}), 0);
  EXPECT_NE(out.find("Upgrading from: " + fw + "\n\n\nINFO: Already latest version, no upgrade "
                     "needed.\n" + kClosing),
            std::string::npos);
  EXPECT_EQ(chip.calls, (Strings{"btl_upgrade_init", "btl_upgrade_from_file",
                                 "btl_upgrade_deinit"}));
  EXPECT_EQ(log.Lines().back(), "INFO tp_update.cpp: Upgrading from:" + fw);
}

TEST_F(TPMainTest, LibraryErrorFailsWithTheUnexpandedLogText) {
  chip.upgradeResult = -7;
  EXPECT_EQ(Run({"upgrade", Firmware("x")}), 1);
  EXPECT_NE(out.find("\n\nERROR: Upgrade failed with error code: -7\n" + std::string(kClosing)),
            std::string::npos);
  EXPECT_EQ(log.Lines().back(), "INFO tp_update.cpp: ERROR: Upgrade failed with error code: %d -7");
}

TEST_F(TPMainTest, VerificationFailsOnAMissingOrEmptyFile) {
  chip.upgradeResult = 0;  // the library claims success whatever the file
  EXPECT_EQ(Run({"upgrade", testing::TempDir() + "calder_no_such.bin"}), 1);
  EXPECT_NE(out.find("SUCCESS: Upgrade completed successfully!\n" + std::string(kClosing)),
            std::string::npos);
  EXPECT_EQ(Run({"upgrade", Firmware("")}), 1);
  EXPECT_NE(out.find("file size == 0,exit\n" + std::string(kClosing)), std::string::npos);
  EXPECT_EQ(log.Lines().back(), "INFO tp_update.cpp: file size == 0,exit");
  EXPECT_EQ(chip.calls.back(), "btl_upgrade_deinit");
  EXPECT_EQ(chip.calls[chip.calls.size() - 2], "btl_upgrade_from_file");
}

TEST_F(TPMainTest, UpgradeNeedsAFileButAnEmptyEntryCounts) {
  EXPECT_EQ(Run({"upgrade", "--no-boot"}), 1);
  EXPECT_NE(out.find("Have Boot:   No\n"), std::string::npos);
  EXPECT_NE(out.find(std::string(kInitialized) + "ERROR: Bin file not specified\n"
                     "Usage: TPUpdate.exe upgrade <bin_file>\n" + kClosing),
            std::string::npos);
  EXPECT_EQ(log.Lines().back(), "INFO tp_update.cpp: ERROR: Bin file not specified");

  EXPECT_EQ(Run({"upgrade", ""}), 1);
  EXPECT_NE(out.find("Upgrading from: \n\n\nERROR: Upgrade failed with error code: -4\n"),
            std::string::npos);
  EXPECT_EQ(chip.upgradedFiles.back(), "");
}

TEST_F(TPMainTest, InitFailureEndsAtOnceWithoutDeinit) {
  chip.initResult = -3;
  EXPECT_EQ(Run({"version"}), 1);
  EXPECT_EQ(out, std::string(kBanner) + "ERROR: Init failed with error code: -3\n");
  EXPECT_EQ(chip.calls, (Strings{"btl_upgrade_init"}));
  EXPECT_EQ(log.Lines().back(), "INFO tp_update.cpp: ERROR: Init failed with error code: -3");
}

TEST_F(TPMainTest, RecordReachesTheLibrary) {
  // A hardware id the controller does not answer to is refused at init.
  EXPECT_EQ(Run({"chipid", "--hw-id", "ACPI\\NOPE", "--chip-id", "1FF"}), 1);
  EXPECT_NE(out.find("Hardware ID: ACPI\\NOPE\nChip ID:     0xFF\n"), std::string::npos);
  EXPECT_EQ(chip.seenConfig.hwId, "ACPI\\NOPE");
  EXPECT_EQ(chip.seenConfig.chipId, 0xFF);
  EXPECT_EQ(chip.seenConfig.options[1], 1);
  EXPECT_NE(out.find("ERROR: Init failed with error code: -3"), std::string::npos);
}

TEST_F(TPMainTest, MissingLibrarySaysWhyAndFails) {
  env.upgrade = nullptr;
  EXPECT_EQ(Run({"upgrade", "fw.bin"}), 1);
  EXPECT_EQ(out, std::string(kBanner) +
                     "ERROR: btl_upgrade.dll is not available in this build\n"
                     "ERROR: Init failed with error code: 126\n");
  EXPECT_EQ(log.Messages(), (Strings{"Initializing...",
                                     "ERROR: btl_upgrade.dll is not available in this build",
                                     "ERROR: Init failed with error code: 126"}));
}

TEST_F(TPMainTest, UnknownCommandPrintsUsage) {
  EXPECT_EQ(Run({"Upgrade"}), 1);
  EXPECT_EQ(out, std::string(kBanner) + kInitialized + "ERROR: Unknown command: Upgrade\n\n" +
                     kUsage + kClosing);
  EXPECT_EQ(chip.calls, (Strings{"btl_upgrade_init", "btl_upgrade_deinit"}));
}

TEST_F(TPMainTest, WithoutACommandOnlyTheUsageIsPrinted) {
  EXPECT_EQ(Run({}), 1);
  EXPECT_EQ(out, kUsage);
  EXPECT_TRUE(chip.calls.empty());
  EXPECT_TRUE(log.Lines().empty());
}

TEST_F(TPMainTest, QueriesPrintTheirAnswersAndLogNothing) {
  chip.firmwareVersion = 0x2A;
  chip.flash = "old";
  EXPECT_EQ(Run({"version"}), 0);
  EXPECT_EQ(out, std::string(kBanner) + kInitialized + "Firmware Version: 42 (0x2A)\n" + kClosing);
  EXPECT_EQ(Run({"chipid"}), 0);
  EXPECT_NE(out.find("Chip ID: 0x41\n"), std::string::npos);
  EXPECT_EQ(Run({"checksum"}), 0);
  EXPECT_NE(out.find("Checksum: 0x0000013F\n"), std::string::npos);
  EXPECT_EQ(Run({"check", Firmware("new")}), 0);
  EXPECT_NE(out.find("Need Upgrade: Yes\n"), std::string::npos);
  EXPECT_EQ(Run({"check", Firmware("old", "old.bin")}), 0);
  EXPECT_NE(out.find("Need Upgrade: No\n"), std::string::npos);
  EXPECT_EQ(Run({"check"}), 1);
  EXPECT_NE(out.find("ERROR: Bin file not specified\nUsage: TPUpdate.exe check <bin_file>\n"),
            std::string::npos);
  for (const std::string& line : log.Messages()) {
    EXPECT_TRUE(line == "Initializing..." || line == "Initialized successfully.") << line;
  }
}

TEST_F(TPMainTest, FailedQueriesPrintTheCode) {
  chip.versionResult = -11;
  chip.chipIdResult = -12;
  chip.checksumResult = -13;
  chip.checkResult = -14;
  const std::string fw = Firmware("x");
  const std::vector<std::pair<Strings, std::string>> cases = {
      {{"version"}, "ERROR: Get version failed: -11\n"},
      {{"chipid"}, "ERROR: Get chip ID failed: -12\n"},
      {{"checksum"}, "ERROR: Get checksum failed: -13\n"},
      {{"check", fw}, "ERROR: Check failed: -14\n"}};
  for (const auto& [args, line] : cases) {
    EXPECT_EQ(Run(args), 1) << line;
    EXPECT_EQ(out, std::string(kBanner) + kInitialized + line + kClosing);
  }
}

class TPCallbackTest : public testing::Test {
 protected:
  TPCallbackTest() { sys.Into(&env); }
  test::FakeSystem sys;
  Environment env;
};

TEST_F(TPCallbackTest, ProgressPostsAFifthTruncatedAndPrints) {
  ScopedEnvironment scope(env);
  testing::internal::CaptureStdout();
  for (int percent : {100, 99, 4, 5, 0}) TPProgressCallback(percent, "step");
  TPProgressCallback(50, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[100%] step\n[ 99%] step\n[  4%] step\n[  5%] step\n[  0%] step\n[ 50%] \n");
  EXPECT_EQ(sys.posts, (std::vector<int>{20, 19, 0, 1, 0, 10}));
}

TEST_F(TPCallbackTest, LogPrintsKnownLevelsOnlyAndNeverLogs) {
  test::LogCapture log;
  testing::internal::CaptureStdout();
  TPLogCallback(0, "a");
  TPLogCallback(1, nullptr);
  TPLogCallback(2, "c");
  TPLogCallback(3, "hidden");
  TPLogCallback(-1, "hidden");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[INFO] a\n[WARN] \n[ERROR] c\n");
  EXPECT_TRUE(log.Lines().empty());
}

TEST_F(TPMainTest, LibraryCallbacksWithNullTextsAndOddLevelsReachTheConsole) {
  chip.upgradeLogs = {{0, std::string("start")}, {7, std::string("x")}, {2, std::nullopt}};
  chip.upgradeProgress = {{100, std::nullopt}};
  EXPECT_EQ(Run({"upgrade", Firmware("ab")}), 0);
  EXPECT_NE(out.find("\n\n[INFO] start\n[ERROR] \n[100%] \n\nSUCCESS"), std::string::npos);
  EXPECT_EQ(sys.posts, (std::vector<int>{20}));
}

}  // namespace
}  // namespace calder
