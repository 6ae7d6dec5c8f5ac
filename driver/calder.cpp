#include "driver/calder.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "base/firmware_discovery.h"
#include "base/log.h"
#include "driver/logging.h"
#include "driver/power_request_guard.h"
#include "driver/update_phases.h"
#include "bios/wmi_bios_tp_rst.h"
#include "force/force_update.h"
#include "hid/read_fw.h"
#include "platform/com_runtime.h"
#include "platform/environment.h"
#include "platform/progress.h"
#include "touchpad/tp_update.h"

namespace calder {

namespace {

constexpr unsigned kPauseAfterBiosResetMs = 3000;
constexpr int kProgressAfterTouchpad = kTouchpadProgressEnd;

long InitializeCom() {
  return Env().com != nullptr ? Env().com->InitializeMultithreaded() : 0;
}

void UninitializeCom() {
  if (Env().com != nullptr) Env().com->Uninitialize();
}

}  // namespace

UpdatePhases RealPhases() {
  return UpdatePhases{static_cast<bool (*)()>(&WMIBiosTPReset), &TPMain, &UpgradeForceFW,
                      &RunVersionReport};
}

UpdatePhases& Phases() {
  static UpdatePhases phases = RealPhases();
  return phases;
}

int main(int argc, char** argv) {
  PowerRequestGuard power;
  if (argc < 2) {
    LOG(INFO) << kFinishLine;
    return 0;
  }
  const std::string command = argv[1] != nullptr ? argv[1] : "";
  if (command == "--update") return RunUpdateSequence();
  if (command == "--version") return Phases().versionReport();
  LOG(INFO) << "invalid input";
  return 1;
}

int RunUpdateSequence() {
  const long hr = InitializeCom();
  if (hr < 0) {
    LOG(INFO) << "CoInitializeEx failed: " << hr;
    return 1;
  }
  WriteProcessPathMarker();
  LOG(INFO) << "---start tp update---";

  const std::string firmware = FindFirstFileInFolder(GetModuleDir() + kTouchpadFirmwareFolder);
  std::vector<std::string> args = {"TPUpdate.exe", "upgrade", firmware};
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(&arg[0]);
  argv.push_back(nullptr);

  if (Phases().biosTouchpadReset()) {
    LOG(INFO) << "WMIBiosTPReset success";
  } else {
    LOG(INFO) << "WMIBiosTPReset failed";
  }
  SleepMs(kPauseAfterBiosResetMs);

  if (Phases().touchpadUpgrade(3, argv.data()) != 0) {
    LOG(ERROR) << "tp update failed";
    return 1;
  }
  LOG(INFO) << "tp update success";
  LOG(INFO) << "---tp update over---";
  PostProgress(kProgressAfterTouchpad);

  LOG(INFO) << "---start force update---";
  if (Phases().forceUpgrade()) {
    LOG(INFO) << "force update success";
    UninitializeCom();
    DeleteProcessPathMarker();
    return 0;
  }
  LOG(ERROR) << "force update failed";
  UninitializeCom();
  return 1;
}

void PrintUnknownVersion() { std::cout << "compound version:" << "0.0.0.0.0.0.0.0" << std::endl; }

int RunVersionReport() {
  auto reader = std::make_unique<ReadFW>();
  reader->Init();
  std::string message = "no error";
  std::string tpVersion;
  std::string forceVersion;
  // Every failed query gives the same line; the reason is only in the log.
  const auto ReportUnknownVersion = [](const std::string& text) {
    PrintUnknownVersion();
    LOG(ERROR) << text;
    return 1;
  };

  // Calibration first, then force, then touchpad; the first failure ends it.
  if (!reader->ReadCalibrateData(message)) return ReportUnknownVersion(message);
  LOG(INFO) << "calidata: " << message;
  if (!reader->ReadForceVersion(forceVersion, message)) return ReportUnknownVersion(message);
  if (!reader->ReadTouchVersion(tpVersion, message)) return ReportUnknownVersion(message);

  LOG(INFO) << "tp version : " << tpVersion << " force version : " << forceVersion;
  std::cout << "compound version:" << tpVersion << "." << forceVersion << std::endl;
  reader->CloseHandles();
  reader.reset();  // Kept as the field sees it: closes both handles again, harmlessly.
  LOG(INFO) << kFinishLine;
  return 0;
}

}  // namespace calder
