#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/bridge_library.h"
#include "platform/clock.h"

namespace calder::sim {

// Faults the sensor and its bridge can be told to show.
struct ForceSensorFaults {
  int initResult = 0;
  int openResult = 0;
  int closeResult = 0;
  int uninstallResult = 0;
  int failedWrites = 0;         // the next N btl_write_data calls fail
  bool writesFail = false;      // every btl_write_data fails
  bool readsFail = false;       // every btl_read_data fails
  int wrongConnectReplies = 0;  // the next N Connects answer a wrong status
  int rejectedBlock = -1;       // Write flash block index answered "failed"...
  int rejections = 1;           // ...this many times
  uint8_t erasedValue = 0x00;   // what erased flash reads back as
  bool allZeroReplies = false;  // every read returns zeros with success
  int failedTouchFrames = 0;    // the next N touch frames fail
  int failEvery = 0;            // every Nth btl_write_data / btl_read_data call fails
  int silentAfterBlocks = -1;   // after N (>= 1) accepted Write flash blocks the
                                // sensor stops answering: the bridge takes its
                                // frames, reads return zeros
};

// Bridge error codes of the model.
constexpr int kSimWriteError = 1;
constexpr int kSimReadError = 2;
constexpr int kSimNotOpen = 3;

// The force sensor behind the vendor's HID bridge: application and boot
// loader modes, the restart pulse and boot hold, the boot loader's commands
// with their replies, a flash array and the version register. It checks the
// checksums of every command packet it receives and records what it saw.
class ForceSensor : public BridgeLibrary {
 public:
  enum class Mode { kApplication, kHeldInReset, kBooting, kBootLoader };

  static constexpr uint32_t kFlashBase = 0x01001000;
  static constexpr uint32_t kFlashSize = 0xF000;
  static constexpr uint32_t kSectorSize = 512;
  // A boot-hold frame must follow the reset release within this time.
  static constexpr uint64_t kBootWindowMs = 10;
  static constexpr std::array<uint8_t, 4> kFactoryVersion{1, 0, 2, 3};

  explicit ForceSensor(Clock& clock);
  // Back to the factory state (configuration, flash, records), keeping the
  // storage: a fuzzer reuses one sensor for every input.
  void Reset();

  // --- BridgeLibrary ---
  int btl_init_driver_7853() override;
  int btl_open_device() override;
  int btl_write_data(unsigned char* buffer, int length) override;
  int btl_read_data(unsigned char* buffer, int length) override;
  int btl_close_device() override;
  int btl_uninstall_driver() override;

  // --- configuration ---
  ForceSensorFaults faults;
  std::array<uint8_t, 4> version = kFactoryVersion;
  // When set, the application reports the four flash bytes at this offset
  // from kFlashBase instead of `version`: firmware that carries its own
  // version, so a half-written image shows.
  std::optional<uint32_t> versionOffset;
  Mode mode = Mode::kApplication;
  // How long after the reset release a boot-hold frame still keeps the boot
  // loader; a stand-in on a loaded test machine may allow more.
  uint64_t bootWindowMs = kBootWindowMs;
  std::vector<uint8_t> flash;  // kFlashSize bytes from kFlashBase

  // --- what the sensor and bridge saw ---
  std::vector<std::string> calls;                   // the lifecycle calls in order
  std::vector<std::vector<uint8_t>> frames;         // every accepted btl_write_data
  bool recordFrames = true;                         // kept by Reset; fuzzers turn it off
  int writeCalls = 0;                               // accepted or not
  int readCalls = 0;
  int badPackets = 0;                               // checksum or layout errors
  int unknownFrames = 0;
  int connects = 0;
  std::vector<std::pair<int, uint32_t>> erases;     // sector count, address
  std::vector<uint32_t> writtenBlocks;              // accepted Write flash addresses
  std::vector<uint32_t> flashReads;                 // Read flash addresses
  int runs = 0;                                     // Run application packets
  int bootLoaderEntries = 0;
  std::vector<bool> touchFrames;                    // true = disable
  bool touchEnabled = true;
  bool open() const { return open_; }
  bool silent() const { return silent_; }

  // Flash bytes from an absolute address (out of range reads as zero).
  std::vector<uint8_t> ReadFlash(uint32_t address, size_t count) const;

 private:
  void HandleSensorPayload(const uint8_t* payload, int length);
  void HandleCommand(uint8_t group, uint8_t code, const uint8_t* data, int length);
  void HandleTouchFrame(const uint8_t* frame, int length);
  void SettleBoot();
  void StartApplication();
  void Reply(uint8_t group, uint8_t code, const std::vector<uint8_t>& data);
  bool InFlash(uint32_t address, uint32_t count) const;
  bool NthCallFails();

  Clock& clock_;
  bool open_ = false;
  bool silent_ = false;
  int dataCalls_ = 0;
  uint64_t releasedAt_ = 0;
  std::vector<uint8_t> output_;  // what the next read returns
};

const char* ModeName(ForceSensor::Mode mode);

}  // namespace calder::sim
