#include "sim/trace/trace_player.h"

#include <utility>

namespace calder::replay {

namespace {

constexpr size_t kHistory = 10;
// A sleep overshoots by a timer period (15.6 ms by default on Windows) and
// more on a busy machine: a pause shorter by less than this says nothing
// about the update's pacing.
constexpr int64_t kPacingSlackUs = 100000;

bool SamePath(const std::optional<std::string>& a, const std::optional<std::string>& b) {
  return a.has_value() == b.has_value() && (!a || SamePathText(*a, *b));
}

// Why a call is not the recorded one; empty when it is. What the call hands
// the library is compared; what the library hands back is the trace's.
std::string Mismatch(const TraceLine& expected, const TraceLine& actual, TraceLibrary library) {
  if (expected.fn != actual.fn) return "another entry point";
  const TraceEntry* entry = FindTraceEntry(actual.fn, library);
  const unsigned fields = entry != nullptr ? entry->fields : 0;
  // An open's dev is what it returned, not what it was handed.
  if ((fields & kFieldDev) != 0 && actual.dev && expected.dev != actual.dev) return "another device";
  if ((fields & kFieldReportId) != 0 && expected.reportId != actual.reportId) return "another report";
  if ((fields & kFieldIn) != 0 && expected.in != actual.in) return "other bytes";
  if ((fields & kFieldLen) != 0 && expected.len != actual.len) return "another length";
  if ((fields & (kFieldPath | kFieldDevicePath)) != 0 && !SamePath(expected.path, actual.path)) {
    return (fields & kFieldPath) != 0 ? "another file" : "another device path";
  }
  if ((fields & kFieldPath) != 0 && expected.sha256 != actual.sha256) return "another file content";
  if ((fields & kFieldConfig) != 0 && expected.config != actual.config) return "another configuration";
  return "";
}

}  // namespace

TracePlayer::TracePlayer(const Trace& trace, std::string programDir, Clock& clock,
                         ReplayState& state)
    : trace_(trace),
      programDir_(std::move(programDir)),
      clock_(clock),
      state_(state),
      decoder_(trace.library) {}

std::string TracePlayer::Decode(const TraceLine& line, bool keep) {
  if (keep) return decoder_.Decode(line);
  TraceDecoder scratch = decoder_;
  return scratch.Decode(line);
}

const TraceLine* TracePlayer::Next(TraceLine actual, std::vector<const TraceLine*>* callbacks) {
  if (dead_ || state_.divergence) return nullptr;
  if (actual.path) actual.path = PathUnder(*actual.path, programDir_);
  size_t at = next_;
  while (at < trace_.lines.size() && !trace_.lines[at].isCall()) ++at;
  if (at == trace_.lines.size()) {
    dead_ = true;
    if (!trace_.Complete()) {
      state_.ranPastEnd = true;
      return nullptr;
    }
    const int64_t past = trace_.lines.empty() ? 1 : trace_.lines.back().seq + 1;
    Diverge(past, "(the recorded run made no further call)", actual);
    return nullptr;
  }
  TraceLine expected = trace_.lines[at];

  const std::string why = Mismatch(expected, actual, trace_.library);
  if (!why.empty()) {
    Diverge(expected.seq, Decode(expected, false) + "  [" + why + "]", actual);
    return nullptr;
  }
  for (size_t i = next_; i < at; ++i) {
    callbacks->push_back(&trace_.lines[i]);
    history_.push_back(DecodedRow(trace_.lines[i], Decode(trace_.lines[i], true)));
  }
  CheckPacing(trace_.lines[at]);
  history_.push_back(DecodedRow(expected, Decode(expected, true)));
  while (history_.size() > kHistory) history_.pop_front();
  next_ = at + 1;
  ++matched_;
  return &trace_.lines[at];
}

// The program's own pause, from the previous call's return to this call's
// entry, against the replayed run's, which is what the update sleeps: a traced
// library answers at once, so its return is its entry.
void TracePlayer::CheckPacing(const TraceLine& recorded) {
  const int64_t nowUs = static_cast<int64_t>(clock_.NowMs()) * 1000;
  if (trace_.library == TraceLibrary::kBridge && lastReturnUs_) {
    const int64_t recordedPause = recorded.tUs - *lastReturnUs_;
    const int64_t replayedPause = nowUs - lastReplayedUs_;
    if (replayedPause < recordedPause - kPacingSlackUs) {
      state_.pacing.push_back({trace_.name, recorded.seq, recordedPause / 1000.0, replayedPause / 1000.0,
                               Decode(recorded, false)});
    }
  }
  lastReturnUs_ = recorded.retUs.value_or(recorded.tUs);
  lastReplayedUs_ = nowUs;
}

void TracePlayer::Diverge(int64_t call, const std::string& expected, const TraceLine& actual) {
  dead_ = true;
  TraceLine shown = actual;
  shown.seq = call;
  state_.divergence = Divergence{trace_.name, call, expected, Decode(shown, false),
                                 std::vector<std::string>(history_.begin(), history_.end())};
}

void TracePlayer::Finish() {
  if (dead_ || state_.divergence) return;
  for (size_t at = next_; at < trace_.lines.size(); ++at) {
    if (!trace_.lines[at].isCall()) continue;
    TraceLine expected = trace_.lines[at];
  
    dead_ = true;
    state_.divergence = Divergence{trace_.name, expected.seq, Decode(expected, false) + "  [missing call]",
                                   "(none: the run made no further call)",
                                   std::vector<std::string>(history_.begin(), history_.end())};
    return;
  }
}

}  // namespace calder::replay
