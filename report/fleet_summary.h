#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "report/run_record.h"

namespace calder::report {

constexpr int kKinds = static_cast<int>(Kind::kCount);
constexpr int kOutcomes = static_cast<int>(Outcome::kCount);
constexpr int kCauses = static_cast<int>(Cause::kCount);
constexpr int kSteps = static_cast<int>(Step::kCount);

// Times of successful updates in 100 ms buckets up to an hour, the rest in
// the last: a percentile costs the same for ten runs or ten million.
class DurationHistogram {
 public:
  static constexpr int64_t kBucketMs = 100;
  static constexpr int kBuckets = 36000;
  void Add(int64_t ms);
  void Merge(const DurationHistogram& other);
  uint64_t count() const { return count_; }
  // The lower edge of the bucket holding the fraction's run, in ms; -1 if empty.
  int64_t Percentile(double fraction) const;
  uint64_t bucket(int i) const { return buckets_[i]; }

 private:
  std::vector<uint32_t> buckets_ = std::vector<uint32_t>(kBuckets, 0);
  uint64_t count_ = 0;
};

struct VersionStats {
  uint64_t runs = 0;
  uint64_t outcomes[kOutcomes] = {};
  uint64_t causes[kCauses] = {};
  Cause TopCause() const;
};

enum class Band { kGreen, kAmber, kRed };
enum class Confidence { kHigh, kMedium, kLow };
const char* BandName(Band band);
const char* ConfidenceName(Confidence confidence);

// part of whole in tenths of a percent, rounded half up in whole numbers (so
// 1899 of 2000 is 950, never 949.99...): every rate the report prints. -1
// without a whole.
int64_t PercentTenths(uint64_t part, uint64_t whole);

// What --gate PERCENT says of a fleet: it fails when a folder was not seen
// whole (unopenable, cut short, or a link the walk does not follow), without
// a conclusive update, with more than 1 % of the inputs unreadable, or with
// the rate below PERCENT.
enum class GateVerdict { kPass, kFoldersNotSeen, kNoEvidence, kTooManyUnreadable, kBelow };

// Counters of a fleet's runs, merged across the workers' shares. Its size
// does not grow with the number of runs.
class FleetSummary {
 public:
  static constexpr size_t kMaxVersions = 200;  // more targets are counted together
  static constexpr size_t kUnreadableExamples = 10;
  static constexpr char kNoTarget[] = "(not reached)";
  static constexpr char kOtherTargets[] = "(other)";

  void Add(const RunRecord& record, std::string_view file);
  void Merge(const FleetSummary& other);

  uint64_t runs = 0;
  uint64_t byKind[kKinds][kOutcomes] = {};
  uint64_t causes[kCauses] = {};
  std::string examples[kCauses];  // the first in name order
  DurationHistogram durations;    // successful updates, whole run
  std::map<std::string, VersionStats> versions;
  uint64_t steps[kSteps] = {};
  std::vector<std::string> unreadable;  // the first few in name order
  // Folders, paths, record files and lines of them that could not be read,
  // so no run of theirs is counted; their names are among the above.
  uint64_t inputsNotRead = 0;
  void AddInputNotRead(std::string_view path, uint64_t count = 1);
  // Of them, folders the walk could not see whole: the gate refuses them
  // whatever the proportions. The first few in name order.
  uint64_t foldersNotSeen = 0;
  std::vector<std::string> unseenFolders;
  void AddFolderNotSeen(std::string_view path);

  uint64_t KindTotal(Kind kind) const;
  uint64_t Updates(Outcome outcome) const;
  // success + failure + interrupted updates; refusals count apart.
  uint64_t Conclusive() const;
  // Success rate of the conclusive updates in percent, rounded half up to
  // the tenth that is printed: the band and the gate take this figure too.
  // -1 without any.
  double SuccessRate() const;
  Band RateBand() const;
  // Every log and input not read; of them, the logs without a readable run
  // and the inputs not read at all.
  uint64_t Inputs() const { return runs + inputsNotRead; }
  uint64_t UnreadableInputs() const;
  GateVerdict Gate(double percent) const;
  Confidence RateConfidence() const;
  uint64_t RunsWithCause() const;
  // Causes by count, most first; ties in code order.
  std::vector<Cause> RankedCauses() const;

 private:
  void KeepExample(std::string* slot, std::string_view file);
  void KeepUnreadable(std::string_view file);
  static void KeepFirst(std::vector<std::string>* names, std::string_view name);
  VersionStats& VersionSlot(const std::string& target);
};

}  // namespace calder::report
