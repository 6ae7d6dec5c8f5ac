#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "sim/trace/traced_libraries.h"

namespace calder::replay {

// One vendor library answered from a recorded trace inside the real program
// (the stand-in DLLs): the strict order and matching of calder-replay. Every
// way the run leaves its trace is reported once, as a protocol violation, and
// the library answers as a dead device from then on, so the run ends.
class TraceEmulation {
 public:
  // Recorded paths are compared relative to the trace's folder, the
  // program's relative to programDir. A trace that cannot be read, or that
  // recorded the other library, answers as a dead device from the first call.
  TraceEmulation(TraceLibrary library, const std::string& tracePath, const std::string& programDir);

  BridgeLibrary& bridge() { return *bridge_; }
  UpgradeLibrary& upgrade() { return *upgrade_; }

  // The run is over: a recorded call it did not make is a divergence.
  void Finish();
  // What went wrong since the last take, one line each.
  std::vector<std::string> TakeProblems();

 private:
  Trace trace_;
  SteadyClock clock_;
  ReplayState state_;
  std::unique_ptr<TracedBridge> bridge_;
  std::unique_ptr<TracedUpgrade> upgrade_;
  TracePlayer* player_ = nullptr;
  std::vector<std::string> problems_;
  bool read_ = false;
  bool divergenceTold_ = false;
  bool endTold_ = false;
};

}  // namespace calder::replay
