#include <gtest/gtest.h>

#include <string>

#include "report/fleet_summary.h"
#include "report/summary_text.h"

namespace calder::report {
namespace {

uint64_t& Updates(FleetSummary& s, Outcome outcome) {
  return s.byKind[static_cast<int>(Kind::kUpdate)][static_cast<int>(outcome)];
}

// The printed figure is the one banded and gated; without evidence, or with
// more than 1 % of the inputs unread, the gate fails whatever the rate.
TEST(ReportGate, OneRoundingAndNoPassWithoutEvidence) {
  const struct {
    uint64_t success, failure, unreadableLogs, notRead;
    const char* printed;
    Band band;
    GateVerdict at95;
  } cases[] = {
      {1899, 101, 0, 0, "95.0", Band::kGreen, GateVerdict::kPass},
      {1898, 102, 0, 0, "94.9", Band::kAmber, GateVerdict::kBelow},
      {1599, 401, 0, 0, "80.0", Band::kAmber, GateVerdict::kBelow},
      {1598, 402, 0, 0, "79.9", Band::kRed, GateVerdict::kBelow},
      {0, 0, 0, 0, nullptr, Band::kRed, GateVerdict::kNoEvidence},
      {0, 0, 5, 1, nullptr, Band::kRed, GateVerdict::kNoEvidence},  // every log unreadable
      {990, 0, 10, 0, "100.0", Band::kGreen, GateVerdict::kPass},  // exactly 1 %
      {990, 0, 11, 0, "100.0", Band::kGreen, GateVerdict::kTooManyUnreadable},
      {990, 0, 10, 1, "100.0", Band::kGreen, GateVerdict::kTooManyUnreadable},
  };
  for (const auto& c : cases) {
    FleetSummary s;
    Updates(s, Outcome::kSuccess) = c.success;
    Updates(s, Outcome::kFailure) = c.failure;
    s.byKind[static_cast<int>(Kind::kUnreadable)][0] = c.unreadableLogs;
    s.runs = c.success + c.failure + c.unreadableLogs + 3;
    Updates(s, Outcome::kRefused) = 3;  // try again later: no evidence either way
    s.inputsNotRead = c.notRead;
    if (c.printed != nullptr) {
      EXPECT_EQ(RateText(s), c.printed) << c.success;
      EXPECT_EQ(s.RateBand(), c.band) << c.success;
    }
    EXPECT_EQ(s.Gate(95.0), c.at95) << c.success << " " << c.unreadableLogs;
  }
  // One folder not seen whole beside 990 good runs: under 1 %, refused all the same.
  FleetSummary s;
  Updates(s, Outcome::kSuccess) = s.runs = 990;
  s.AddFolderNotSeen("logs/locked");
  EXPECT_EQ(s.Gate(0.0), GateVerdict::kFoldersNotSeen);
}

// Names and versions come from logs and folders anyone may have written.
TEST(ReportSummaryText, ControlCharactersFromLogsAreEscaped) {
  FleetSummary s;
  RunRecord run;
  run.kind = Kind::kUpdate;
  run.outcome = Outcome::kFailure;
  run.cause = Cause::kForceVersion;
  run.forceTarget = "1.0\x1b[2J";
  s.Add(run, "D:\\logs\\Calder_\x07\x7f.log");
  s.AddInputNotRead("logs/\xc2\x9b" "31m\xc3\xa9");
  const std::string text = SummaryText(s);
  EXPECT_NE(text.find("1.0\\x1b[2J "), std::string::npos) << text;
  EXPECT_NE(text.find("D:\\logs\\Calder_\\x07\\x7f.log\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  logs/\\xc2\\x9b31m\xc3\xa9\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\nnot read       1 inputs: folders, files or record lines\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace calder::report
