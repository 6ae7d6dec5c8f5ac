#include "sim/trace/trace_emulation.h"

#include <algorithm>

#include "trace/trace_reader.h"

namespace calder::replay {

TraceEmulation::TraceEmulation(TraceLibrary library, const std::string& tracePath,
                               const std::string& programDir) {
  std::string error;
  read_ = ReadTraceFile(tracePath, &trace_, &error);
  if (read_ && trace_.library != library) {
    error = tracePath + " is a trace of " + LibraryFile(trace_.library) + ", not of " + LibraryFile(library);
    read_ = false;
  } else if (read_ && trace_.Refusal() != nullptr) {
    error = tracePath + " holds no call: the recorder refused " + *trace_.Refusal()->refused + ": " +
            trace_.Refusal()->why;
    read_ = false;
  }
  if (!read_) {
    problems_.push_back("cannot answer from the trace: " + error);
    // Nothing to answer from: every call runs past the end of an empty, cut-off trace.
    trace_ = Trace{};
    trace_.library = library;
    trace_.cut = true;
  }
  if (library == TraceLibrary::kBridge) {
    bridge_ = std::make_unique<TracedBridge>(trace_, programDir, clock_, state_);
    player_ = &bridge_->player;
  } else {
    upgrade_ = std::make_unique<TracedUpgrade>(trace_, programDir, clock_, state_);
    player_ = &upgrade_->player;
  }
}

void TraceEmulation::Finish() { player_->Finish(); }

std::vector<std::string> TraceEmulation::TakeProblems() {
  if (state_.divergence && !divergenceTold_) {
    divergenceTold_ = true;
    const Divergence& d = *state_.divergence;
    std::string text = "divergence at call " + std::to_string(d.call) + ": " + d.trace + ": expected " +
                       d.expected + "; actual " + d.actual;
    if (!d.before.empty()) {
      const std::string& last = d.before.back();
      text += "; last matching call " + last.substr(std::min(last.find_first_not_of(' '), last.size()));
    }
    problems_.push_back(text);
  }
  if (state_.ranPastEnd && read_ && !endTold_) {
    endTold_ = true;
    problems_.push_back(trace_.name + " ends before the run does: the run's call " +
                        std::to_string(player_->matched() + 1) + " came after the last recorded one (a cut-off recording)");
  }
  std::vector<std::string> taken;
  taken.swap(problems_);
  return taken;
}

}  // namespace calder::replay
