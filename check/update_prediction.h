#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace calder::check {

// What `calder.exe --update` does with a package on devices that behave.
struct UpdatePrediction {
  int result = 1;
  bool forcePhaseRan = false;
  uint64_t forcePhaseMs = 0;  // pauses of the force phase
  uint64_t updateMs = 0;      // pauses of the whole update
  std::vector<std::string> log;
};

// Runs the program's driver with "--update" against the device models, the
// package's own firmware files and a virtual clock.
UpdatePrediction PredictUpdate(const std::filesystem::path& packageDir);

}  // namespace calder::check
