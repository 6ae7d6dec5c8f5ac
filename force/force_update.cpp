#include "force/force_update.h"

#include <utility>

#include "base/firmware_discovery.h"
#include "base/log.h"
#include "base/log_lines.h"
#include "force/iic_write_read.h"
#include "force/read_firmware_content.h"
#include "force/update_fw.h"
#include "hid/read_fw.h"
#include "platform/bridge_library.h"
#include "platform/environment.h"
#include "platform/progress.h"

namespace calder {

namespace lines = log_lines::force_update_cpp;

namespace {

constexpr int kWriteAttempts = 3;
constexpr unsigned kAfterDisableTouchMs = 50;
constexpr unsigned kAfterWriterRunMs = 500;
constexpr unsigned kAfterFailedRunMs = 500;
constexpr int kProgressAfterForce = 90;

// Stands in when no bridge library is installed at all.
class AbsentBridge : public BridgeLibrary {
 public:
  int btl_init_driver_7853() override { return kBridgeUnavailable; }
  int btl_open_device() override { return kBridgeUnavailable; }
  int btl_write_data(unsigned char*, int) override { return kBridgeUnavailable; }
  int btl_read_data(unsigned char*, int) override { return kBridgeUnavailable; }
  int btl_close_device() override { return kBridgeUnavailable; }
  int btl_uninstall_driver() override { return kBridgeUnavailable; }
  std::string BindError() const override { return "no HID bridge library is installed"; }
};

BridgeLibrary& InstalledBridge() {
  static AbsentBridge absent;
  return Env().bridge != nullptr ? *Env().bridge : absent;
}

// True when the read-back matched the file.
bool CheckFlashContent(const std::string& path, IICWriteRead* channel) {
  ReadFirmwareContent reader;
  const double chip = reader.Run(path, channel);
  // Kept as the field sees it: both sums print as doubles, large ones like 3.84e+06.
  LOG(INFO) << "checksum : " << chip << " filechecksum : " << reader.fileChecksum;
  if (chip == reader.fileChecksum) return true;
  LOG(INFO) << lines::kChecksumFailed;
  return false;
}

// Runs the writer up to three times; true once a run succeeds. Sets
// checksumMatch from the read-back that follows a successful run.
bool WriteWithRetries(UpdateFw* writer, const std::string& path, IICWriteRead* channel,
                      bool* checksumMatch) {
  for (int attempt = 1; attempt <= kWriteAttempts; ++attempt) {
    if (attempt > 1) LOG(INFO) << ">> retry upgrade force firmware:" << attempt;
    const bool written = writer->Run(path);
    SleepMs(kAfterWriterRunMs);
    if (written) {
      *checksumMatch = CheckFlashContent(path, channel);
      return true;
    }
    LOG(INFO) << "update failed:" << attempt;
    SleepMs(kAfterFailedRunMs);
  }
  return false;
}

// The calibration data decides a write whose read-back differed.
bool CalibrationReadable() {
  ReadFW hid;
  hid.Init();
  std::string text = "no error";
  const bool readable = hid.ReadCalibrateData(text);
  if (!readable) LOG(ERROR) << text;
  LOG(INFO) << lines::kCalibration << text;
  hid.CloseHandles();
  return readable;
}

}  // namespace

bool UpgradeForceFW() {
  std::string version;
  std::string error;
  {
    ReadFW hid;
    hid.Init();
    if (!hid.ReadForceVersion(version, error)) LOG(INFO) << error;
    hid.CloseHandles();
  }
  LOG(INFO) << lines::kCurrentVersion + version;
  const std::string path = FindFirstFileInFolder(GetModuleDir() + kForceFirmwareFolder);
  return UpdateForce(GetFileStem(path), path);
}

bool UpdateForce(std::string targetVersion, std::string path) {
  BridgeLibrary& bridge = InstalledBridge();
  IICWriteRead channel(&bridge, kBridgeRetryCount);
  UpdateFw writer(std::move(targetVersion), &channel);
  bool result = false;
  bool checksumMatch = false;

  LOG(INFO) << ">> Start Upgrade Force";
  LOG(INFO) << "init driver...";
  int code = bridge.btl_init_driver_7853();
  channel.driverReady = code == 0;
  if (code == 0) {
    LOG(INFO) << "init driver success";
  } else {
    LOG(INFO) << lines::kInitDriverFailed << code;
    const std::string reason = bridge.BindError();
    if (!reason.empty()) LOG(ERROR) << reason;
  }

  LOG(INFO) << "open device...";
  code = bridge.btl_open_device();
  channel.deviceOpen = code == 0;
  if (code != 0) {
    LOG(INFO) << lines::kOpenFailed << code;
  } else {
    LOG(INFO) << "Open device success";
    LOG(INFO) << "disable touch";
    if (!channel.DisableTouch()) LOG(INFO) << "disable touch fail";
    SleepMs(kAfterDisableTouchMs);
    result = WriteWithRetries(&writer, path, &channel, &checksumMatch);
  }

  PostProgress(kProgressAfterForce);
  LOG(INFO) << "enable touch";  // Kept as the field sees it: " - " leads its failure line.
  if (!channel.EnableTouch()) LOG(INFO) << " - enable touch fail";

  code = bridge.btl_close_device();
  if (code == 0) {
    LOG(INFO) << "close device success";
  } else {
    LOG(INFO) << "close device fail: " << code;
  }
  code = bridge.btl_uninstall_driver();
  if (code == 0) {
    LOG(INFO) << "uninstall driver success";
  } else {  // Kept as the field sees it: no blank after the colon below.
    LOG(INFO) << "uninstall driver fail:" << code;
  }

  if (result && !checksumMatch) result = CalibrationReadable();
  return result;
}

}  // namespace calder
