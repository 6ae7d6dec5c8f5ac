#include "report/fleet_summary.h"

#include <algorithm>
#include <cmath>

namespace calder::report {

void DurationHistogram::Add(int64_t ms) {
  if (ms < 0) return;
  const int64_t index = std::min<int64_t>(ms / kBucketMs, kBuckets - 1);
  ++buckets_[static_cast<size_t>(index)];
  ++count_;
}

void DurationHistogram::Merge(const DurationHistogram& other) {
  for (int i = 0; i < kBuckets; ++i) buckets_[i] += other.buckets_[i];
  count_ += other.count_;
}

int64_t DurationHistogram::Percentile(double fraction) const {
  if (count_ == 0) return -1;
  const uint64_t rank = std::max<uint64_t>(1, static_cast<uint64_t>(std::ceil(fraction * count_)));
  uint64_t seen = 0;
  for (int i = 0; i < kBuckets; ++i) {
    seen += buckets_[i];
    if (seen >= rank) return i * kBucketMs;
  }
  return (kBuckets - 1) * kBucketMs;
}

Cause VersionStats::TopCause() const {
  Cause top = Cause::kNone;
  for (int c = 1; c < kCauses; ++c) {
    if (causes[c] > 0 && (top == Cause::kNone || causes[c] > causes[static_cast<int>(top)])) {
      top = static_cast<Cause>(c);
    }
  }
  return top;
}

const char* BandName(Band band) {
  return band == Band::kGreen ? "green" : band == Band::kAmber ? "amber" : "red";
}

const char* ConfidenceName(Confidence confidence) {
  return confidence == Confidence::kHigh ? "high" : confidence == Confidence::kMedium ? "medium" : "low";
}

void FleetSummary::KeepExample(std::string* slot, std::string_view file) {
  if (slot->empty() || file < *slot) slot->assign(file.data(), file.size());
}

VersionStats& FleetSummary::VersionSlot(const std::string& target) {
  auto found = versions.find(target);
  if (found != versions.end()) return found->second;
  if (versions.size() >= kMaxVersions) return versions[kOtherTargets];
  return versions[target];
}

void FleetSummary::Add(const RunRecord& r, std::string_view file) {
  ++runs;
  ++byKind[static_cast<int>(r.kind)][static_cast<int>(r.outcome)];
  if (r.cause != Cause::kNone) {
    ++causes[static_cast<int>(r.cause)];
    KeepExample(&examples[static_cast<int>(r.cause)], file);
  }
  if (r.kind == Kind::kUnreadable) KeepUnreadable(file);
  if (r.kind != Kind::kUpdate) return;
  if (r.outcome == Outcome::kSuccess) durations.Add(r.totalMs);
  if (r.outcome == Outcome::kInterrupted) ++steps[static_cast<int>(r.lastStep)];
  VersionStats& v = VersionSlot(r.forceTarget ? *r.forceTarget : kNoTarget);
  ++v.runs;
  ++v.outcomes[static_cast<int>(r.outcome)];
  ++v.causes[static_cast<int>(r.cause)];
}

void FleetSummary::AddInputNotRead(std::string_view path, uint64_t count) {
  inputsNotRead += count;
  KeepUnreadable(path);
}

void FleetSummary::AddFolderNotSeen(std::string_view path) {
  AddInputNotRead(path);
  ++foldersNotSeen;
  KeepFirst(&unseenFolders, path);
}

void FleetSummary::KeepUnreadable(std::string_view file) { KeepFirst(&unreadable, file); }

void FleetSummary::KeepFirst(std::vector<std::string>* names, std::string_view file) {
  std::string name(file);
  auto at = std::lower_bound(names->begin(), names->end(), name);
  if (at == names->end() || *at != name) names->insert(at, name);
  if (names->size() > kUnreadableExamples) names->pop_back();
}

void FleetSummary::Merge(const FleetSummary& o) {
  runs += o.runs;
  inputsNotRead += o.inputsNotRead;
  for (int k = 0; k < kKinds; ++k) {
    for (int x = 0; x < kOutcomes; ++x) byKind[k][x] += o.byKind[k][x];
  }
  for (int c = 0; c < kCauses; ++c) {
    causes[c] += o.causes[c];
    if (!o.examples[c].empty()) KeepExample(&examples[c], o.examples[c]);
  }
  durations.Merge(o.durations);
  for (const auto& [target, theirs] : o.versions) {
    VersionStats& v = VersionSlot(target);
    v.runs += theirs.runs;
    for (int x = 0; x < kOutcomes; ++x) v.outcomes[x] += theirs.outcomes[x];
    for (int c = 0; c < kCauses; ++c) v.causes[c] += theirs.causes[c];
  }
  for (int s = 0; s < kSteps; ++s) steps[s] += o.steps[s];
  for (const std::string& name : o.unreadable) KeepUnreadable(name);
  foldersNotSeen += o.foldersNotSeen;
  for (const std::string& name : o.unseenFolders) KeepFirst(&unseenFolders, name);
}

uint64_t FleetSummary::KindTotal(Kind kind) const {
  uint64_t total = 0;
  for (int x = 0; x < kOutcomes; ++x) total += byKind[static_cast<int>(kind)][x];
  return total;
}

uint64_t FleetSummary::Updates(Outcome outcome) const {
  return byKind[static_cast<int>(Kind::kUpdate)][static_cast<int>(outcome)];
}

uint64_t FleetSummary::Conclusive() const {
  return Updates(Outcome::kSuccess) + Updates(Outcome::kFailure) + Updates(Outcome::kInterrupted);
}

int64_t PercentTenths(uint64_t part, uint64_t whole) {
  if (whole == 0) return -1;
  return static_cast<int64_t>((2000 * part + whole) / (2 * whole));
}

double FleetSummary::SuccessRate() const {
  const int64_t tenths = PercentTenths(Updates(Outcome::kSuccess), Conclusive());
  return tenths < 0 ? -1.0 : static_cast<double>(tenths) / 10.0;
}

Band FleetSummary::RateBand() const {
  const double rate = SuccessRate();
  return rate >= 95.0 ? Band::kGreen : rate >= 80.0 ? Band::kAmber : Band::kRed;
}

uint64_t FleetSummary::UnreadableInputs() const { return KindTotal(Kind::kUnreadable) + inputsNotRead; }

GateVerdict FleetSummary::Gate(double percent) const {
  if (foldersNotSeen > 0) return GateVerdict::kFoldersNotSeen;
  if (Conclusive() == 0) return GateVerdict::kNoEvidence;
  if (UnreadableInputs() * 100 > Inputs()) return GateVerdict::kTooManyUnreadable;
  return SuccessRate() < percent ? GateVerdict::kBelow : GateVerdict::kPass;
}

Confidence FleetSummary::RateConfidence() const {
  const uint64_t conclusive = Conclusive();
  return conclusive >= 1000 ? Confidence::kHigh : conclusive >= 100 ? Confidence::kMedium : Confidence::kLow;
}

uint64_t FleetSummary::RunsWithCause() const {
  uint64_t total = 0;
  for (int c = 1; c < kCauses; ++c) total += causes[c];
  return total;
}

std::vector<Cause> FleetSummary::RankedCauses() const {
  std::vector<Cause> ranked;
  for (int c = 1; c < kCauses; ++c) {
    if (causes[c] > 0) ranked.push_back(static_cast<Cause>(c));
  }
  std::stable_sort(ranked.begin(), ranked.end(), [&](Cause a, Cause b) {
    return causes[static_cast<int>(a)] > causes[static_cast<int>(b)];
  });
  return ranked;
}

}  // namespace calder::report
