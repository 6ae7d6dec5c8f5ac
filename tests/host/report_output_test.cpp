#include <gtest/gtest.h>

#include <string>

#include "report/fleet_summary.h"
#include "report/html_page.h"
#include "report/record_json.h"
#include "report/summary_text.h"
#include "report/text_escape.h"

namespace calder::report {
namespace {

// What calder-report prints: texts, records and the page, from figures made here.

TEST(ReportEscape, NamesAndLinesStayValidUtf8AndHtml) {
  const struct { std::string in, utf8, html; } cases[] = {
      {"<a href=\"x\">&</a>", "<a href=\"x\">&</a>", "&lt;a href=&quot;x&quot;&gt;&amp;&lt;/a&gt;"},
      {"c:\\logs\t\x01\x7f", "c:\\logs\t\x01\x7f", "c:\\logs   "},
      {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80",
       "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"},
      // Not UTF-8 (a code page byte, overlong, a surrogate, past U+10FFFF, cut
      // short): each byte is read as Latin-1.
      {"\xe9", "\xc3\xa9", "\xc3\xa9"},
      {"\xc0\xaf", "\xc3\x80\xc2\xaf", "\xc3\x80\xc2\xaf"},
      {"\xed\xa0\x80", "\xc3\xad\xc2\xa0\xc2\x80", "\xc3\xad\xc2\xa0\xc2\x80"},
      {"\xf4\x90\x80\x80", "\xc3\xb4\xc2\x90\xc2\x80\xc2\x80", "\xc3\xb4\xc2\x90\xc2\x80\xc2\x80"},
      {"\xe2\x82", "\xc3\xa2\xc2\x82", "\xc3\xa2\xc2\x82"},
      {"\xe2(\xa1", "\xc3\xa2(\xc2\xa1", "\xc3\xa2(\xc2\xa1"},
  };
  for (const auto& c : cases) {
    std::string html;
    AppendHtmlText(c.in, &html);
    EXPECT_EQ(ToUtf8(c.in), c.utf8);
    EXPECT_EQ(html, c.html);
  }
}

RunRecord FullRecord() {
  RunRecord r;
  r.kind = Kind::kUpdate;
  r.outcome = Outcome::kInterrupted;
  r.cause = Cause::kInterrupted;
  r.evidence = "progress: 55";
  r.started = "2026-04-22T09:30:15.000";
  r.totalMs = 41650;
  r.touchpadMs = 3000;
  r.forceMs = 38650;
  r.forceBefore = "1.0.1.9";
  r.forceTarget = "1.0.2.3";
  r.forceAttempts = 2;
  r.calibrationRescue = true;
  r.lastStep = Step::kForceWrite;
  r.writePercent = 55;
  return r;
}

TEST(ReportRecord, EveryFieldIsWrittenAndReadBack) {
  std::string line;
  AppendRecordJson(FullRecord(), "a/Calder_1.log", &line);
  EXPECT_EQ(line,
            "{\"schema\":1,\"file\":\"a/Calder_1.log\",\"kind\":\"update\",\"outcome\":\"interrupted\","
            "\"cause\":\"interrupted\",\"evidence\":\"progress: 55\",\"started\":\"2026-04-22T09:30:15.000\","
            "\"seconds\":{\"total\":41.65,\"touchpad\":3.0,\"force\":38.65},"
            "\"force\":{\"before\":\"1.0.1.9\",\"target\":\"1.0.2.3\",\"after\":null,\"attempts\":2,"
            "\"calibration_rescue\":true},\"last_step\":\"force-write\",\"write_percent\":55}\n");
  RunRecord r;
  std::string file;
  ASSERT_TRUE(ParseRecordJson(line, &r, &file));
  std::string again;
  AppendRecordJson(r, file, &again);
  EXPECT_EQ(again, line);
  AppendRecordJson(RunRecord(), "b", &line);  // nothing known: nulls, read back as such
  ASSERT_TRUE(ParseRecordJson(line.substr(line.find('\n') + 1), &r, &file));
  EXPECT_EQ(r.kind, Kind::kUnreadable);
  EXPECT_EQ(r.totalMs, kNoTime);
  EXPECT_EQ(r.writePercent, -1);
  EXPECT_FALSE(r.calibrationRescue || r.forceTarget || r.evidence);
}

// Shards written elsewhere may escape what we write as UTF-8.
TEST(ReportRecord, EscapedNamesReadBackAsUtf8AndBrokenOnesAreNoRecord) {
  const struct { const char* name; const char* file; } cases[] = {
      {"\\u007f\\u0080\\u00e9\\u07ff\\u0800\\u20ac\\uffff.log",
       "\x7f\xc2\x80\xc3\xa9\xdf\xbf\xe0\xa0\x80\xe2\x82\xac\xef\xbf\xbf.log"},
      {"\\ud83d\\ude00 \\u0041\\/\\\\\\\"", "\xf0\x9f\x98\x80 A/\\\""},
      {"\\n\\t\\r\\b\\f", "\n\t\r\b\f"},
      {"\\ud83d\\u0041", nullptr},  // a high surrogate without its low half
      {"\\ud83d\\udc0", nullptr},
      {"\\u00g1", nullptr},
      {"cut\\", nullptr},
  };
  for (const auto& c : cases) {
    const std::string line = std::string("{\"schema\":1,\"file\":\"") + c.name + "\",\"kind\":\"update\"}";
    RunRecord r;
    std::string file;
    EXPECT_EQ(ParseRecordJson(line, &r, &file), c.file != nullptr) << c.name;
    if (c.file != nullptr) {
      EXPECT_EQ(file, c.file) << c.name;
    }
  }
  const char* notRecords[] = {"{\"schema\":2,\"kind\":\"update\"}", "{\"schema\":1}",
                              "{\"schema\":1,\"kind\":\"update\"} x", "{\"schema\":1,\"kind\":\"other\"}"};
  for (const char* line : notRecords) {
    RunRecord r;
    std::string file;
    EXPECT_FALSE(ParseRecordJson(line, &r, &file)) << line;
  }
}

TEST(ReportFigures, PercentAndTenthsOfASecond) {
  const struct { uint64_t part, whole; const char* text; } percents[] = {
      {0, 0, "n/a"}, {0, 7, "0.0"}, {1, 3, "33.3"}, {2, 3, "66.7"}, {7, 7, "100.0"},
      {9, 16, "56.3"}, {7, 16, "43.8"}, {1, 80, "1.3"}};
  for (const auto& p : percents) EXPECT_EQ(Percent(p.part, p.whole), p.text);
  const struct { int64_t ms; const char* text; } seconds[] = {
      {0, "0.0"}, {99, "0.0"}, {100, "0.1"}, {999, "0.9"}, {1000, "1.0"}, {41650, "41.6"}, {3600000, "3600.0"}};
  for (const auto& s : seconds) EXPECT_EQ(SecondsText(s.ms), s.text);
}

FleetSummary Fleet(uint64_t success, uint64_t failure) {
  FleetSummary s;
  RunRecord r;
  r.kind = Kind::kUpdate;
  r.outcome = Outcome::kSuccess;
  r.totalMs = 40000;
  for (uint64_t i = 0; i < success; ++i) s.Add(r, "ok");
  r.outcome = Outcome::kFailure;
  r.cause = Cause::kForceOpen;
  for (uint64_t i = 0; i < failure; ++i) s.Add(r, "bad");
  return s;
}

// The band and confidence say whether a rollout may go on: green from 95 %,
// amber from 80 %; medium confidence from 100 conclusive updates, high from 1000.
TEST(ReportFigures, BandAndConfidenceChangeAtTheirEdges) {
  const struct { uint64_t success, failure; const char* band; const char* confidence; } cases[] = {
      {95, 5, "green", "medium"}, {94, 5, "amber", "low"},    {80, 20, "amber", "medium"},
      {79, 21, "red", "medium"},  {999, 1, "green", "high"},
      // 94.99 % prints as 95.0 %, and the band goes by the printed figure.
      {949, 50, "green", "medium"}, {948, 51, "amber", "medium"},
      {0, 1, "red", "low"}};
  for (const auto& c : cases) {
    const FleetSummary s = Fleet(c.success, c.failure);
    EXPECT_STREQ(BandName(s.RateBand()), c.band) << c.success << "/" << c.failure;
    EXPECT_STREQ(ConfidenceName(s.RateConfidence()), c.confidence) << c.success << "/" << c.failure;
  }
}

// 9 of 16 is 56.25: every rate the report prints, in text and page alike,
// is rounded half up as the gated headline is.
TEST(ReportFigures, OneRoundingInEveryView) {
  FleetSummary s = Fleet(9, 7);
  RunRecord refused;
  refused.kind = Kind::kUpdate;
  refused.outcome = Outcome::kRefused;
  refused.cause = Cause::kBatteryLow;
  for (int i = 0; i < 9; ++i) s.Add(refused, "r");
  const std::string text = SummaryText(s);
  for (const char* part : {"success rate   56.3 %", "battery-low              9   56.3 %   r", "success   56.3 %"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
  }
  const std::string page = HtmlPage(s);
  for (const char* part : {">56.3 %</span>", ">9 (56.3 %)</text>", "<td class=\"n\">56.3 %</td>"}) {
    EXPECT_NE(page.find(part), std::string::npos) << part;
  }
}

// A small fleet: three successes, a failure, an interrupted run and a refusal,
// a version query and an unreadable file.
FleetSummary SmallFleet() {
  FleetSummary s;
  RunRecord r;
  r.kind = Kind::kUpdate;
  r.outcome = Outcome::kSuccess;
  r.forceTarget = "1.0.2.3";
  for (int64_t ms : {40000, 41650, 65300}) {
    r.totalMs = ms;
    s.Add(r, "ok");
  }
  r.outcome = Outcome::kFailure;
  r.cause = Cause::kComInit;
  s.Add(r, "b/<Calder_2>&.log");
  s.Add(r, "a/Calder_9.log");
  r.outcome = Outcome::kInterrupted;
  r.cause = Cause::kInterrupted;
  r.lastStep = Step::kForceVerify;
  s.Add(r, "c/Calder_3.log");
  RunRecord refused;
  refused.kind = Kind::kUpdate;
  refused.outcome = Outcome::kRefused;
  refused.cause = Cause::kBatteryLow;
  s.Add(refused, "d/Calder_4.log");
  RunRecord version;
  version.kind = Kind::kVersion;
  version.outcome = Outcome::kSuccess;
  s.Add(version, "e/Calder_5.log");
  s.Add(RunRecord(), "f/junk.log");
  return s;
}

TEST(ReportSummary, TextGivesEveryFigureOfTheFleet) {
  EXPECT_EQ(SummaryText(SmallFleet()),
            "calder-report 20260422-01: 9 runs\n"
            "runs by kind and outcome\n"
            "  update             7   success 3   failure 2   interrupted 1   refused 1\n"
            "  version            1   success 1\n"
            "  unreadable         1\n"
            "success rate   50.0 % of 6 conclusive updates: red, confidence low\n"
            "refused        1 (try again later)\n"
            "causes\n"
            "  com-init                 2   50.0 %   a/Calder_9.log\n"
            "  battery-low              1   25.0 %   d/Calder_4.log\n"
            "  interrupted              1   25.0 %   c/Calder_3.log\n"
            "durations of successful updates: median 41.6 s, 95th percentile 65.3 s\n"
            "per target force version\n"
            "  (not reached)     runs        1   success    n/a %   top cause battery-low\n"
            "  1.0.2.3           runs        6   success   50.0 %   top cause com-init\n"
            "interrupted updates by last step\n"
            "  force-verify             1\n"
            "unreadable (the first in name order)\n"
            "  f/junk.log\n");
}

TEST(ReportPage, ShowsTheFiguresEscapedWithTheBandAndTheDurationAxis) {
  const std::string page = HtmlPage(SmallFleet());
  const char* parts[] = {
      "<span id=\"runs\">9</span> runs",
      "<span class=\"rate\" style=\"color:#c62828\">50.0 %</span>",
      "success rate of 6 conclusive updates &middot; red &middot; confidence low &middot; 1 refused",
      ("<tr><td>update</td><td class=\"n\">7</td><td class=\"n\">3</td><td class=\"n\">2</td><td class=\"n\">1</td>"
       "<td class=\"n\">1</td></tr>"),
      ">2 (50.0 %)</text>",
      "<td>com-init</td><td class=\"n\">2</td><td>a/Calder_9.log</td>",
      "battery-low</text><rect x=\"170\" y=\"33\" width=\"210\" height=\"18\" fill=\"#9e9e9e\"/>",
      "<p>median <b>41.6 s</b>, 95th percentile <b>65.3 s</b></p>",
      // 40.0 s to 65.4 s in 30 columns of 0.9 s: the first and the last.
      "height=\"160\" fill=\"#3f6fb5\"><title>1 runs from 40.0 s</title>",
      "<title>1 runs from 65.2 s</title>",
      ">40.0 s</text>", "text-anchor=\"end\">65.4 s</text>",
      "<td>1.0.2.3</td><td class=\"n\">6</td><td class=\"n\">50.0 %</td><td>com-init</td>",
      "<h2>Unreadable</h2>\n<p>1 files; the first:</p><ul>\n<li>f/junk.log</li>"};
  for (const char* part : parts) EXPECT_NE(page.find(part), std::string::npos) << part;

  FleetSummary s = Fleet(19, 1);
  s.Add(RunRecord(), "<b>&");
  const std::string green = HtmlPage(s);
  EXPECT_NE(green.find("color:#2e7d32\">95.0 %"), std::string::npos);
  EXPECT_NE(green.find("&middot; green &middot;"), std::string::npos);
  EXPECT_NE(green.find("<li>&lt;b&gt;&amp;</li>"), std::string::npos);
  EXPECT_NE(HtmlPage(Fleet(17, 3)).find("color:#e69b00\">85.0 %</span>"), std::string::npos);
  EXPECT_NE(HtmlPage(FleetSummary()).find("<span class=\"rate\">n/a</span>"), std::string::npos);
}

}  // namespace
}  // namespace calder::report
