#pragma once

#include <string>
#include <string_view>

#include "report/log_line.h"
#include "report/log_rules.h"
#include "report/run_record.h"

namespace calder::report {

// Reads one run's log a line at a time and keeps only what decides its
// record, so a log of any length costs the same.
class RunClassifier {
 public:
  void Reset();
  // Each line of the file, without its line end; junk is skipped. Of a line
  // that is not whole only a complete message counts: "main returned: 0" cut
  // to "main returned: " says nothing.
  void Feed(std::string_view text, bool whole = true);
  RunRecord Finish() const;

 private:
  void Take(const LogLine& line, PatternSet set);
  bool mainReturned_ = false;
  Kind DecideKind() const;
  Outcome DecideOutcome(Kind kind) const;
  Cause DecideCause(Kind kind, Outcome outcome, std::optional<std::string>* evidence) const;

  struct RowState {
    bool matched = false;
    std::string evidence;
  };

  PatternSet seen_ = 0;
  PatternSet previous_ = 0;
  std::string previousMessage_;  // kept only when a row may quote it
  RowState rows_[static_cast<int>(Cause::kCount)];
  char started_[24] = {};
  int64_t first_ = kNoTime;
  int64_t last_ = kNoTime;
  int64_t touchpadOpen_ = kNoTime;
  int64_t touchpadMs_ = kNoTime;
  int64_t forceOpen_ = kNoTime;
  int64_t forceMs_ = kNoTime;
  int mainResult_ = 0;
  bool checksumFailed_ = false;
  RunRecord force_;  // the force fields as they come
  Step step_ = Step::kStart;
  int writePercent_ = -1;
};

}  // namespace calder::report
