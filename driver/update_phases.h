#pragma once

namespace calder {

// The phases the update sequence and the version report reach. Each is
// implemented in its own subsystem; the table lets tests of the sequence
// stand in for a phase without a device model.
struct UpdatePhases {
  bool (*biosTouchpadReset)();
  int (*touchpadUpgrade)(int argc, char** argv);
  bool (*forceUpgrade)();
  int (*versionReport)();
};

UpdatePhases& Phases();  // starts as the real phases
UpdatePhases RealPhases();

}  // namespace calder
