#pragma once

#include <string>

#include "platform/bridge_library.h"
#include "platform/clock.h"
#include "platform/upgrade_library.h"
#include "trace/trace.h"
#include "touchpad/btl_upgrade_config.h"

namespace calder::replay {

// Records every call made through a library into a trace, in the format the
// recorder DLLs write, and forwards it unchanged: traces made from the
// device models for the tests, the bench and the committed sample traces.
// Times are the given clock's, whose origin both recorders share; paths are
// written relative to programDir, the package folder.
class RecordingBridge : public BridgeLibrary {
 public:
  RecordingBridge(BridgeLibrary& inner, Clock& clock);

  int btl_init_driver_7853() override;
  int btl_open_device() override;
  int btl_write_data(unsigned char* buffer, int length) override;
  int btl_read_data(unsigned char* buffer, int length) override;
  int btl_close_device() override;
  int btl_uninstall_driver() override;

  Trace trace;

 private:
  int Done(TraceLine line, uint64_t enteredMs, int rc);
  BridgeLibrary& inner_;
  Clock& clock_;
};

// The upgrade library's recorder. The vendor's callbacks carry no context,
// so one recorder at a time stands between the library and the program's
// callbacks.
class RecordingUpgrade : public UpgradeLibrary {
 public:
  RecordingUpgrade(UpgradeLibrary& inner, Clock& clock, std::string programDir);
  ~RecordingUpgrade() override;

  int32_t Init(btl_upgrade_config* config) override;
  int32_t UpgradeFromFile(const char* path) override;
  int32_t GetChecksum(uint32_t* checksum) override;
  int32_t GetFirmwareVersion(uint8_t* version) override;
  int32_t GetChipId(uint8_t* chipId) override;
  int32_t CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) override;
  void Deinit() override;

  Trace trace;

 private:
  static void OnProgress(int32_t percent, const char* text);
  static void OnLog(int32_t level, const char* text);
  void Callback(const char* cb, int32_t value, const char* text);
  uint64_t Entered();
  void Done(TraceLine line, uint64_t enteredMs);
  template <typename Query>
  int32_t RecordQuery(UpgradeEntryPoint entry, void* variable, size_t size, Query query);

  UpgradeLibrary& inner_;
  Clock& clock_;
  std::string programDir_;
  btl_upgrade_config forwarded_{};
  btl_progress_callback progress_ = nullptr;
  btl_log_callback log_ = nullptr;
};

}  // namespace calder::replay
