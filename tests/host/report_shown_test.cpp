#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "report/fleet_summary.h"
#include "report/fleet_reader.h"
#include "report/html_page.h"
#include "report/line_reader.h"
#include "report/log_line.h"
#include "report/record_json.h"
#include "report/summary_text.h"
#include "report/text_escape.h"

namespace calder::report {
namespace {

// What a reader of the report sees, to the number: where the page draws its
// bars and labels, which times and bytes it takes, what a shard's missing
// field reads as.

std::string Between(const std::string& page, const std::string& from, const std::string& to) {
  const size_t start = page.find(from);
  const size_t end = page.find(to, start);
  if (start == std::string::npos || end == std::string::npos) return "(not found: " + from + ")";
  return page.substr(start, end + to.size() - start);
}

void AddUpdates(FleetSummary* s, Outcome outcome, Cause cause, int count, int64_t ms = kNoTime) {
  RunRecord r;
  r.kind = Kind::kUpdate;
  r.outcome = outcome;
  r.cause = cause;
  r.totalMs = ms;
  r.lastStep = Step::kForceWrite;
  for (int i = 0; i < count; ++i) s->Add(r, "x.log");
}

// 760 px wide: labels at 0, bars from 170 scaled to 420 px for the largest
// count (at least 2 px for a count that is not 0), the count 6 px after the
// bar, a row every 26 px.
TEST(ReportPageGeometry, BarsAndLabelsStandWhereTheCountsPutThem) {
  FleetSummary s;
  AddUpdates(&s, Outcome::kSuccess, Cause::kNone, 300, 40000);
  AddUpdates(&s, Outcome::kFailure, Cause::kComInit, 1);
  AddUpdates(&s, Outcome::kInterrupted, Cause::kInterrupted, 5);
  AddUpdates(&s, Outcome::kRefused, Cause::kAnotherInstance, 150);
  const std::string page = HtmlPage(s);
  EXPECT_EQ(Between(page, "<h2>Updates by outcome</h2>", "</svg>"),
            "<h2>Updates by outcome</h2>\n<svg width=\"760\" height=\"110\" role=\"img\">\n"
            "<text x=\"0\" y=\"20\">success</text><rect x=\"170\" y=\"7\" width=\"420\" height=\"18\" "
            "fill=\"#2e7d32\"/><text x=\"596\" y=\"20\">300</text>\n"
            "<text x=\"0\" y=\"46\">failure</text><rect x=\"170\" y=\"33\" width=\"2\" height=\"18\" "
            "fill=\"#c62828\"/><text x=\"178\" y=\"46\">1</text>\n"
            "<text x=\"0\" y=\"72\">interrupted</text><rect x=\"170\" y=\"59\" width=\"7\" height=\"18\" "
            "fill=\"#8e6bbf\"/><text x=\"183\" y=\"72\">5</text>\n"
            "<text x=\"0\" y=\"98\">refused</text><rect x=\"170\" y=\"85\" width=\"210\" height=\"18\" "
            "fill=\"#9e9e9e\"/><text x=\"386\" y=\"98\">150</text>\n</svg>");
  // Causes: grey for a refusal's, purple for an interruption, red for a fault.
  for (const char* row : {"another-instance</text><rect x=\"170\" y=\"7\" width=\"420\" height=\"18\" fill=\"#9e9e9e\"",
                          "interrupted</text><rect x=\"170\" y=\"33\" width=\"14\" height=\"18\" fill=\"#8e6bbf\"",
                          "com-init</text><rect x=\"170\" y=\"59\" width=\"2\" height=\"18\" fill=\"#c62828\""}) {
    EXPECT_NE(Between(page, "<h2>Causes</h2>", "</svg>").find(row), std::string::npos) << row;
  }
  EXPECT_EQ(Between(page, "<h2>Interrupted", "</svg>"),
            "<h2>Interrupted updates by last step</h2>\n<svg width=\"760\" height=\"32\" role=\"img\">\n<text x=\"0\" "
            "y=\"20\">force-write</text><rect x=\"170\" y=\"7\" width=\"420\" height=\"18\" fill=\"#8e6bbf\"/><text "
            "x=\"596\" y=\"20\">5</text>\n</svg>");
}

// Up to 30 columns 22 px apart from x 40, 160 px high for the fullest, each
// covering as many 0.1 s buckets as the range needs; the axis gives the first
// bucket's time and the end of the last.
TEST(ReportPageGeometry, DurationColumnsCoverTheRangeOfTheRuns) {
  FleetSummary s;
  AddUpdates(&s, Outcome::kSuccess, Cause::kNone, 2, 40000);
  AddUpdates(&s, Outcome::kSuccess, Cause::kNone, 1, 41050);
  AddUpdates(&s, Outcome::kSuccess, Cause::kNone, 1, 42999);
  const std::string narrow = HtmlPage(s);
  // A count of 0 draws no bar.
  EXPECT_NE(narrow.find("<text x=\"0\" y=\"46\">failure</text><rect x=\"170\" y=\"33\" width=\"0\" "
                        "height=\"18\" fill=\"#c62828\"/><text x=\"176\" y=\"46\">0</text>"),
            std::string::npos);
  EXPECT_EQ(Between(narrow, "<svg width=\"760\" height=\"200\"", "</svg>"),
            "<svg width=\"760\" height=\"200\" role=\"img\">\n"
            "<rect x=\"40\" y=\"10\" width=\"19\" height=\"160\" fill=\"#3f6fb5\"><title>2 runs from 40.0 s"
            "</title></rect>\n"
            "<rect x=\"260\" y=\"90\" width=\"19\" height=\"80\" fill=\"#3f6fb5\"><title>1 runs from 41.0 s"
            "</title></rect>\n"
            "<rect x=\"678\" y=\"90\" width=\"19\" height=\"80\" fill=\"#3f6fb5\"><title>1 runs from 42.9 s"
            "</title></rect>\n"
            "<text x=\"40\" y=\"190\">40.0 s</text><text x=\"700\" y=\"190\" text-anchor=\"end\">43.0 s</text>\n"
            "</svg>");
  // 40.0 s to 100.0 s: 601 buckets, 21 to a column; the last run in column 28.
  FleetSummary wide;
  AddUpdates(&wide, Outcome::kSuccess, Cause::kNone, 3, 40000);
  AddUpdates(&wide, Outcome::kSuccess, Cause::kNone, 1, 100000);
  EXPECT_NE(HtmlPage(wide).find("<rect x=\"656\" y=\"117\" width=\"19\" height=\"53\" fill=\"#3f6fb5\"><title>1 "
                                "runs from 98.8 s</title></rect>\n<text x=\"40\" y=\"190\">40.0 s</text><text "
                                "x=\"700\" y=\"190\" text-anchor=\"end\">100.1 s</text>"),
            std::string::npos);
}

// Every digit of the time must be one: a ':' or '/' (the characters next to
// '9' and '0') in any of its places makes the line another program's text.
// Any year of four digits counts, the first and the last included.
TEST(ReportLogLineTime, EachPlaceOfTheTimeTakesDigitsOnly) {
  const std::string good = "2019-09-19 19:59:59.999 INFO a.cpp 90: x";
  const std::pair<std::string, int64_t> times[] = {{good, 1568923199999},
                                                   {"2000-01-01 00:00:00.000 INFO a.cpp 0: x", 946684800000},
                                                   {"0000-01-01 00:00:00.000 INFO a.cpp 1: x", -62167219200000},
                                                   {"9999-12-31 23:59:59.999 INFO a.cpp 1: x", 253402300799999}};
  LogLine line;
  for (const auto& [text, millis] : times) EXPECT_TRUE(ParseLogLine(text, &line) && line.millis == millis) << text;
  for (size_t place : {0, 1, 2, 3, 5, 6, 8, 9, 11, 12, 14, 15, 17, 18, 20, 21, 22, 35, 36}) {
    for (char odd : {':', '/'}) {
      std::string text = good;
      text[place] = odd;
      EXPECT_FALSE(ParseLogLine(text, &line)) << text;
    }
  }
}

// Escaped in the text summary: C0 controls, DEL, and C1 controls (U+0080 to
// U+009F, encoded C2 80 to C2 9F); their neighbours are printed as they are.
TEST(ReportControlBytes, OnlyControlCharactersAreEscaped) {
  const struct { std::string in, out; } cases[] = {
      {"\x1f \x7e\x7f", "\\x1f ~\\x7f"},
      {"\xc2\x80\xc2\x9f", "\\xc2\\x80\\xc2\\x9f"},
      {"\xc2\x7f\xc2\xa0\xc3\x80\xc1\x80", "\xc2\\x7f\xc2\xa0\xc3\x80\xc1\x80"},
      {"a\xc2", "a\xc2"}};
  for (const auto& c : cases) EXPECT_EQ(ControlsEscaped(c.in), c.out) << c.out;
  // A lead byte that ends the text is not read together with what follows it.
  EXPECT_EQ(ControlsEscaped(std::string_view("\xc2\x85", 1)), "\xc2");
  // The page shows them as blanks and leaves every other character.
  std::string html;
  AppendHtmlText("\x1f \x7e\x7f", &html);
  EXPECT_EQ(html, "  ~ ");
}

// UTF-8 at the edges of each length is kept; an overlong form or a surrogate
// is read as Latin-1 bytes.
TEST(ReportControlBytes, Utf8EdgesAreKeptAndOverlongFormsAreNot) {
  for (const char* text : {"\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xee\x80\x80", "\xf0\x90\x80\x80",
                           "\xf4\x8f\xbf\xbf"}) {
    EXPECT_EQ(ToUtf8(text), text);
  }
  const std::pair<const char*, const char*> latin1[] = {
      {"\xc1\xbf", "\xc3\x81\xc2\xbf"}, {"\xe0\x9f\xbf", "\xc3\xa0\xc2\x9f\xc2\xbf"}, {"\xed\xbf\xbf", "\xc3\xad\xc2\xbf\xc2\xbf"},
      {"\xf0\x8f\xbf\xbf", "\xc3\xb0\xc2\x8f\xc2\xbf\xc2\xbf"}, {"\xf8\x88\x80", "\xc3\xb8\xc2\x88\xc2\x80"}};
  for (const auto& [in, out] : latin1) EXPECT_EQ(ToUtf8(in), out) << out;
}

// A record written by another version may lack a field or hold another type:
// it reads as not known, never as a value.
TEST(ReportRecordFields, MissingOrOddFieldsReadAsNotKnown) {
  using Fields = std::tuple<Outcome, Cause, Step, int64_t, int64_t, int64_t, int, bool, int, bool>;
  const std::pair<const char*, Fields> cases[] = {
      {"{\"schema\":1,\"kind\":\"update\"}",
       {Outcome::kNone, Cause::kNone, Step::kNone, kNoTime, kNoTime, kNoTime, 0, false, -1, false}},
      {"{\"schema\":1,\"kind\":\"update\",\"outcome\":\"won\",\"cause\":\"gremlins\",\"last_step\":7,\"evidence\":1,"
       "\"seconds\":{\"total\":-0.001,\"touchpad\":0.0625,\"force\":31622400},\"force\":{\"attempts\":\"2\","
       "\"calibration_rescue\":1,\"target\":[]},\"write_percent\":2147483648}",
       {Outcome::kNone, Cause::kUnknown, Step::kNone, kNoTime, 63, kLongestRunMs, 0, false, -1, false}},
      {"{\"schema\":1,\"kind\":\"update\",\"seconds\":{\"force\":31622401},\"force\":{\"attempts\":2147483647},"
       "\"write_percent\":0}",
       {Outcome::kNone, Cause::kNone, Step::kNone, kNoTime, kNoTime, kNoTime, 2147483647, false, 0, false}}};
  for (const auto& [line, fields] : cases) {
    RunRecord r;
    std::string file;
    ASSERT_TRUE(ParseRecordJson(line, &r, &file)) << line;
    EXPECT_TRUE(Fields(r.outcome, r.cause, r.lastStep, r.totalMs, r.touchpadMs, r.forceMs, r.forceAttempts,
                       r.calibrationRescue, r.writePercent,
                       r.evidence || r.started || r.forceBefore || r.forceTarget || r.forceAfter) == fields)
        << line;
  }
}

// A line that fills the reader's buffer with its LF is whole; one longer than
// the buffer is given cut to it and its rest skipped; the file's last line
// without an LF is given as not whole.
TEST(ReportLineReader, LinesAtTheBufferEdgeAreWholeCutOrLast) {
  constexpr size_t kSize = LineReader::kBufferSize;
  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / ("calder-lines-" + std::to_string(::getpid()) + ".log");
  std::ofstream(file, std::ios::binary | std::ios::trunc)
      << std::string(kSize - 1, 'a') << "\nb\n" << std::string(kSize + 10, 'c') << "\nd";
  InputFile input;
  LineReader reader;
  std::string reason;
  std::vector<std::pair<std::string, bool>> seen;
  ASSERT_TRUE(input.Open(file, &reason)) << reason;
  ASSERT_TRUE(reader.ForEachLine(input, [&](std::string_view line, bool whole) { seen.emplace_back(line, whole); },
                                 &reason));
  std::filesystem::remove(file);
  const std::vector<std::pair<std::string, bool>> expected = {
      {std::string(kSize - 1, 'a'), true}, {"b", true}, {std::string(kSize, 'c'), false}, {"d", false}};
  EXPECT_TRUE(seen == expected);
}

// --json on a shard of earlier records gives each of them once, however
// often the output fills its buffer on the way.
TEST(ReportRecordsOut, EachRecordIsWrittenOnce) {
  const std::filesystem::path shard =
      std::filesystem::temp_directory_path() / ("calder-shard-" + std::to_string(::getpid()) + ".ndjson");
  RunRecord r;
  r.kind = Kind::kUpdate;
  r.evidence = std::string(300, 'e');
  std::string records;
  for (int i = 0; i < 120; ++i) AppendRecordJson(r, "Calder_" + std::to_string(i) + ".log", &records);
  std::ofstream(shard, std::ios::binary | std::ios::trunc) << records;
  std::FILE* out = std::tmpfile();
  const FleetRead read = ReadFleet({shard.string()}, true, out, stderr);
  std::string written(2 * records.size(), '\0');
  std::rewind(out);
  written.resize(std::fread(&written[0], 1, written.size(), out));
  std::fclose(out);
  std::filesystem::remove(shard);
  EXPECT_EQ(read.summary.runs, 120u);
  EXPECT_TRUE(written == records);
}

}  // namespace
}  // namespace calder::report
