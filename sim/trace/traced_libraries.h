#pragma once

#include <string>

#include "platform/bridge_library.h"
#include "platform/hid_host.h"
#include "platform/upgrade_library.h"
#include "sim/trace/trace_player.h"
#include "touchpad/btl_upgrade_config.h"

namespace calder::replay {

// What a traced library answers once it has left its trace.
constexpr int kDeadDeviceResult = -1;

// btl_hid_transfer.dll answered from a trace: replies and results as
// recorded, the bytes the run reads filled from the recorded "out".
class TracedBridge : public BridgeLibrary {
 public:
  TracedBridge(const Trace& trace, const std::string& programDir, Clock& clock, ReplayState& state)
      : player(trace, programDir, clock, state) {}

  int btl_init_driver_7853() override { return Simple(kInitDriver); }
  int btl_open_device() override { return Simple(kOpenDevice); }
  int btl_write_data(unsigned char* buffer, int length) override;
  int btl_read_data(unsigned char* buffer, int length) override;
  int btl_close_device() override { return Simple(kCloseDevice); }
  int btl_uninstall_driver() override { return Simple(kUninstallDriver); }

  TracePlayer player;

 private:
  int Simple(BridgeEntryPoint entry);
};

// btl_upgrade.dll answered from a trace. The callbacks recorded before a
// call are made, in order, during that call through the record the run
// gave at init.
class TracedUpgrade : public UpgradeLibrary {
 public:
  TracedUpgrade(const Trace& trace, const std::string& programDir, Clock& clock, ReplayState& state)
      : player(trace, programDir, clock, state) {}

  int32_t Init(btl_upgrade_config* config) override;
  int32_t UpgradeFromFile(const char* path) override;
  int32_t GetChecksum(uint32_t* checksum) override;
  int32_t GetFirmwareVersion(uint8_t* version) override;
  int32_t GetChipId(uint8_t* chipId) override;
  int32_t CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) override;
  void Deinit() override;

  TracePlayer player;

 private:
  // Plays the call: callbacks, then the recorded "out" into `value`
  // (`size` bytes, little-endian) and the recorded result.
  int32_t Play(TraceLine actual, void* value, size_t size);

  btl_progress_callback progress_ = nullptr;
  btl_log_callback log_ = nullptr;
};

// The machine's HID host answered from a trace: the interfaces, attributes
// and input reports as recorded, each open's handle the number it was
// recorded with. Each call moves the virtual clock on by the time the
// device took in it, so the program's time-outs run out where they did.
class TracedHid : public HidHost {
 public:
  TracedHid(const Trace& trace, const std::string& programDir, VirtualClock& clock,
            ReplayState& state)
      : player(trace, programDir, clock, state), clock_(clock) {}

  std::vector<std::u16string> InterfacePaths() override;
  bool ProbeAttributes(const std::u16string& path, HidAttributes* attributes) override;
  HidHandle OpenReadWrite(const std::u16string& path) override;
  bool Close(HidHandle handle) override;
  bool SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) override;
  bool GetInputReport(HidHandle handle, uint8_t* report, size_t size) override;

  TracePlayer player;

 private:
  const TraceLine* Play(TraceLine actual);
  VirtualClock& clock_;
  uint64_t inCallUs_ = 0;
};

}  // namespace calder::replay
