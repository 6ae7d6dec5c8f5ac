#include "check/update_prediction.h"

#include <array>

#include "base/firmware_discovery.h"
#include "check/console_silencer.h"
#include "check/force_image_plan.h"
#include "check/log_recorder.h"
#include "check/package_machine.h"
#include "sim/protocol_violations.h"
#include "sim/simulated_laptop.h"

namespace calder::check {

namespace fs = std::filesystem;

UpdatePrediction PredictUpdate(const fs::path& packageDir) {
  UpdatePrediction prediction;
  StagedPackage package(packageDir);
  sim::SimulatedLaptop laptop;
  laptop.files = &package.machine();
  laptop.process = &package.machine();

  // A sensor that behaves runs the firmware the file's name says it is.
  std::array<uint8_t, 4> version{};
  {
    ScopedEnvironment scope(laptop.Wiring());
    const std::string forceFile = FindFirstFileInFolder(GetModuleDir() + kForceFirmwareFolder);
    if (VersionBytesOf(GetFileStem(forceFile), &version)) laptop.sensor.version = version;
  }

  {
    LogRecorder recorder;
    ConsoleSilencer silencer;
    prediction.result = laptop.RunMain({"--update"});
    prediction.log = recorder.Lines();
  }
  // What the models would refuse (a package with no force image sends an
  // empty write) is the findings' to report, not the prediction's.
  sim::TakeViolations();
  prediction.forcePhaseRan = laptop.forcePhaseMs.has_value();
  prediction.forcePhaseMs = laptop.forcePhaseMs.value_or(0);
  prediction.updateMs = laptop.clock.TotalSleptMs();
  return prediction;
}

}  // namespace calder::check
