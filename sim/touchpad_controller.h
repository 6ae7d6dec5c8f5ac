#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/upgrade_library.h"
#include "touchpad/btl_upgrade_config.h"

namespace calder::sim {

// Error codes of the simulated library (the real one has its own).
constexpr int32_t kTpOk = 0;
constexpr int32_t kTpAlreadyLatest = 12;
constexpr int32_t kTpErrNotInitialized = -1;
constexpr int32_t kTpErrBadConfig = -2;
constexpr int32_t kTpErrNoDevice = -3;
constexpr int32_t kTpErrOpenFile = -4;
constexpr int32_t kTpErrEmptyFile = -5;

enum class ChecksumMode {
  Low16,  // what a good controller reports: the low 16 bits of the file sum
  Full32  // a controller that reports the whole 32-bit sum
};

// A callback the controller makes during an upgrade; no text means a null
// pointer.
struct TpCallbackEvent {
  int32_t value = 0;  // percent or level
  std::optional<std::string> text;
};

// What the controller saw of the configuration record at init.
struct TpSeenConfig {
  std::string hwId;
  bool hwIdNull = false;
  uint8_t chipId = 0;
  int32_t haveBoot = 0;
  int32_t options[3] = {};
  bool zeroBytesClean = false;
  bool progressSet = false;
  bool logSet = false;
  bool lastNull = false;
};

// The touchpad controller behind btl_upgrade's seven entry points: checks
// the record, flashes files while reporting through the callbacks, and
// answers the queries. Public fields are the fault injections and records.
// A record the library would misread, and any call outside init ... deinit,
// is a protocol violation.
class TouchpadController : public UpgradeLibrary {
 public:
  TouchpadController();

  int32_t Init(btl_upgrade_config* config) override;
  int32_t UpgradeFromFile(const char* path) override;
  int32_t GetChecksum(uint32_t* checksum) override;
  int32_t GetFirmwareVersion(uint8_t* version) override;
  int32_t GetChipId(uint8_t* chipId) override;
  int32_t CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) override;
  void Deinit() override;

  // The firmware version an image carries: its byte at this offset.
  static constexpr size_t kImageVersionOffset = 4;

  // Device state.
  std::string hwId = "ACPI\\BLTP7853";
  uint8_t chipId = 0x41;
  uint8_t firmwareVersion = 0x10;
  std::string flash;  // the image last written
  ChecksumMode checksumMode = ChecksumMode::Low16;

  // Fault injections: a result that replaces the entry point's own work
  // (an injected upgrade result writes nothing and makes no callbacks).
  std::optional<int32_t> initResult;
  std::optional<int32_t> upgradeResult;
  std::optional<int32_t> checksumResult;
  std::optional<int32_t> versionResult;
  std::optional<int32_t> chipIdResult;
  std::optional<int32_t> checkResult;

  // Callbacks made during an upgrade, in order: all log events first, then
  // the progress events.
  std::vector<TpCallbackEvent> upgradeLogs;
  std::vector<TpCallbackEvent> upgradeProgress;

  // Records.
  std::vector<std::string> calls;  // entry point names in call order
  TpSeenConfig seenConfig;
  std::vector<std::string> upgradedFiles;
  bool open = false;

 private:
  static int32_t CheckRecord(const TpSeenConfig& seen);
  static int32_t NotOpen(const std::string& call);
  static bool ReadFile(const char* path, std::string* content);
  uint32_t ChecksumOf(const std::string& image) const;

  btl_progress_callback progress_ = nullptr;
  btl_log_callback log_ = nullptr;
};

// The byte sum of an image, wrapping at 32 bits.
uint32_t ImageByteSum(const std::string& image);

}  // namespace calder::sim
