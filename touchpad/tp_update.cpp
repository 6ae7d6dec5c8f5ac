#include "touchpad/tp_update.h"

#include <cstdio>
#include <string>

#include "base/log.h"
#include "base/log_lines.h"
#include "platform/environment.h"
#include "platform/progress.h"
#include "platform/upgrade_library.h"
#include "touchpad/btl_upgrade_config.h"
#include "touchpad/file_byte_sum.h"
#include "touchpad/tp_arguments.h"

namespace calder {

namespace lines = log_lines::tp_update_cpp;

namespace {

constexpr int32_t kAlreadyLatest = 12;
// The touchpad phase fills the first fifth of the overall progress scale.
constexpr double kProgressShare = kTouchpadProgressEnd / 100.0;
const char* const kLogLevelNames[] = {"INFO", "WARN", "ERROR"};

const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

// Stands in when no upgrade library is installed (a build without one).
class NoUpgradeLibrary : public UpgradeLibrary {
 public:
  int32_t Init(btl_upgrade_config*) override { return kUpgradeLibraryNotFound; }
  int32_t UpgradeFromFile(const char*) override { return kUpgradeLibraryNotFound; }
  int32_t GetChecksum(uint32_t*) override { return kUpgradeLibraryNotFound; }
  int32_t GetFirmwareVersion(uint8_t*) override { return kUpgradeLibraryNotFound; }
  int32_t GetChipId(uint8_t*) override { return kUpgradeLibraryNotFound; }
  int32_t CheckNeedUpgrade(const char*, uint32_t*) override { return kUpgradeLibraryNotFound; }
  void Deinit() override {}
  std::string BindError() const override {
    return "btl_upgrade.dll is not available in this build";
  }
};

UpgradeLibrary& Library() {
  static NoUpgradeLibrary none;
  return Env().upgrade != nullptr ? *Env().upgrade : none;
}

void PrintBanner(const TPSettings& settings) {
  std::printf("========================================\n");
  std::printf("BTL Firmware Upgrade Tool\n");
  std::printf("========================================\n");
  std::printf("Hardware ID: %s\n", settings.hwId.c_str());
  std::printf("Chip ID:     0x%02X\n", settings.chipId);
  std::printf("Have Boot:   %s\n", settings.haveBoot != 0 ? "Yes" : "No");
  std::printf("========================================\n\n");
}

// Compares the chip's checksum with the low 16 bits of the file's byte sum.
int VerifyUpgrade(UpgradeLibrary& library, const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return 1;
  const FileSum fileSum = SumFileBytes(file);
  std::fclose(file);
  if (fileSum.status == FileSumStatus::Empty) {
    std::printf("file size == 0,exit\n");
    LOG(INFO) << lines::kFileEmpty;
    return 1;
  }
  if (fileSum.status == FileSumStatus::ShortRead) {
    std::printf("file read incomplete,exit\n");
    LOG(INFO) << lines::kFileShort;
    return 1;
  }
  std::printf("Checksum: 0x%08X\n", fileSum.sum);
  LOG(INFO) << "Checksum: " << fileSum.sum;

  int result = 0;
  uint32_t chipChecksum = 0;
  const int32_t rc = library.GetChecksum(&chipChecksum);
  if (rc == 0) {  // Kept as the field sees it: "inside :" on the console, "inside:" logged.
    std::printf("Checksum inside : 0x%08X\n", chipChecksum);
    LOG(INFO) << "Checksum inside: " << chipChecksum;
  } else {
    std::printf("ERROR: Get checksum failed: %d\n", rc);
    LOG(INFO) << lines::kGetChecksumFailed << rc;
    result = 1;
  }
  if (chipChecksum == (fileSum.sum & 0xFFFF)) {
    std::printf("Upgrade checksum pass!\n");
    LOG(INFO) << "Upgrade checksum pass!";
    return result;
  }
  std::printf("Upgrade checksum failed!\n");
  LOG(INFO) << lines::kChecksumFailed;
  return 1;
}

int RunUpgrade(UpgradeLibrary& library, const TPSettings& settings, const char* program) {
  if (!settings.hasFile) {
    std::printf("ERROR: Bin file not specified\n");
    std::printf("Usage: %s upgrade <bin_file>\n", program);
    LOG(INFO) << "ERROR: Bin file not specified";
    return 1;
  }
  std::printf("Upgrading from: %s\n\n", settings.file.c_str());
  LOG(INFO) << lines::kUpgradingFrom << settings.file;
  const int32_t rc = library.UpgradeFromFile(settings.file.c_str());
  std::printf("\n");
  if (rc == kAlreadyLatest) {
    std::printf("INFO: Already latest version, no upgrade needed.\n");
    return 0;
  }
  if (rc != 0) {
    std::printf("ERROR: Upgrade failed with error code: %d\n", rc);
    // Kept as the field sees it: the "%d" stays unexpanded in the log text.
    LOG(INFO) << lines::kUpgradeFailed << rc;
    return 1;
  }
  std::printf("SUCCESS: Upgrade completed successfully!\n");
  LOG(INFO) << lines::kUpgraded;
  return VerifyUpgrade(library, settings.file);
}

// A query command: one library call, then its answer or its error code.
template <typename Value, typename Call, typename Print>
int RunQuery(Call call, const char* failureFormat, Print printAnswer) {
  Value value = 0;
  const int32_t rc = call(&value);
  if (rc != 0) {
    std::printf(failureFormat, rc);
    return 1;
  }
  printAnswer(value);
  return 0;
}

int RunCheck(UpgradeLibrary& library, const TPSettings& settings, const char* program) {
  if (!settings.hasFile) {
    std::printf("ERROR: Bin file not specified\n");
    std::printf("Usage: %s check <bin_file>\n", program);
    return 1;
  }
  return RunQuery<uint32_t>(
      [&](uint32_t* need) { return library.CheckNeedUpgrade(settings.file.c_str(), need); },
      "ERROR: Check failed: %d\n",
      [](uint32_t need) { std::printf("Need Upgrade: %s\n", need != 0 ? "Yes" : "No"); });
}

int Dispatch(UpgradeLibrary& library, const TPSettings& settings, const char* command,
             const char* program) {
  const std::string name = OrEmpty(command);
  if (name == "upgrade") return RunUpgrade(library, settings, program);
  if (name == "version") {
    return RunQuery<uint8_t>(
        [&](uint8_t* version) { return library.GetFirmwareVersion(version); },
        "ERROR: Get version failed: %d\n",
        [](uint8_t version) { std::printf("Firmware Version: %d (0x%02X)\n", version, version); });
  }
  if (name == "chipid") {
    return RunQuery<uint8_t>([&](uint8_t* chipId) { return library.GetChipId(chipId); },
                             "ERROR: Get chip ID failed: %d\n",
                             [](uint8_t chipId) { std::printf("Chip ID: 0x%02X\n", chipId); });
  }
  if (name == "checksum") {
    return RunQuery<uint32_t>(
        [&](uint32_t* checksum) { return library.GetChecksum(checksum); },
        "ERROR: Get checksum failed: %d\n",
        [](uint32_t checksum) { std::printf("Checksum: 0x%08X\n", checksum); });
  }
  if (name == "check") return RunCheck(library, settings, program);
  std::printf("ERROR: Unknown command: %s\n\n", name.c_str());
  TPPrintUsage(program);
  return 1;
}

}  // namespace

void TPProgressCallback(int32_t percent, const char* message) {
  PostProgress(static_cast<int>(percent * kProgressShare));
  std::printf("[%3d%%] %s\n", percent, OrEmpty(message));
}

void TPLogCallback(int32_t level, const char* message) {
  const uint32_t index = static_cast<uint32_t>(level);
  if (index >= sizeof kLogLevelNames / sizeof kLogLevelNames[0]) return;
  std::printf("[%s] %s\n", kLogLevelNames[index], OrEmpty(message));
}

void TPPrintUsage(const char* programName) {
  const char* program = OrEmpty(programName);
  std::printf("BTL Firmware Upgrade Tool\n\n");
  std::printf("Usage: %s <command> [options]\n\n", program);
  std::printf("Commands:\n");
  std::printf("  upgrade <bin_file>     Upgrade firmware from file\n");
  std::printf("  version                Get firmware version\n");
  std::printf("  chipid                 Get chip ID\n");
  std::printf("  checksum               Get firmware checksum\n");
  std::printf("  check <bin_file>       Check if upgrade needed\n");
  std::printf("\nOptions:\n");
  std::printf("  --hw-id <id>           Hardware ID (default: ACPI\\BTLTP7853)\n");
  std::printf("  --chip-id <id>         Chip ID in hex (default: 42)\n");
  std::printf("  --no-boot              No boot in firmware\n");
  std::printf("\nExamples:\n");
  std::printf("  %s upgrade firmware.bin\n", program);
  std::printf("  %s --chip-id 43 upgrade firmware.bin\n", program);
  std::printf("  %s version\n", program);
}

int TPMain(int argc, char* argv[]) {
  const char* program = argc > 0 && argv != nullptr ? OrEmpty(argv[0]) : "";
  // Without a command there is nothing to run; the library is not touched.
  if (argc < 2 || argv == nullptr) {
    TPPrintUsage(program);
    return 1;
  }
  const TPSettings settings = ParseTPArguments(argc, argv);
  PrintBanner(settings);
  std::printf("Initializing...\n");
  LOG(INFO) << lines::kInitializing;

  UpgradeLibrary& library = Library();
  // Lives on this stack from init until deinit has returned, as the library
  // may keep the pointers.
  btl_upgrade_config config = BuildUpgradeConfig(settings.hwId.c_str(), settings.chipId,
                                                  settings.haveBoot, &TPProgressCallback,
                                                  &TPLogCallback);
  const int32_t rc = library.Init(&config);
  if (rc != 0) {
    const std::string why = library.BindError();
    if (!why.empty()) {
      std::printf("ERROR: %s\n", why.c_str());
      LOG(INFO) << lines::kError << why;  // Kept as the field sees it: "ERROR: " at INFO.
    }
    std::printf("ERROR: Init failed with error code: %d\n", rc);
    LOG(INFO) << lines::kInitFailed << rc;
    return 1;
  }
  std::printf("Initialized successfully.\n\n");
  LOG(INFO) << "Initialized successfully.";

  const int result = Dispatch(library, settings, argv[1], program);

  std::printf("\nDeinitializing...\n");
  library.Deinit();
  std::printf("Done.\n");
  return result;
}

}  // namespace calder
