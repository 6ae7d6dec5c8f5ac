#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "trace/trace.h"
#include "sim/trace/trace_decoder.h"

namespace calder::replay {

// Where the run left its trace: both calls decoded, with what matched last.
struct Divergence {
  std::string trace;
  int64_t call = 0;  // the expected line's seq, or one past the trace's end
  std::string expected;
  std::string actual;
  std::vector<std::string> before;  // up to ten matching calls, decoded rows
};

// A bridge call the replayed run reached sooner after the previous call's
// return than the recorded one did.
struct PacingWarning {
  std::string trace;
  int64_t call = 0;
  double recordedPauseMs = 0;
  double replayedPauseMs = 0;
  std::string decoded;
};

// Shared by the traced libraries of one replay: the first divergence turns
// every one of them into a dead device, so the run ends.
struct ReplayState {
  std::optional<Divergence> divergence;
  std::vector<PacingWarning> pacing;
  bool ranPastEnd = false;  // a call came after the end of a cut-off trace
};

// Answers a library's calls from its trace in strict order. The caller hands
// each call over as a trace line (paths as the program passed them); the
// player gives back the recorded line when the call matches it, with the
// callbacks recorded before it, and null when the call diverges or comes
// after the trace: the library then answers as a dead device.
class TracePlayer {
 public:
  // The run's paths are taken relative to programDir (where the program
  // runs from), as the recorders write them.
  TracePlayer(const Trace& trace, std::string programDir, Clock& clock, ReplayState& state);

  const TraceLine* Next(TraceLine actual, std::vector<const TraceLine*>* callbacks);
  // After the run: a recorded call it did not make is a divergence.
  void Finish();
  size_t matched() const { return matched_; }

 private:
  void Diverge(int64_t call, const std::string& expected, const TraceLine& actual);
  void CheckPacing(const TraceLine& recorded);
  std::string Decode(const TraceLine& line, bool keep);

  const Trace& trace_;
  std::string programDir_;
  Clock& clock_;
  ReplayState& state_;
  TraceDecoder decoder_;
  size_t next_ = 0;
  size_t matched_ = 0;
  bool dead_ = false;
  std::deque<std::string> history_;
  std::optional<int64_t> lastReturnUs_;  // the previous call's, as recorded
  int64_t lastReplayedUs_ = 0;
};

}  // namespace calder::replay
