#pragma once

#include <cstdint>
#include <string>

#include "force/boot_loader_packets.h"

namespace calder {

class BridgeLibrary;

// The I2C channel to the force sensor through the vendor's HID bridge. The
// only thing that knows the bridge frames; every sensor exchange goes
// through its primitives.
class IICWriteRead {
 public:
  IICWriteRead(BridgeLibrary* bridge, int32_t retryCount);
  virtual ~IICWriteRead();
  IICWriteRead(const IICWriteRead&) = delete;
  IICWriteRead& operator=(const IICWriteRead&) = delete;

  int32_t retryCount;
  bool driverReady = false;  // recorded only
  bool deviceOpen = false;   // while false every sensor transfer is skipped

  bool WriteFrame(const uint8_t* frame, int length);
  bool WriteFrame(const Frame& frame);
  void SendPacket(BootCommand command, const uint8_t* data, uint16_t length);
  void SendPacket(BootCommand command, const Frame& data);
  void ReadReply(uint8_t* buffer, uint8_t length);

  bool ReadVersionBytes(uint8_t out[4]);
  std::string ReadVersion();
  bool ResetAssert();
  bool ResetRelease();
  void RestartPulse();  // assert, 100 ms, release
  // Only while the device is open: the boot-hold frames and their pauses.
  void HoldInBootLoader();
  bool DisableTouch();
  bool EnableTouch();

  BridgeLibrary* bridge() const { return bridge_; }

 private:
  bool WriteTouchFrame(const Frame& frame);

  BridgeLibrary* bridge_;
  Frame writeCopy_;  // reused, so a write costs no allocation
};

}  // namespace calder
