#pragma once

#include <cstdint>

#include "report/log_line.h"
#include "report/run_record.h"

namespace calder::report {

// Every line of calder.exe's log the report reads, by what it means.
enum Pattern : int {
  kCurrentVersion,
  kMainReturned,
  kFinish,
  kInvalidInput,
  kComFailed,
  kStartTouchpad,
  kTpInitializing,
  kTpError,
  kTpInitFailed,
  kTpNoFile,
  kTpFileEmpty,
  kTpFileShort,
  kTpUpgraded,
  kTpFailed,
  kTpUpgradeFailed,
  kTpGetChecksumFailed,
  kTpChecksumFailed,
  kTpOver,
  kStartForce,
  kForceCurrent,
  kInitDriverFail,
  kForceError,
  kOpenFail,
  kWriterStart,
  kLoadFileFailed,
  kConnectError,
  kWriteError,
  kProgress,
  kWriteFinished,
  kReadVersion,
  kTargetVersion,
  kUpgradeSuccess,
  kUpgradeFailed,
  kChecksumFailed,
  kForceCalidata,
  kForceOk,
  kForceFailed,
  kVersionCalidata,
  kTpVersion,
  kVersionError,
  kVersionErrorEmpty,
  kAnotherUpdate,
  kBatteryLow,
  kSessionEnding,
  kVersionRefused,
  kNoUpdateRefused,
  kPatternCount,
  kAnyLine = kPatternCount
};
static_assert(kPatternCount <= 64, "pattern sets are 64-bit masks");

using PatternSet = uint64_t;
constexpr PatternSet Bit(Pattern p) { return PatternSet{1} << p; }

// The patterns one line matches.
PatternSet MatchLine(const LogLine& line);
// The patterns that match a whole message, not its start: the only ones a
// line cut short can still match.
PatternSet WholeMessagePatterns();
// The text after a prefix pattern's text ("1.0.2.3" of "target force version : 1.0.2.3").
std::string_view ValueAfter(Pattern pattern, std::string_view message);

// A cause is decided by one of its lines, in the whole run or only in the
// writer's last attempt (the first two fail over to the third).
enum class Scope { kRun, kLastAttempt };
struct Decider {
  Pattern line = kAnyLine;
  Pattern after = kAnyLine;       // the line directly before it, if any
  bool quotePrevious = false;     // the line before says why
};
struct CauseRow {
  Cause cause;
  Scope scope;
  Decider deciders[4];
};

// The rows in the order in which the first match decides.
extern const CauseRow kCauseRows[];
extern const int kCauseRowCount;

// Lines that say which mode ran.
constexpr PatternSet kUpdateLines =
    Bit(kComFailed) | Bit(kStartTouchpad) | Bit(kAnotherUpdate) | Bit(kBatteryLow);
constexpr PatternSet kVersionLines =
    Bit(kVersionCalidata) | Bit(kTpVersion) | Bit(kVersionError) | Bit(kVersionErrorEmpty);
constexpr PatternSet kNoneLines = Bit(kFinish) | Bit(kInvalidInput);
// A refused run that was no update says so before its refusal, which
// decides over the update lines.
constexpr PatternSet kRefusedVersionLines = Bit(kVersionRefused);
constexpr PatternSet kRefusedNoneLines = Bit(kNoUpdateRefused);
constexpr PatternSet kRefusalLines = Bit(kAnotherUpdate) | Bit(kBatteryLow);
// An update whose failure was logged, even if its log stops before main returned.
constexpr PatternSet kUpdateVerdictLines = Bit(kComFailed) | Bit(kTpFailed) | Bit(kForceFailed);
constexpr PatternSet kVersionFailureLines = Bit(kVersionError) | Bit(kVersionErrorEmpty);

// The step an update is in from each of these lines on.
struct StepMark {
  Pattern line;
  Step step;
};
extern const StepMark kStepMarks[];
extern const int kStepMarkCount;

// A phase's time runs from its opening line to one of its closing lines.
struct PhaseSpan {
  Pattern open;
  PatternSet close;
};
constexpr PhaseSpan kTouchpadPhase{kStartTouchpad, Bit(kTpOver) | Bit(kTpFailed)};
constexpr PhaseSpan kForcePhase{kStartForce, Bit(kForceOk) | Bit(kForceFailed)};

}  // namespace calder::report
