#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/com_runtime.h"
#include "platform/file_system.h"
#include "platform/power_status.h"
#include "platform/process_info.h"
#include "platform/update_lock.h"
#include "sim/simulated_laptop.h"

namespace calder::fleet {

// A laptop for one run of calder.exe: the device models on a virtual clock,
// the firmware files beside the executable, COM and the BIOS. Callers set
// faults on the public members, then Run.
class SimulatedMachine : public FileSystem, public ProcessInfo, public ComRuntime {
 public:
  // Firmware files are written under stage, which must exist.
  explicit SimulatedMachine(std::filesystem::path stage);

  sim::SimulatedLaptop laptop;
  VirtualClock& clock = laptop.clock;
  sim::ForceSensor& sensor = laptop.sensor;
  sim::TouchpadController& touchpad = laptop.touchpad;
  sim::TouchDevice& touch = laptop.touch;
  bool upgradeLibraryInstalled = true;
  bool bridgeLibraryInstalled = true;
  long comResult = 0;
  std::optional<std::string> touchpadImage;  // none: an empty TP folder
  std::string forceFileName = "1.0.2.3.bin";
  std::optional<std::string> forceImage;     // none: an empty Force folder
  LocalTime start{2026, 4, 22, 9, 30, 15};
  // What the entry's guards find: another calder.exe holding the lock, the battery.
  bool lockHeld = false;
  PowerStatus power{1, 0, 100};

  // calder.exe with these arguments (after the program name) as its entry
  // runs it, without a gesture helper and with a window that shows nothing.
  // The log file's lines.
  std::vector<std::string> Run(const std::vector<std::string>& args);
  int result() const { return result_; }

  // FileSystem: firmware folders from the members above; writes succeed.
  bool MakeFolder(const std::string&) override { return true; }
  bool WriteNewFile(const std::string&, const void*, size_t) override { return true; }
  bool RemoveFile(const std::string&) override { return true; }
  bool ListFolder(const std::string& pattern, const std::function<bool(const FolderEntry&)>& visit) override;
  PathFacts Inspect(const std::string&) override { return {true, false, PathOwner::kSystemOrAdministrators}; }
  // ProcessInfo
  std::string ModulePathA() override { return moduleDir_ + "\\calder.exe"; }
  std::u16string ModulePathW() override;
  LocalTime Now() override { return start; }
  unsigned long ProcessId() override { return 4812; }
  // ComRuntime
  long InitializeMultithreaded() override { return comResult; }
  void Uninitialize() override {}

 private:
  void StageFiles();
  std::filesystem::path stage_;
  std::string moduleDir_;
  int result_ = -1;
};

// The default firmware: a 16 KiB touchpad image and a force image of 24 KiB
// less a few bytes, both with non-zero patterns.
std::string TouchpadImage();
std::string ForceImage();

}  // namespace calder::fleet
