#include "report/run_classifier.h"

#include <charconv>

#include "base/log_lines.h"

namespace calder::report {

namespace {

constexpr PatternSet kQuotedLines = Bit(kTpError);

bool ParseInt(std::string_view text, int* value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
  return error == std::errc() && end == text.data() + text.size();
}

// The time from an opening to a closing line, if both came in order.
int64_t Span(int64_t open, int64_t close) {
  if (open == kNoTime || close == kNoTime || close < open || close - open > kLongestRunMs) return kNoTime;
  return close - open;
}

}  // namespace

void RunClassifier::Reset() { *this = RunClassifier(); }

void RunClassifier::Feed(std::string_view text, bool whole) {
  LogLine line;
  if (!ParseLogLine(text, &line)) return;
  const PatternSet set = MatchLine(line);
  Take(line, whole ? set : set & WholeMessagePatterns());
}

void RunClassifier::Take(const LogLine& line, PatternSet set) {
  if (first_ == kNoTime) {
    first_ = line.millis;
    IsoStamp(line.stamp, started_);
  }
  last_ = line.millis;
  if (set == 0) {  // most lines decide nothing
    previous_ = 0;
    previousMessage_.clear();
    return;
  }
  seen_ |= set;

  if (set & Bit(kWriterStart)) {
    ++force_.forceAttempts;
    writePercent_ = -1;
    for (int r = 0; r < kCauseRowCount; ++r) {
      if (kCauseRows[r].scope == Scope::kLastAttempt) rows_[r] = RowState();
    }
  }
  for (int r = 0; r < kCauseRowCount; ++r) {
    RowState& row = rows_[r];
    if (row.matched) continue;
    for (const Decider& d : kCauseRows[r].deciders) {
      if (d.line == kAnyLine || !(set & Bit(d.line))) continue;
      if (d.after != kAnyLine && !(previous_ & Bit(d.after))) continue;
      row.matched = true;
      row.evidence = d.quotePrevious ? previousMessage_ : std::string(line.message);
      break;
    }
  }
  for (int s = 0; s < kStepMarkCount; ++s) {
    if (set & Bit(kStepMarks[s].line)) step_ = kStepMarks[s].step;
  }

  if (set & Bit(kTouchpadPhase.open)) touchpadOpen_ = line.millis;
  if (set & kTouchpadPhase.close) touchpadMs_ = Span(touchpadOpen_, line.millis);
  if (set & Bit(kForcePhase.open)) forceOpen_ = line.millis;
  if (set & kForcePhase.close) forceMs_ = Span(forceOpen_, line.millis);

  if (set & Bit(kMainReturned)) mainReturned_ = ParseInt(ValueAfter(kMainReturned, line.message), &mainResult_);
  if (set & Bit(kProgress) && !ParseInt(ValueAfter(kProgress, line.message), &writePercent_)) writePercent_ = -1;
  if (set & Bit(kForceCurrent)) {
    const std::string_view before = ValueAfter(kForceCurrent, line.message);
    force_.forceBefore = before.empty() ? std::optional<std::string>() : std::string(before);
  }
  if (set & Bit(kTargetVersion)) force_.forceTarget = std::string(ValueAfter(kTargetVersion, line.message));
  if (set & Bit(kReadVersion)) force_.forceAfter = std::string(ValueAfter(kReadVersion, line.message));
  if (set & Bit(kChecksumFailed)) checksumFailed_ = true;
  // A failed calibration read logs its text at ERROR first.
  if (set & Bit(kForceCalidata)) {
    force_.calibrationRescue = checksumFailed_ && !(previous_ & Bit(kForceError));
  }

  previous_ = set;
  if (set & kQuotedLines) {
    previousMessage_.assign(line.message.data(), line.message.size());
  } else {
    previousMessage_.clear();
  }
}

Kind RunClassifier::DecideKind() const {
  if (!(seen_ & Bit(kCurrentVersion))) return Kind::kUnreadable;
  if (seen_ & kRefusedVersionLines) return Kind::kVersion;
  if (seen_ & kRefusedNoneLines) return Kind::kNone;
  if (seen_ & kUpdateLines) return Kind::kUpdate;
  if (seen_ & kVersionLines) return Kind::kVersion;
  if (seen_ & kNoneLines) return Kind::kNone;
  // Cut off before any line shows the mode: counted as an update that stopped
  // at its start, the reading that keeps a rollout gate on the safe side.
  return Kind::kUpdate;
}

Outcome RunClassifier::DecideOutcome(Kind kind) const {
  switch (kind) {
    case Kind::kUpdate:
      if (seen_ & kRefusalLines) return Outcome::kRefused;
      // The session ended under the update: whatever main still logged, the
      // process was ended with it.
      if (!mainReturned_ || (seen_ & Bit(kSessionEnding))) return Outcome::kInterrupted;
      return mainResult_ == 0 ? Outcome::kSuccess : Outcome::kFailure;
    case Kind::kVersion:
      if (seen_ & kRefusalLines) return Outcome::kRefused;
      if (seen_ & Bit(kTpVersion)) return Outcome::kSuccess;
      if (seen_ & kVersionFailureLines) return Outcome::kFailure;
      return Outcome::kInterrupted;
    default:
      return Outcome::kNone;
  }
}

Cause RunClassifier::DecideCause(Kind kind, Outcome outcome, std::optional<std::string>* evidence) const {
  if (outcome == Outcome::kNone || outcome == Outcome::kSuccess) return Cause::kNone;
  // A log that stops before any failure was logged was cut off; one that
  // stops after the failure line still tells why.
  const bool failureLogged = outcome != Outcome::kInterrupted ||
                             (kind == Kind::kUpdate && (seen_ & kUpdateVerdictLines));
  if (failureLogged) {
    for (int r = 0; r < kCauseRowCount; ++r) {
      if (!rows_[r].matched) continue;
      *evidence = rows_[r].evidence;
      return kCauseRows[r].cause;
    }
  }
  if (outcome == Outcome::kInterrupted) {
    if (seen_ & Bit(kSessionEnding)) *evidence = std::string(log_lines::shutdown_guard_cpp::kSessionEnding);
    return Cause::kInterrupted;
  }
  return Cause::kUnknown;
}

RunRecord RunClassifier::Finish() const {
  RunRecord record = force_;
  record.kind = DecideKind();
  if (record.kind == Kind::kUnreadable) {
    record.evidence = std::string("no \"") + log_lines::calder_cpp::kCurrentVersion + "\" line";
    return record;
  }
  record.outcome = DecideOutcome(record.kind);
  record.cause = DecideCause(record.kind, record.outcome, &record.evidence);
  if (first_ != kNoTime) {
    record.started = std::string(started_);
    record.totalMs = Span(first_, last_);
  }
  record.touchpadMs = touchpadMs_;
  record.forceMs = forceMs_;
  if (record.kind == Kind::kUpdate && record.outcome == Outcome::kInterrupted) {
    record.lastStep = step_;
    record.writePercent = writePercent_;
  }
  return record;
}

}  // namespace calder::report
