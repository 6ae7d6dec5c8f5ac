#include <gtest/gtest.h>

#include <sys/fsuid.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/log_lines.h"
#include "report/fleet_reader.h"
#include "report/line_reader.h"
#include "report/log_line.h"
#include "report/record_json.h"
#include "report/run_classifier.h"
#include "tools/fleet/scenarios.h"

namespace calder::report {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

fs::path Scratch() {
  const fs::path dir = fs::temp_directory_path() / ("calder-report-test-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  return dir;
}

// The log calder.exe writes in a scenario, on the device models.
Lines ScenarioLog(const std::string& name) {
  const fleet::Scenario* scenario = fleet::FindScenario(name);
  EXPECT_NE(scenario, nullptr) << name;
  fleet::SimulatedMachine machine(Scratch());
  fleet::UseForceVersion(machine, 3);
  scenario->arrange(machine);
  return machine.Run(scenario->args);
}

std::string Joined(const Lines& lines, const char* end) {
  std::string text;
  for (const std::string& line : lines) text += line + end;
  return text;
}

// Classified as calder-report reads a file: in chunks, line by line.
RunRecord ClassifyFile(const std::string& text) {
  const fs::path file = Scratch() / "Calder_case.log";
  std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
  InputFile input;
  LineReader reader;
  RunClassifier classifier;
  std::string reason;
  EXPECT_TRUE(input.Open(file, &reason)) << reason;
  EXPECT_TRUE(reader.ForEachLine(input, [&](std::string_view line, bool whole) { classifier.Feed(line, whole); }, &reason));
  return classifier.Finish();
}

// The log up to and including the first line that contains text.
Lines CutAfter(const Lines& log, const std::string& text) {
  for (size_t i = 0; i < log.size(); ++i) {
    if (log[i].find(text) != std::string::npos) return Lines(log.begin(), log.begin() + i + 1);
  }
  ADD_FAILURE() << "no line with " << text;
  return log;
}

// A line is the logger's or nothing: a date that cannot be, a missing word or
// a lost blank make it another program's text.
TEST(ReportLogLine, TakesOnlyTheLoggersLinesAndTheirTimes) {
  const struct { const char* text; int64_t millis; const char* file; const char* message; } good[] = {
      {"2026-04-22 09:30:15.123 INFO calder.cpp 87: Current version: x\r", 1776850215123, "calder.cpp",
       "Current version: x"},
      {"2000-02-29 23:59:60.999 ERROR update_fw.cpp 1:", 951868800999, "update_fw.cpp", ""},
      {"1969-12-31 23:59:59.000 INFO a.cpp 2: ", -1000, "a.cpp", ""},
      {"2100-03-01 00:00:00.000 INFO a.cpp 3: x", 4107542400000, "a.cpp", "x"}};
  for (const auto& c : good) {
    LogLine line;
    ASSERT_TRUE(ParseLogLine(c.text, &line)) << c.text;
    EXPECT_EQ(line.millis, c.millis) << c.text;
    EXPECT_EQ(line.file, c.file);
    EXPECT_EQ(line.message, c.message);
  }
  const char* bad[] = {"2026-13-22 09:30:15.123 INFO a.cpp 1: x", "2026-00-22 09:30:15.123 INFO a.cpp 1: x",
                       "2026-04-32 09:30:15.123 INFO a.cpp 1: x", "2026-04-00 09:30:15.123 INFO a.cpp 1: x",
                       "2026-04-22 24:30:15.123 INFO a.cpp 1: x", "2026-04-22 09:60:15.123 INFO a.cpp 1: x",
                       "2026-04-22 09:30:61.123 INFO a.cpp 1: x", "2026-04-22 09:30:15.123 INFO 87: x",
                       "2026-04-22 09:30:15.123 INFO a.cpp 87 x",   "2026-04-22 09:30:15.123 INFO a.cpp 87:x",
                       "2026-04-22 09:30:15.123INFO a.cpp 1: x",    "2026/04/22 09:30:15.123 INFO a.cpp 1: x",
                       "2026-04-22 09:30:15.123 INFO a.cpp 8",      "2026-04-22 09:30:15.123 INFO a.cpp : x"};
  for (const char* text : bad) {
    LogLine line;
    EXPECT_FALSE(ParseLogLine(text, &line)) << text;
  }
}

struct FaultCase {
  const char* scenario;
  Kind kind;
  Outcome outcome;
  Cause cause;
  const char* evidence;  // a part of it; null: none
  int attempts;
};

TEST(ReportClassifier, EachFaultOfTheProductGetsItsCause) {
  const FaultCase cases[] = {
      {"success", Kind::kUpdate, Outcome::kSuccess, Cause::kNone, nullptr, 1},
      {"calibration-rescue", Kind::kUpdate, Outcome::kSuccess, Cause::kNone, nullptr, 1},
      {"connect-retried", Kind::kUpdate, Outcome::kSuccess, Cause::kNone, nullptr, 2},
      {"com-init", Kind::kUpdate, Outcome::kFailure, Cause::kComInit, "-2147417850", 0},
      {"tp-library", Kind::kUpdate, Outcome::kFailure, Cause::kTpLibrary, "btl_upgrade.dll", 0},
      {"tp-init", Kind::kUpdate, Outcome::kFailure, Cause::kTpInit, "error code: -3", 0},
      {"tp-no-file", Kind::kUpdate, Outcome::kFailure, Cause::kTpFirmware, "Upgrading from:", 0},
      {"tp-empty-file", Kind::kUpdate, Outcome::kFailure, Cause::kTpFirmware, "file size == 0", 0},
      {"tp-upgrade", Kind::kUpdate, Outcome::kFailure, Cause::kTpUpgrade, "%d 7", 0},
      {"tp-checksum", Kind::kUpdate, Outcome::kFailure, Cause::kTpChecksum, "Upgrade checksum failed!", 0},
      {"tp-checksum-read", Kind::kUpdate, Outcome::kFailure, Cause::kTpChecksum, "Get checksum failed: -1", 0},
      {"force-library", Kind::kUpdate, Outcome::kFailure, Cause::kForceLibrary, "no HID bridge", 0},
      {"force-open", Kind::kUpdate, Outcome::kFailure, Cause::kForceOpen, "Open device fail: 7", 0},
      {"force-no-file", Kind::kUpdate, Outcome::kFailure, Cause::kForceFirmware, "LoadFile failed", 3},
      {"force-connect", Kind::kUpdate, Outcome::kFailure, Cause::kForceConnect, "connect error : 4", 3},
      {"force-write", Kind::kUpdate, Outcome::kFailure, Cause::kForceWrite, "Error 5", 3},
      {"force-version", Kind::kUpdate, Outcome::kFailure, Cause::kForceVersion, "upgrade failed", 3},
      {"force-checksum", Kind::kUpdate, Outcome::kFailure, Cause::kForceChecksum, "checksum check failed", 1},
      {"version", Kind::kVersion, Outcome::kSuccess, Cause::kNone, nullptr, 0},
      {"version-read", Kind::kVersion, Outcome::kFailure, Cause::kVersionRead, "err: open force device fail", 0},
      {"no-argument", Kind::kNone, Outcome::kNone, Cause::kNone, nullptr, 0},
      {"invalid-input", Kind::kNone, Outcome::kNone, Cause::kNone, nullptr, 0},
      {"another-instance", Kind::kUpdate, Outcome::kRefused, Cause::kAnotherInstance, "another update", 0},
      {"battery-low", Kind::kUpdate, Outcome::kRefused, Cause::kBatteryLow, "12 % on battery", 0},
      {"version-refused", Kind::kVersion, Outcome::kRefused, Cause::kAnotherInstance, "another update", 0},
  };
  for (const FaultCase& c : cases) {
    SCOPED_TRACE(c.scenario);
    const RunRecord r = ClassifyFile(Joined(ScenarioLog(c.scenario), "\r\n"));
    EXPECT_STREQ(KindCode(r.kind), KindCode(c.kind));
    EXPECT_EQ(OutcomeCode(r.outcome) == nullptr ? "null" : OutcomeCode(r.outcome),
              std::string(OutcomeCode(c.outcome) == nullptr ? "null" : OutcomeCode(c.outcome)));
    EXPECT_EQ(r.cause, c.cause) << (CauseCode(r.cause) ? CauseCode(r.cause) : "null");
    if (c.evidence == nullptr) {
      EXPECT_FALSE(r.evidence.has_value()) << *r.evidence;
    } else {
      EXPECT_NE(r.evidence.value_or("").find(c.evidence), std::string::npos) << r.evidence.value_or("(none)");
    }
    EXPECT_EQ(r.forceAttempts, c.attempts);
    EXPECT_EQ(r.calibrationRescue, std::string(c.scenario) == "calibration-rescue");
  }
}

TEST(ReportClassifier, ForceVersionsAndPhaseTimesOfAGoodUpdate) {
  const RunRecord r = ClassifyFile(Joined(ScenarioLog("success"), "\n"));
  EXPECT_EQ(r.forceBefore.value_or("null"), "1.0.1.9");
  EXPECT_EQ(r.forceTarget.value_or("null"), "1.0.2.3");
  EXPECT_EQ(r.forceAfter.value_or("null"), "1.0.2.3");
  EXPECT_EQ(r.started.value_or(""), "2026-04-22T09:30:15.000");
  EXPECT_EQ(r.touchpadMs, 3000);  // the pause after the BIOS reset
  EXPECT_GT(r.forceMs, 10000);
  EXPECT_EQ(r.totalMs, r.touchpadMs + r.forceMs);
  // An empty current version (the query failed) is null.
  const RunRecord open = ClassifyFile(Joined(ScenarioLog("version-read"), "\n"));
  EXPECT_FALSE(open.forceBefore.has_value());
}

struct CutCase {
  const char* scenario;
  const char* lastLine;
  Step step;
  Cause cause;
  int writePercent;
};

TEST(ReportClassifier, ACutOffLogTellsWhereTheUpdateStopped) {
  const CutCase cases[] = {
      {"success", "can not find window", Step::kStart, Cause::kInterrupted, -1},
      {"success", "---start tp update---", Step::kBiosReset, Cause::kInterrupted, -1},
      {"success", "Initialized successfully.", Step::kTouchpad, Cause::kInterrupted, -1},
      {"success", "Open device success", Step::kForceOpen, Cause::kInterrupted, -1},
      {"success", "progress: 55", Step::kForceWrite, Cause::kInterrupted, 55},
      {"success", "upgrade finish ret = 0", Step::kForceVerify, Cause::kInterrupted, 99},
      {"success", "upgrade success", Step::kForceReadback, Cause::kInterrupted, 99},
      {"calibration-rescue", "checksum check failed", Step::kCalibration, Cause::kInterrupted, 99},
      // A retry that was cut: the attempt before it does not decide.
      {"connect-retried", ">> retry upgrade force firmware:2", Step::kForceWrite, Cause::kInterrupted, -1},
      // The failure was logged before the cut.
      {"tp-init", "tp update failed", Step::kTouchpad, Cause::kTpInit, -1},
  };
  for (const CutCase& c : cases) {
    SCOPED_TRACE(std::string(c.scenario) + " / " + c.lastLine);
    const RunRecord r = ClassifyFile(Joined(CutAfter(ScenarioLog(c.scenario), c.lastLine), "\r\n"));
    EXPECT_EQ(r.kind, Kind::kUpdate);
    EXPECT_EQ(r.outcome, Outcome::kInterrupted);
    EXPECT_EQ(r.cause, c.cause);
    EXPECT_STREQ(StepCode(r.lastStep), StepCode(c.step));
    EXPECT_EQ(r.writePercent, c.writePercent);
  }
}

TEST(ReportClassifier, DamageAroundTheLinesChangesNothingThatIsStillThere) {
  const Lines log = ScenarioLog("force-connect");
  std::string junk = "\x7f" "ELF\x01\x02\0\0\xff\xfe binary";
  junk.push_back('\0');
  const std::string megabyte(1 << 20, 'x');
  std::string mixed;
  for (size_t i = 0; i < log.size(); ++i) {
    mixed += log[i] + (i % 2 ? "\r\n" : "\n");
    if (i == 3) mixed += junk + "\n" + megabyte + "\n" + megabyte.substr(0, 5) + "\xc3\x28 bad utf-8\n";
  }
  EXPECT_EQ(ClassifyFile(mixed).cause, Cause::kForceConnect);

  // Cut inside the last line: "main returned: 1" is gone, the failure stays;
  // "main returned: " without its number is no result.
  const std::string whole = Joined(log, "\n");
  const RunRecord cut = ClassifyFile(whole.substr(0, whole.size() - 6));
  EXPECT_EQ(cut.outcome, Outcome::kInterrupted);
  EXPECT_EQ(cut.cause, Cause::kForceConnect);
  const std::string good = Joined(ScenarioLog("success"), "\r\n");
  EXPECT_EQ(ClassifyFile(good.substr(0, good.size() - 3)).outcome, Outcome::kInterrupted);

  // The session ended under the update: the process went with it.
  Lines ended = ScenarioLog("success");
  const std::string& last = ended.back();
  ended.insert(ended.end() - 1, last.substr(0, last.find(": ") + 2) + log_lines::shutdown_guard_cpp::kSessionEnding);
  const RunRecord session = ClassifyFile(Joined(ended, "\r\n"));
  EXPECT_EQ(session.outcome, Outcome::kInterrupted);
  EXPECT_EQ(session.evidence.value_or(""), log_lines::shutdown_guard_cpp::kSessionEnding);

  for (const std::string& notALog : {std::string(), junk, megabyte, std::string("Current version: x\n")}) {
    const RunRecord r = ClassifyFile(notALog);
    EXPECT_EQ(r.kind, Kind::kUnreadable);
    EXPECT_EQ(r.outcome, Outcome::kNone);
  }
}

TEST(ReportFleet, RecordsReadBackAndOddFilesAreCountedNotFatal) {
  const fs::path fleet = Scratch() / "fleet";
  fs::remove_all(fleet);
  fs::create_directories(fleet / "a");
  std::ofstream(fleet / "a" / "Calder_1.log") << Joined(ScenarioLog("success"), "\r\n");
  std::ofstream(fleet / "Calder_2\xe9.log") << Joined(ScenarioLog("force-open"), "\n");
  std::ofstream(fleet / "Calder_3.log") << "\x01\x02 not a log";
  std::ofstream(fleet / "other.log") << Joined(ScenarioLog("success"), "\n");  // not a run log name
  fs::create_directories(fleet / "locked");
  std::ofstream(fleet / "locked" / "Calder_4.log") << Joined(ScenarioLog("success"), "\n");
  fs::permissions(fleet / "locked", fs::perms::none);
  fs::create_directory_symlink(fleet / "a", fleet / "link");  // not followed, and not passed over either
  fs::create_symlink(fleet / "Calder_3.log", fleet / "a" / "Calder_5.log");  // read as the file
  const fs::path pipe = Scratch() / "Calder_pipe.log";
  fs::remove(pipe);
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);

  const fs::path records = Scratch() / "records.ndjson";
  std::FILE* out = std::fopen(records.c_str(), "wb");
  std::FILE* err = std::tmpfile();
  // The walk runs on this thread: as an ordinary user's, even under root.
  const int fsuid = ::setfsuid(65534);
  const FleetRead read = ReadFleet({fleet.string(), pipe.string()}, true, out, err);
  ::setfsuid(fsuid);
  fs::permissions(fleet / "locked", fs::perms::owner_all);
  std::fclose(out);
  std::fclose(err);
  EXPECT_EQ(read.inputsRead, 4u);
  // The pipe, the locked folder and the link: listed, counted, the run went on.
  EXPECT_EQ(read.inputsFailed, 3u);
  EXPECT_EQ(read.summary.runs, 5u);
  EXPECT_EQ(read.summary.inputsNotRead, 2u);
  const auto& unreadable = read.summary.unreadable;
  EXPECT_EQ(std::count(unreadable.begin(), unreadable.end(), (fleet / "locked").string()), 1);
  EXPECT_EQ(read.summary.unseenFolders, Lines({(fleet / "link").string(), (fleet / "locked").string()}));
  EXPECT_EQ(read.summary.Gate(0.0), GateVerdict::kFoldersNotSeen);
  EXPECT_EQ(read.summary.KindTotal(Kind::kUnreadable), 3u);
  EXPECT_EQ(read.summary.causes[static_cast<int>(Cause::kForceOpen)], 1u);
  EXPECT_EQ(read.summary.examples[static_cast<int>(Cause::kForceOpen)], (fleet / "Calder_2\xe9.log").string());

  // The records of one shard report the same fleet again; a name's bytes
  // that are not UTF-8 come back read as Latin-1; other lines are counted.
  std::ofstream(records, std::ios::app) << "{\"schema\":1}\nnot a record\n";
  err = std::tmpfile();
  const FleetRead again = ReadFleet({records.string()}, false, stdout, err);
  std::string problems(200, '\0');
  std::rewind(err);
  problems.resize(std::fread(&problems[0], 1, problems.size(), err));
  std::fclose(err);
  EXPECT_EQ(problems, "calder-report: " + records.string() + ": 2 lines are not records\n");
  EXPECT_EQ(again.summary.runs, 5u);
  EXPECT_EQ(again.summary.Updates(Outcome::kSuccess), 1u);
  EXPECT_EQ(again.summary.examples[static_cast<int>(Cause::kForceOpen)],
            (fleet / "Calder_2\xc3\xa9.log").string());
  EXPECT_EQ(again.summary.durations.Percentile(0.5), read.summary.durations.Percentile(0.5));
  fs::remove_all(Scratch());
}

}  // namespace
}  // namespace calder::report
