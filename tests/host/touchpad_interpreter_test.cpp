#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

#include "platform/environment.h"
#include "sim/touchpad_controller.h"
#include "tests/support/fake_system.h"
#include "tests/support/log_capture.h"
#include "touchpad/tp_arguments.h"
#include "touchpad/tp_update.h"

namespace calder {
namespace {

using sim::TouchpadController;
using Strings = std::vector<std::string>;

std::string Banner(const std::string& hwId = "ACPI\\BLTP7853", const std::string& chip = "0x41") {
  return "========================================\n"
         "BTL Firmware Upgrade Tool\n"
         "========================================\n"
         "Hardware ID: " + hwId + "\nChip ID:     " + chip + "\nHave Boot:   Yes\n"
         "========================================\n\n"
         "Initializing...\n";
}
const std::string kBanner = Banner();
const char kInitialized[] = "Initialized successfully.\n\n";
const char kClosing[] = "\nDeinitializing...\nDone.\n";
const char kUsage[] = "BTL Firmware Upgrade Tool\n\n"
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

std::vector<char*> Argv(Strings& args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  return argv;
}

struct OptionCase {
  Strings options;
  std::string hwId;
  int chipId, haveBoot;
  const char* file;  // null: none
};

class TPOptionsTest : public testing::TestWithParam<OptionCase> {};

TEST_P(TPOptionsTest, SetTheRecordsSettings) {
  Strings args = {"TPUpdate.exe", "upgrade"};
  args.insert(args.end(), GetParam().options.begin(), GetParam().options.end());
  std::vector<char*> argv = Argv(args);
  const TPSettings s = ParseTPArguments(static_cast<int>(argv.size()), argv.data());
  EXPECT_EQ(s.hwId, GetParam().hwId);
  EXPECT_EQ(s.chipId, GetParam().chipId);
  EXPECT_EQ(s.haveBoot, GetParam().haveBoot);
  EXPECT_EQ(s.hasFile, GetParam().file != nullptr);
  EXPECT_EQ(s.file, GetParam().file ? GetParam().file : "");
}

const char kHw[] = "ACPI\\BLTP7853";  // in force, unlike the one the usage text names
INSTANTIATE_TEST_SUITE_P(Options, TPOptionsTest, testing::Values(OptionCase{{}, kHw, 0x41, 1, nullptr},
                    OptionCase{{"--chip-id", "1FF"}, kHw, 0xFF, 1, nullptr},
                    OptionCase{{"--chip-id", "zz"}, kHw, 0x00, 1, nullptr},
                    OptionCase{{"a.bin", "--hw-id"}, kHw, 0x41, 1, "a.bin"},
                    OptionCase{{"--hw-id", "ID", "--chip-id", "42"}, "ID", 0x42, 1, nullptr},
                    OptionCase{{"first.bin", "--no-boot", "-x", "second.bin"}, kHw, 0x41, 0, "second.bin"}));

class TPMainTest : public testing::Test {
 protected:
  TPMainTest() {
    sys.Into(&env);
    env.upgrade = &chip;
    chip.upgradeLogs = {{1, std::string("erasing")}};
    chip.upgradeProgress = {{0, std::string("erase")}, {50, std::string("write")}, {100, std::string("done")}};
  }
  ~TPMainTest() override {
    for (const std::string& path : made_) std::remove(path.c_str());
  }

  int Run(Strings args) {
    ScopedEnvironment scope(env);
    args.insert(args.begin(), "TPUpdate.exe");
    std::vector<char*> argv = Argv(args);
    testing::internal::CaptureStdout();
    const int rc = TPMain(static_cast<int>(args.size()), argv.data());
    out = testing::internal::GetCapturedStdout();
    return rc;
  }

  bool OutHas(const std::string& text) const { return out.find(text) != std::string::npos; }

  std::string Firmware(const std::string& content, const std::string& name = "fw.bin") {
    made_.push_back(testing::TempDir() + "calder_tp_" + std::to_string(getpid()) + "_" +
                    std::to_string(made_.size()) + "_" + name);
    std::ofstream(made_.back(), std::ios::binary) << content;
    return made_.back();
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
const std::string kBigSum = std::string(0x102, '\xFF') + '\x05';

TEST_F(TPMainTest, UpgradeVerifiesTheChecksumAgainstTheLowSixteenBits) {
  const std::string fw = Firmware(kBigSum);
  EXPECT_EQ(Run({"upgrade", fw}), 0);
  EXPECT_EQ(out, kBanner + kInitialized + "Upgrading from: " + fw + "\n\n" +
                     "[WARN] erasing\n[  0%] erase\n[ 50%] write\n[100%] done\n\n"
                     "SUCCESS: Upgrade completed successfully!\n"
                     "Checksum: 0x00010103\n"
                     "Checksum inside : 0x00000103\n"
                     "Upgrade checksum pass!\n" + kClosing);
  EXPECT_EQ(log.Lines(), (Strings{"INFO tp_update.cpp: Initializing...",
                                  "INFO tp_update.cpp: Initialized successfully.",
                                  "INFO tp_update.cpp: Upgrading from:" + fw,
                                  "INFO tp_update.cpp: SUCCESS: Upgrade completed successfully!",
                                  "INFO tp_update.cpp: Checksum: 65795", "INFO tp_update.cpp: Checksum inside: 259",
                                  "INFO tp_update.cpp: Upgrade checksum pass!"}));
  EXPECT_EQ(sys.posts, (std::vector<int>{0, 10, 20}));
  EXPECT_EQ(chip.calls, (Strings{"btl_upgrade_init", "btl_upgrade_from_file", "btl_get_checksum", "btl_upgrade_deinit"}));
  EXPECT_EQ(chip.seenConfig.haveBoot, 1);
}

// Bytes of a file whose sum is 0x1_0000: the chip's preset 0 matches it.
const std::string kLowHalfZero = std::string(0x101, '\xFF') + '\x01';
const char kMissing[] = "\x01missing";  // no file is written

struct UpgradeCase {
  std::string file;
  std::function<void(TouchpadController&)> chip;
  int rc;
  std::string output;   // the end of the output, before the closing lines
  std::string lastLog;  // how the last log message begins
};

class TPUpgradeTest : public TPMainTest, public testing::WithParamInterface<UpgradeCase> {};

TEST_P(TPUpgradeTest, EndsWithItsOutcome) {
  const UpgradeCase& c = GetParam();
  GetParam().chip(chip);
  const std::string path = c.file == kMissing ? testing::TempDir() + "calder_no_such.bin" : Firmware(c.file);
  EXPECT_EQ(Run({"upgrade", path}), c.rc);
  EXPECT_TRUE(OutHas(c.output + kClosing)) << out;
  EXPECT_EQ(log.Messages().back().rfind(c.lastLog, 0), 0u) << log.Messages().back();
}

const auto kClaimsSuccess = [](TouchpadController& c) { c.upgradeResult = 0; };
const auto kChecksumFails = [](TouchpadController& c) { c.checksumResult = -9; };
INSTANTIATE_TEST_SUITE_P(Outcomes, TPUpgradeTest, testing::Values(
        UpgradeCase{kBigSum, [](TouchpadController& c) { c.checksumMode = sim::ChecksumMode::Full32; }, 1,
                    "Checksum inside : 0x00010103\nUpgrade checksum failed!\n", "Upgrade checksum failed!"},
        UpgradeCase{kLowHalfZero, kChecksumFails, 1,
                    "Checksum: 0x00010000\nERROR: Get checksum failed: -9\nUpgrade checksum pass!\n",
                    "Upgrade checksum pass!"},
        UpgradeCase{"\x01\x02", kChecksumFails, 1, "ERROR: Get checksum failed: -9\nUpgrade checksum failed!\n",
                    "Upgrade checksum failed!"}, UpgradeCase{"same", [](TouchpadController& c) { c.flash = "same"; }, 0,
                    "\n\n\nINFO: Already latest version, no upgrade needed.\n", "Upgrading from:"},
        UpgradeCase{"x", [](TouchpadController& c) { c.upgradeResult = -7; }, 1,
                    "\n\n\nERROR: Upgrade failed with error code: -7\n", "ERROR: Upgrade failed with error code: %d -7"},
        UpgradeCase{kMissing, kClaimsSuccess, 1, "\nSUCCESS: Upgrade completed successfully!\n",
                    "SUCCESS: Upgrade completed successfully!"},
        UpgradeCase{"", kClaimsSuccess, 1, "SUCCESS: Upgrade completed successfully!\nfile size == 0,exit\n",
                    "file size == 0,exit"}));

TEST_F(TPMainTest, UpgradeNeedsAFileButAnEmptyEntryCounts) {
  EXPECT_EQ(Run({"upgrade", "--no-boot"}), 1);
  EXPECT_EQ(chip.seenConfig.haveBoot, 0);
  EXPECT_TRUE(OutHas("Have Boot:   No\n"));
  EXPECT_TRUE(OutHas(std::string(kInitialized) + "ERROR: Bin file not specified\n"
                     "Usage: TPUpdate.exe upgrade <bin_file>\n" + kClosing));
  EXPECT_EQ(log.Lines().back(), "INFO tp_update.cpp: ERROR: Bin file not specified");

  EXPECT_EQ(Run({"upgrade", ""}), 1);
  EXPECT_TRUE(OutHas("Upgrading from: \n\n\nERROR: Upgrade failed with error code: -4\n"));
  EXPECT_EQ(chip.upgradedFiles.back(), "");
}

TEST_F(TPMainTest, AFailedInitEndsAtOnceWithoutDeinit) {
  // A record for another controller: the options reach the library.
  EXPECT_EQ(Run({"version", "--hw-id", "ACPI\\NOPE", "--chip-id", "1FF"}), 1);
  EXPECT_EQ(out, Banner("ACPI\\NOPE", "0xFF") + "ERROR: Init failed with error code: -3\n");
  EXPECT_EQ(chip.seenConfig.hwId, "ACPI\\NOPE");
  EXPECT_EQ(chip.seenConfig.chipId, 0xFF);
  EXPECT_EQ(chip.calls, (Strings{"btl_upgrade_init"}));
  EXPECT_EQ(log.Lines().back(), "INFO tp_update.cpp: ERROR: Init failed with error code: -3");
}

TEST_F(TPMainTest, AMissingLibrarySaysWhyAndFails) {
  env.upgrade = nullptr;
  EXPECT_EQ(Run({"upgrade", "fw.bin"}), 1);
  EXPECT_EQ(out, kBanner + "ERROR: btl_upgrade.dll is not available in this build\n"
                     "ERROR: Init failed with error code: 126\n");
  EXPECT_EQ(log.Messages(), (Strings{"Initializing...", "ERROR: btl_upgrade.dll is not available in this build",
                                     "ERROR: Init failed with error code: 126"}));
}

TEST_F(TPMainTest, AnUnknownOrMissingCommandPrintsTheUsage) {
  EXPECT_EQ(Run({"Upgrade"}), 1);
  EXPECT_EQ(out, kBanner + kInitialized + "ERROR: Unknown command: Upgrade\n\n" + kUsage + kClosing);
  EXPECT_EQ(chip.calls, (Strings{"btl_upgrade_init", "btl_upgrade_deinit"}));
  EXPECT_EQ(Run({}), 1);
  EXPECT_EQ(out, kUsage);  // without a command the library is not touched
  EXPECT_EQ(chip.calls.size(), 2u);
}

struct QueryCase {
  Strings args;
  std::function<void(TouchpadController&)> chip;
  int rc;
  std::string line;
};

class TPQueryTest : public TPMainTest, public testing::WithParamInterface<QueryCase> {};

TEST_P(TPQueryTest, PrintsItsAnswerOrCodeAndLogsNothingMore) {
  chip.firmwareVersion = 0x2A;
  chip.flash = "old";
  GetParam().chip(chip);
  Strings args = GetParam().args;
  if (args.size() > 1) args[1] = Firmware(args[1]);
  EXPECT_EQ(Run(args), GetParam().rc);
  EXPECT_EQ(out, kBanner + kInitialized + GetParam().line + kClosing);
  EXPECT_EQ(log.Messages(), (Strings{"Initializing...", "Initialized successfully."}));
}

const auto kGood = [](TouchpadController&) {};
INSTANTIATE_TEST_SUITE_P(Queries, TPQueryTest, testing::Values(
        QueryCase{{"version"}, kGood, 0, "Firmware Version: 42 (0x2A)\n"},
        QueryCase{{"chipid"}, kGood, 0, "Chip ID: 0x41\n"}, QueryCase{{"checksum"}, kGood, 0, "Checksum: 0x0000013F\n"},
        QueryCase{{"check", "new"}, kGood, 0, "Need Upgrade: Yes\n"},
        QueryCase{{"check", "old"}, kGood, 0, "Need Upgrade: No\n"},
        QueryCase{{"check"}, kGood, 1, "ERROR: Bin file not specified\nUsage: TPUpdate.exe check <bin_file>\n"},
        QueryCase{{"version"}, [](TouchpadController& c) { c.versionResult = -11; }, 1, "ERROR: Get version failed: -11\n"},
        QueryCase{{"chipid"}, [](TouchpadController& c) { c.chipIdResult = -12; }, 1, "ERROR: Get chip ID failed: -12\n"},
        QueryCase{{"checksum"}, [](TouchpadController& c) { c.checksumResult = -13; }, 1, "ERROR: Get checksum failed: -13\n"},
        QueryCase{{"check", "x"}, [](TouchpadController& c) { c.checkResult = -14; }, 1, "ERROR: Check failed: -14\n"}));

TEST_F(TPMainTest, CallbacksPostAFifthTruncatedAndPrintKnownLogLevelsOnly) {
  ScopedEnvironment scope(env);
  testing::internal::CaptureStdout();
  for (int percent : {100, 99, 4, 5, 0}) TPProgressCallback(percent, "step");
  TPProgressCallback(50, nullptr);
  for (int level : {0, 1, 2, 3, -1}) TPLogCallback(level, level == 1 ? nullptr : "m");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[100%] step\n[ 99%] step\n[  4%] step\n[  5%] step\n[  0%] step\n[ 50%] \n"
            "[INFO] m\n[WARN] \n[ERROR] m\n");
  EXPECT_EQ(sys.posts, (std::vector<int>{20, 19, 0, 1, 0, 10}));
  EXPECT_TRUE(log.Lines().empty());
}

}  // namespace
}  // namespace calder
