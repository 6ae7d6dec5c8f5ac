#include "check/update_prediction.h"

#include <array>
#include <random>
#include <system_error>

#include "base/firmware_discovery.h"
#include "check/behaving_bios.h"
#include "check/console_silencer.h"
#include "check/force_image_plan.h"
#include "check/log_recorder.h"
#include "check/package_machine.h"
#include "driver/calder.h"
#include "driver/update_phases.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "sim/force_sensor.h"
#include "sim/protocol_violations.h"
#include "sim/touch_device.h"
#include "sim/touchpad_controller.h"

namespace calder::check {

namespace fs = std::filesystem;

namespace {

const char* const kFirmwareFolders[] = {kTouchpadFirmwareFolder, kForceFirmwareFolder};

// The program builds its paths with "\". Where that is not the separator,
// the firmware files are linked under the names the program will open:
// "<stage>/pkg\TP\<name>" is then one file in <stage>.
class ProgramView {
 public:
  explicit ProgramView(const fs::path& packageDir) {
    const fs::path real = fs::absolute(packageDir).lexically_normal();
    if (fs::path::preferred_separator == '\\') {
      moduleDir_ = (real / "").parent_path().string();
      return;
    }
    std::random_device random;
    std::error_code error;
    do {
      stage_ = fs::temp_directory_path() / ("calder-check-" + std::to_string(random()));
    } while (!fs::create_directory(stage_, error) && !error);
    moduleDir_ = (stage_ / "pkg").string();
    PackageMachine machine(real, moduleDir_);
    for (const char* folder : kFirmwareFolders) {
      for (const std::string& name : machine.RegularFiles(folder)) {
        const std::string programPath = moduleDir_ + folder + "\\" + name;
        fs::create_symlink(machine.RealPath(programPath), programPath, error);
      }
    }
  }
  ~ProgramView() {
    std::error_code ignored;
    if (!stage_.empty()) fs::remove_all(stage_, ignored);
  }
  ProgramView(const ProgramView&) = delete;
  ProgramView& operator=(const ProgramView&) = delete;

  const std::string& moduleDir() const { return moduleDir_; }

 private:
  fs::path stage_;
  std::string moduleDir_;
};

// The force phase as the sequence calls it, timed on the virtual clock.
VirtualClock* g_clock = nullptr;
UpdatePrediction* g_prediction = nullptr;

bool TimedForcePhase() {
  const uint64_t before = g_clock->TotalSleptMs();
  const bool result = RealPhases().forceUpgrade();
  g_prediction->forcePhaseRan = true;
  g_prediction->forcePhaseMs = g_clock->TotalSleptMs() - before;
  return result;
}

}  // namespace

UpdatePrediction PredictUpdate(const fs::path& packageDir) {
  UpdatePrediction prediction;
  ProgramView view(packageDir);
  PackageMachine machine(fs::absolute(packageDir).lexically_normal(), view.moduleDir());
  VirtualClock clock;
  sim::ForceSensor sensor(clock);
  sim::TouchpadController touchpad;
  sim::TouchDevice touch(clock);
  BehavingBios bios;
  Environment env;
  env.clock = &clock;
  env.files = &machine;
  env.process = &machine;
  env.bridge = &sensor;
  env.upgrade = &touchpad;
  env.hid = &touch;
  env.wmi = &bios;
  ScopedEnvironment scope(env);

  // A sensor that behaves runs the firmware the file's name says it is.
  const std::string forceFile = FindFirstFileInFolder(GetModuleDir() + kForceFirmwareFolder);
  std::array<uint8_t, 4> version{};
  if (VersionBytesOf(GetFileStem(forceFile), &version)) sensor.version = version;

  const UpdatePhases saved = Phases();
  Phases().forceUpgrade = &TimedForcePhase;
  g_clock = &clock;
  g_prediction = &prediction;
  {
    LogRecorder recorder;
    ConsoleSilencer silencer;
    std::string program = "calder.exe";
    std::string command = "--update";
    char* argv[] = {&program[0], &command[0], nullptr};
    prediction.result = calder::main(2, argv);
    prediction.log = recorder.Lines();
  }
  Phases() = saved;
  // What the models would refuse (a package with no force image sends an
  // empty write) is the findings' to report, not the prediction's.
  sim::TakeViolations();
  prediction.updateMs = clock.TotalSleptMs();
  return prediction;
}

}  // namespace calder::check
