#pragma once

#include <functional>

namespace calder {

// The phases the update sequence and the version report reach. Each is
// implemented in its own subsystem; the table lets tests of the sequence and
// the simulated laptop stand in for a phase, or wrap it, without a device
// model.
struct UpdatePhases {
  std::function<bool()> biosTouchpadReset;
  std::function<int(int argc, char** argv)> touchpadUpgrade;
  std::function<bool()> forceUpgrade;
  std::function<int()> versionReport;
};

UpdatePhases& Phases();  // starts as the real phases
UpdatePhases RealPhases();

}  // namespace calder
