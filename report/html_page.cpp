#include "report/html_page.h"

#include <algorithm>
#include <cstdio>

#include "base/tool_version.h"
#include "report/summary_text.h"
#include "report/text_escape.h"

namespace calder::report {

namespace {

const char* BandColour(Band band) {
  return band == Band::kGreen ? "#2e7d32" : band == Band::kAmber ? "#e69b00" : "#c62828";
}

std::string Esc(const std::string& text) {
  std::string out;
  AppendHtmlText(text, &out);
  return out;
}

std::string Num(uint64_t n) { return std::to_string(n); }

struct Bar {
  std::string label;
  uint64_t value;
  std::string note;  // after the count
  const char* colour;
};

// Horizontal bars with their label and count, scaled to the largest.
std::string BarChart(const std::vector<Bar>& bars) {
  if (bars.empty()) return "<p class=\"none\">none</p>\n";
  uint64_t largest = 1;
  for (const Bar& b : bars) largest = std::max(largest, b.value);
  const int rowHeight = 26;
  const int labelWidth = 170;
  const int barSpace = 420;
  std::string svg = "<svg width=\"760\" height=\"" +
                    std::to_string(rowHeight * static_cast<int>(bars.size()) + 6) +
                    "\" role=\"img\">\n";
  int y = 4;
  for (const Bar& b : bars) {
    const int width = std::max<int>(b.value > 0 ? 2 : 0, static_cast<int>(barSpace * b.value / largest));
    svg += "<text x=\"0\" y=\"" + std::to_string(y + 16) + "\">" + Esc(b.label) + "</text>";
    svg += "<rect x=\"" + std::to_string(labelWidth) + "\" y=\"" + std::to_string(y + 3) + "\" width=\"" +
           std::to_string(width) + "\" height=\"18\" fill=\"" + b.colour + "\"/>";
    svg += "<text x=\"" + std::to_string(labelWidth + width + 6) + "\" y=\"" + std::to_string(y + 16) +
           "\">" + Num(b.value) + Esc(b.note) + "</text>\n";
    y += rowHeight;
  }
  return svg + "</svg>\n";
}

// Successful runs' durations in up to 30 columns over the range they span.
std::string DurationChart(const DurationHistogram& h) {
  if (h.count() == 0) return "<p class=\"none\">no successful update</p>\n";
  int low = 0;
  int high = DurationHistogram::kBuckets - 1;
  while (h.bucket(low) == 0) ++low;
  while (h.bucket(high) == 0) --high;
  const int columns = 30;
  const int span = std::max(1, (high - low + columns) / columns);
  std::vector<uint64_t> counts(columns, 0);
  for (int i = low; i <= high; ++i) counts[std::min(columns - 1, (i - low) / span)] += h.bucket(i);
  const uint64_t largest = *std::max_element(counts.begin(), counts.end());
  const int plotHeight = 160;
  const int columnWidth = 22;
  std::string svg = "<svg width=\"760\" height=\"" +
                    std::to_string(plotHeight + 40) + "\" role=\"img\">\n";
  for (int c = 0; c < columns; ++c) {
    if (counts[c] == 0) continue;
    const int height = std::max<int>(1, static_cast<int>(plotHeight * counts[c] / largest));
    svg += "<rect x=\"" + std::to_string(40 + c * columnWidth) + "\" y=\"" +
           std::to_string(plotHeight - height + 10) + "\" width=\"" + std::to_string(columnWidth - 3) +
           "\" height=\"" + std::to_string(height) + "\" fill=\"#3f6fb5\"><title>" + Num(counts[c]) +
           " runs from " + SecondsText((low + c * span) * DurationHistogram::kBucketMs) +
           " s</title></rect>\n";
  }
  svg += "<text x=\"40\" y=\"" + std::to_string(plotHeight + 30) + "\">" +
         SecondsText(low * DurationHistogram::kBucketMs) + " s</text>";
  svg += "<text x=\"" + std::to_string(40 + columns * columnWidth) + "\" y=\"" +
         std::to_string(plotHeight + 30) + "\" text-anchor=\"end\">" +
         SecondsText((high + 1) * DurationHistogram::kBucketMs) + " s</text>\n";
  return svg + "</svg>\n";
}

}  // namespace

std::string HtmlPage(const FleetSummary& s) {
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
      "<title>Calder fleet report</title>\n<style>\n"
      "body{font-family:sans-serif;margin:24px 40px;color:#222;background:#fafafa}\n"
      "h1{font-size:22px}h2{font-size:17px;margin-top:28px;border-bottom:1px solid #ccc}\n"
      ".rate{font-size:56px;font-weight:bold}.sub{color:#555}\n"
      "table{border-collapse:collapse}td,th{padding:3px 12px;text-align:left;border-bottom:1px solid #e4e4e4}\n"
      "td.n{text-align:right}svg text{font-size:13px;fill:#222}.none{color:#777}\n"
      "</style></head><body>\n";
  page += "<h1>Calder fleet report</h1>\n<p class=\"sub\">calder-report " + std::string(kToolVersion) +
          " &middot; <span id=\"runs\">" + Num(s.runs) + "</span> runs</p>\n";

  const uint64_t conclusive = s.Conclusive();
  page += "<div id=\"headline\">";
  if (conclusive == 0) {
    page += "<span class=\"rate\">n/a</span><p class=\"sub\">no conclusive update</p>";
  } else {
    page += "<span class=\"rate\" style=\"color:" + std::string(BandColour(s.RateBand())) + "\">" +
            RateText(s) + " %</span>";
    page += "<p class=\"sub\">success rate of " + Num(conclusive) + " conclusive updates &middot; " +
            BandName(s.RateBand()) + " &middot; confidence " + ConfidenceName(s.RateConfidence()) +
            " &middot; " + Num(s.Updates(Outcome::kRefused)) + " refused (try again later)</p>";
  }
  page += "</div>\n";

  page += "<h2>Updates by outcome</h2>\n";
  page += BarChart({{"success", s.Updates(Outcome::kSuccess), "", "#2e7d32"},
                    {"failure", s.Updates(Outcome::kFailure), "", "#c62828"},
                    {"interrupted", s.Updates(Outcome::kInterrupted), "", "#8e6bbf"},
                    {"refused", s.Updates(Outcome::kRefused), "", "#9e9e9e"}});
  page += "<table><tr><th>kind</th><th>runs</th><th>success</th><th>failure</th><th>interrupted</th>"
          "<th>refused</th></tr>\n";
  for (int k = 0; k < kKinds; ++k) {
    if (s.KindTotal(static_cast<Kind>(k)) == 0) continue;
    page += "<tr><td>" + std::string(KindCode(static_cast<Kind>(k))) + "</td><td class=\"n\">" +
            Num(s.KindTotal(static_cast<Kind>(k))) + "</td>";
    for (Outcome o : {Outcome::kSuccess, Outcome::kFailure, Outcome::kInterrupted, Outcome::kRefused}) {
      page += "<td class=\"n\">" + Num(s.byKind[k][static_cast<int>(o)]) + "</td>";
    }
    page += "</tr>\n";
  }
  page += "</table>\n";

  page += "<h2>Causes</h2>\n";
  std::vector<Bar> causeBars;
  for (Cause c : s.RankedCauses()) {
    const int i = static_cast<int>(c);
    causeBars.push_back({CauseCode(c), s.causes[i], " (" + Percent(s.causes[i], s.RunsWithCause()) + " %)",
                         c == Cause::kInterrupted                                    ? "#8e6bbf"
                         : c == Cause::kAnotherInstance || c == Cause::kBatteryLow ? "#9e9e9e"
                                                                                    : "#c62828"});
  }
  page += BarChart(causeBars);
  if (!causeBars.empty()) {
    page += "<table><tr><th>cause</th><th>runs</th><th>example</th></tr>\n";
    for (Cause c : s.RankedCauses()) {
      const int i = static_cast<int>(c);
      page += "<tr><td>" + std::string(CauseCode(c)) + "</td><td class=\"n\">" + Num(s.causes[i]) +
              "</td><td>" + Esc(s.examples[i]) + "</td></tr>\n";
    }
    page += "</table>\n";
  }

  page += "<h2>Durations of successful updates</h2>\n";
  if (s.durations.count() > 0) {
    page += "<p>median <b>" + SecondsText(s.durations.Percentile(0.5)) + " s</b>, 95th percentile <b>" +
            SecondsText(s.durations.Percentile(0.95)) + " s</b></p>\n";
  }
  page += DurationChart(s.durations);

  page += "<h2>Per target force version</h2>\n";
  page += "<table><tr><th>target</th><th>runs</th><th>success rate</th><th>top cause</th></tr>\n";
  for (const auto& [target, v] : s.versions) {
    const Cause top = v.TopCause();
    page += "<tr><td>" + Esc(target) + "</td><td class=\"n\">" + Num(v.runs) + "</td><td class=\"n\">" +
            VersionRate(v) + " %</td><td>" + (top == Cause::kNone ? "-" : CauseCode(top)) + "</td></tr>\n";
  }
  page += "</table>\n";

  page += "<h2>Interrupted updates by last step</h2>\n";
  std::vector<Bar> stepBars;
  for (int st = 1; st < kSteps; ++st) {
    if (s.steps[st] > 0) stepBars.push_back({StepCode(static_cast<Step>(st)), s.steps[st], "", "#8e6bbf"});
  }
  page += BarChart(stepBars);
  if (!s.unreadable.empty()) {
    page += "<h2>Unreadable</h2>\n<p>" + Num(s.UnreadableInputs()) + " files; the first:</p><ul>\n";
    for (const std::string& f : s.unreadable) page += "<li>" + Esc(f) + "</li>\n";
    page += "</ul>\n";
  }
  return page + "</body></html>\n";
}

}  // namespace calder::report
