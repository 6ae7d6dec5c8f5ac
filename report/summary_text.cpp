#include "report/summary_text.h"

#include <cstdarg>
#include <cstdio>

#include "base/tool_version.h"

namespace calder::report {

namespace {

void Line(std::string* out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void Line(std::string* out, const char* format, ...) {
  char text[512];
  va_list args;
  va_list again;
  va_start(args, format);
  va_copy(again, args);
  const int length = std::vsnprintf(text, sizeof text, format, args);
  if (length >= static_cast<int>(sizeof text)) {
    std::string long_line(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(&long_line[0], long_line.size(), format, again);
    out->append(long_line.c_str());
  } else if (length > 0) {
    out->append(text);
  }
  va_end(again);
  va_end(args);
  out->push_back('\n');
}

const Outcome kShownOutcomes[] = {Outcome::kSuccess, Outcome::kFailure, Outcome::kInterrupted,
                                  Outcome::kRefused};

}  // namespace

std::string Percent(uint64_t part, uint64_t whole) {
  const int64_t tenths = PercentTenths(part, whole);
  if (tenths < 0) return "n/a";
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

std::string RateText(const FleetSummary& summary) {
  return Percent(summary.Updates(Outcome::kSuccess), summary.Conclusive());
}

std::string ControlsEscaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
    size_t length = byte < 0x20 || byte == 0x7F ? 1 : byte == 0xC2 && next >= 0x80 && next <= 0x9F ? 2 : 0;
    if (length == 0) out.push_back(text[i++]);
    for (; length > 0; --length) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(text[i++]));
      out += escape;
    }
  }
  return out;
}

std::string SecondsText(int64_t ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%lld.%lld", static_cast<long long>(ms / 1000),
                static_cast<long long>(ms % 1000 / 100));
  return text;
}

std::string VersionRate(const VersionStats& v) {
  const uint64_t success = v.outcomes[static_cast<int>(Outcome::kSuccess)];
  return Percent(success, success + v.outcomes[static_cast<int>(Outcome::kFailure)] +
                              v.outcomes[static_cast<int>(Outcome::kInterrupted)]);
}

std::string SummaryText(const FleetSummary& s) {
  std::string out;
  Line(&out, "calder-report %s: %llu runs", kToolVersion, static_cast<unsigned long long>(s.runs));
  Line(&out, "runs by kind and outcome");
  for (int k = 0; k < kKinds; ++k) {
    const uint64_t total = s.KindTotal(static_cast<Kind>(k));
    if (total == 0) continue;
    std::string row;
    for (Outcome o : kShownOutcomes) {
      const uint64_t n = s.byKind[k][static_cast<int>(o)];
      if (n > 0) row += "   " + std::string(OutcomeCode(o)) + " " + std::to_string(n);
    }
    Line(&out, "  %-11s %8llu%s", KindCode(static_cast<Kind>(k)), static_cast<unsigned long long>(total),
         row.c_str());
  }
  const uint64_t conclusive = s.Conclusive();
  if (conclusive == 0) {
    Line(&out, "success rate   n/a: no conclusive update");
  } else {
    Line(&out, "success rate   %s %% of %llu conclusive updates: %s, confidence %s",
         RateText(s).c_str(),
         static_cast<unsigned long long>(conclusive), BandName(s.RateBand()),
         ConfidenceName(s.RateConfidence()));
  }
  Line(&out, "refused        %llu (try again later)",
       static_cast<unsigned long long>(s.Updates(Outcome::kRefused)));

  const std::vector<Cause> ranked = s.RankedCauses();
  if (!ranked.empty()) Line(&out, "causes");
  for (Cause c : ranked) {
    const int i = static_cast<int>(c);
    Line(&out, "  %-17s %8llu %6s %%   %s", CauseCode(c), static_cast<unsigned long long>(s.causes[i]),
         Percent(s.causes[i], s.RunsWithCause()).c_str(), ControlsEscaped(s.examples[i]).c_str());
  }

  if (s.durations.count() > 0) {
    Line(&out, "durations of successful updates: median %s s, 95th percentile %s s",
         SecondsText(s.durations.Percentile(0.5)).c_str(),
         SecondsText(s.durations.Percentile(0.95)).c_str());
  }
  if (!s.versions.empty()) Line(&out, "per target force version");
  for (const auto& [target, v] : s.versions) {
    const Cause top = v.TopCause();
    Line(&out, "  %-17s runs %8llu   success %6s %%   top cause %s", ControlsEscaped(target).c_str(),
         static_cast<unsigned long long>(v.runs), VersionRate(v).c_str(),
         top == Cause::kNone ? "-" : CauseCode(top));
  }
  bool anyStep = false;
  for (int st = 1; st < kSteps; ++st) {
    if (s.steps[st] == 0) continue;
    if (!anyStep) Line(&out, "interrupted updates by last step");
    anyStep = true;
    Line(&out, "  %-17s %8llu", StepCode(static_cast<Step>(st)), static_cast<unsigned long long>(s.steps[st]));
  }
  if (s.inputsNotRead > 0) {
    Line(&out, "not read       %llu inputs: folders, files or record lines",
         static_cast<unsigned long long>(s.inputsNotRead));
  }
  if (!s.unreadable.empty()) Line(&out, "unreadable (the first in name order)");
  for (const std::string& file : s.unreadable) Line(&out, "  %s", ControlsEscaped(file).c_str());
  return out;
}

}  // namespace calder::report
