#include "sim/touchpad_controller.h"

#include <fstream>
#include <iterator>

#include "sim/protocol_violations.h"

namespace calder::sim {
namespace {

// The option words the library is built for; its own copy, apart from
// touchpad/ on purpose, so a wrong record shows up as a violation.
constexpr int32_t kOptionWords[3] = {0, 1, 0};

// Breaking the library's calling order or handing it a record it would
// misread is a protocol error, whatever the library then returns.
int32_t Refuse(const std::string& what, int32_t result) {
  RecordViolation("touchpad controller: " + what);
  return result;
}

}  // namespace

uint32_t ImageByteSum(const std::string& image) {
  uint32_t sum = 0;
  for (char c : image) sum += static_cast<unsigned char>(c);
  return sum;
}

TouchpadController::TouchpadController() {
  upgradeLogs = {{0, std::string("upgrade start")}};
  for (int percent = 0; percent <= 100; percent += 10) {
    upgradeProgress.push_back({percent, std::string(percent < 100 ? "writing" : "done")});
  }
}

int32_t TouchpadController::Init(btl_upgrade_config* config) {
  calls.push_back("btl_upgrade_init");
  if (config == nullptr) return Refuse("init without a record", kTpErrBadConfig);
  seenConfig = TpSeenConfig();
  seenConfig.hwIdNull = config->hwId == nullptr;
  if (config->hwId != nullptr) seenConfig.hwId = config->hwId;
  seenConfig.chipId = config->chipId;
  seenConfig.haveBoot = config->haveBoot;
  seenConfig.options[0] = config->option1;
  seenConfig.options[1] = config->option2;
  seenConfig.options[2] = config->option3;
  seenConfig.zeroBytesClean = config->zero9[0] == 0 && config->zero9[1] == 0 &&
                              config->zero9[2] == 0 && config->zero28 == 0;
  seenConfig.progressSet = config->progress != nullptr;
  seenConfig.logSet = config->log != nullptr;
  seenConfig.lastNull = config->last == nullptr;
  const int32_t recordResult = CheckRecord(seenConfig);
  if (initResult) {
    if (*initResult != kTpOk) return *initResult;
  } else if (recordResult != kTpOk) {
    return recordResult;
  } else if (seenConfig.hwId != hwId || seenConfig.chipId != chipId) {
    return kTpErrNoDevice;  // a record for another controller: not the caller's error
  }
  progress_ = config->progress;
  log_ = config->log;
  open = true;
  return kTpOk;
}

int32_t TouchpadController::UpgradeFromFile(const char* path) {
  calls.push_back("btl_upgrade_from_file");
  if (!open) return NotOpen(calls.back());
  upgradedFiles.push_back(path != nullptr ? path : "");
  if (upgradeResult) return *upgradeResult;
  std::string image;
  if (!ReadFile(path, &image)) return kTpErrOpenFile;
  if (image.empty()) return kTpErrEmptyFile;
  if (image == flash) return kTpAlreadyLatest;
  for (const TpCallbackEvent& e : upgradeLogs) log_(e.value, e.text ? e.text->c_str() : nullptr);
  for (const TpCallbackEvent& e : upgradeProgress) {
    progress_(e.value, e.text ? e.text->c_str() : nullptr);
  }
  flash = image;
  if (image.size() > kImageVersionOffset) {
    firmwareVersion = static_cast<uint8_t>(image[kImageVersionOffset]);
  }
  return kTpOk;
}

int32_t TouchpadController::GetChecksum(uint32_t* checksum) {
  calls.push_back("btl_get_checksum");
  if (!open) return NotOpen(calls.back());
  if (checksumResult) return *checksumResult;
  *checksum = ChecksumOf(flash);
  return kTpOk;
}

int32_t TouchpadController::GetFirmwareVersion(uint8_t* version) {
  calls.push_back("btl_get_firmware_version");
  if (!open) return NotOpen(calls.back());
  if (versionResult) return *versionResult;
  *version = firmwareVersion;
  return kTpOk;
}

int32_t TouchpadController::GetChipId(uint8_t* id) {
  calls.push_back("btl_get_chip_id");
  if (!open) return NotOpen(calls.back());
  if (chipIdResult) return *chipIdResult;
  *id = chipId;
  return kTpOk;
}

int32_t TouchpadController::CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) {
  calls.push_back("btl_check_need_upgrade");
  if (!open) return NotOpen(calls.back());
  if (checkResult) return *checkResult;
  std::string image;
  if (!ReadFile(path, &image)) return kTpErrOpenFile;
  *needUpgrade = image != flash ? 1 : 0;
  return kTpOk;
}

void TouchpadController::Deinit() {
  calls.push_back("btl_upgrade_deinit");
  if (!open) NotOpen(calls.back());
  open = false;
  progress_ = nullptr;
  log_ = nullptr;
}

int32_t TouchpadController::CheckRecord(const TpSeenConfig& seen) {
  if (!seen.zeroBytesClean) return Refuse("record padding not zero", kTpErrBadConfig);
  if (!seen.lastNull) return Refuse("record's last word not null", kTpErrBadConfig);
  if (!seen.progressSet || !seen.logSet) {
    return Refuse("record without both callbacks", kTpErrBadConfig);
  }
  for (int i = 0; i < 3; ++i) {
    if (seen.options[i] != kOptionWords[i]) {
      return Refuse("option word " + std::to_string(i) + " is " + std::to_string(seen.options[i]),
                    kTpErrBadConfig);
    }
  }
  if (seen.hwIdNull) return Refuse("record without a hardware id", kTpErrBadConfig);
  return kTpOk;
}

int32_t TouchpadController::NotOpen(const std::string& call) {
  return Refuse(call + " without a successful init", kTpErrNotInitialized);
}

bool TouchpadController::ReadFile(const char* path, std::string* content) {
  if (path == nullptr || path[0] == '\0') return false;
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  content->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return true;
}

uint32_t TouchpadController::ChecksumOf(const std::string& image) const {
  const uint32_t sum = ImageByteSum(image);
  return checksumMode == ChecksumMode::Low16 ? (sum & 0xFFFF) : sum;
}

}  // namespace calder::sim
