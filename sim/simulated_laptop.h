#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "driver/update_phases.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "sim/behaving_bios.h"
#include "sim/force_sensor.h"
#include "sim/touch_device.h"
#include "sim/touchpad_controller.h"

namespace calder::sim {

// One laptop for runs of the update's core: the virtual clock, the force
// sensor behind the bridge, the touchpad controller behind the upgrade
// library, the touch HID device and a BIOS that takes the reset. Faults are
// set on the public models; a library or the HID host is answered by
// something else (a trace) by pointing `bridge`, `upgrade` or `hid` at it,
// and a library left out with null.
// The rest of the machine (firmware folders and module path, COM, the
// progress window) is the caller's and stays null unless given.
class SimulatedLaptop {
 public:
  SimulatedLaptop();
  // Devices and pauses on another clock: the benches' real one.
  explicit SimulatedLaptop(Clock& pace);
  SimulatedLaptop(const SimulatedLaptop&) = delete;
  SimulatedLaptop& operator=(const SimulatedLaptop&) = delete;

  VirtualClock clock;
  Clock& pace;  // the clock the devices and the core use: `clock` unless given
  ForceSensor sensor;
  TouchpadController touchpad;
  TouchDevice touch;
  BehavingBios bios;

  BridgeLibrary* bridge = &sensor;
  UpgradeLibrary* upgrade = &touchpad;
  HidHost* hid = &touch;
  FileSystem* files = nullptr;
  ProcessInfo* process = nullptr;
  ComRuntime* com = nullptr;
  ProgressPoster* progress = nullptr;

  // The seams as the core reaches them, for a caller that installs them
  // itself around a single phase.
  Environment Wiring();

  // calder::main with these arguments after the program name, on this
  // laptop; `phases` stands in for the driver's phase table during the run.
  int RunMain(const std::vector<std::string>& args);
  int RunMain(const std::vector<std::string>& args, const UpdatePhases& phases);

  // Pauses the force phase took on the virtual clock in the last run, when
  // it ran.
  std::optional<uint64_t> forcePhaseMs;
};

}  // namespace calder::sim
