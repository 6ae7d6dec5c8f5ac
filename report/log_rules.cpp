#include "report/log_rules.h"

#include <cstring>
#include <iterator>
#include <vector>

#include "base/log_lines.h"

namespace calder::report {

namespace {

enum class Match { kExact, kPrefix };

namespace driver = log_lines::calder_cpp;
namespace guards = log_lines::run_guards_cpp;
namespace tp = log_lines::tp_update_cpp;
namespace force = log_lines::force_update_cpp;
namespace writer = log_lines::update_fw_cpp;

constexpr const char* kDriver = driver::kFile;
constexpr const char* kTouchpad = tp::kFile;
constexpr const char* kForce = force::kFile;
constexpr const char* kWriter = writer::kFile;

struct LinePattern {
  Pattern id;
  const char* text;
  Match match;
  const char* file;  // null: any source file
  bool error;        // only at ERROR level
};

// How each of calder.exe's lines is recognised. An empty text stands for any
// message of its level.
const LinePattern kPatterns[] = {
    {kCurrentVersion, driver::kCurrentVersion, Match::kPrefix, nullptr, false},
    {kMainReturned, driver::kMainReturned, Match::kPrefix, nullptr, false},
    {kFinish, driver::kFinish, Match::kExact, kDriver, false},
    {kInvalidInput, driver::kInvalidInput, Match::kExact, kDriver, false},
    {kComFailed, driver::kComFailed, Match::kPrefix, kDriver, false},
    {kStartTouchpad, driver::kStartTouchpad, Match::kExact, kDriver, false},
    {kTpInitializing, tp::kInitializing, Match::kExact, kTouchpad, false},
    {kTpError, tp::kError, Match::kPrefix, kTouchpad, false},
    {kTpInitFailed, tp::kInitFailed, Match::kPrefix, kTouchpad, false},
    {kTpNoFile, tp::kUpgradingFrom, Match::kExact, kTouchpad, false},
    {kTpFileEmpty, tp::kFileEmpty, Match::kExact, kTouchpad, false},
    {kTpFileShort, tp::kFileShort, Match::kExact, kTouchpad, false},
    {kTpUpgraded, tp::kUpgraded, Match::kExact, kTouchpad, false},
    {kTpFailed, driver::kTouchpadFailed, Match::kExact, kDriver, false},
    {kTpUpgradeFailed, tp::kUpgradeFailed, Match::kPrefix, kTouchpad,
     false},
    {kTpGetChecksumFailed, tp::kGetChecksumFailed, Match::kPrefix, kTouchpad, false},
    {kTpChecksumFailed, tp::kChecksumFailed, Match::kExact, kTouchpad, false},
    {kTpOver, driver::kTouchpadOver, Match::kExact, kDriver, false},
    {kStartForce, driver::kStartForce, Match::kExact, kDriver, false},
    {kForceCurrent, force::kCurrentVersion, Match::kPrefix, kForce, false},
    {kInitDriverFail, force::kInitDriverFailed, Match::kPrefix, kForce, false},
    {kForceError, "", Match::kPrefix, kForce, true},
    {kOpenFail, force::kOpenFailed, Match::kPrefix, kForce, false},
    {kWriterStart, writer::kWriting, Match::kExact, kWriter, false},
    {kLoadFileFailed, writer::kLoadFileFailed, Match::kExact, kWriter, false},
    {kConnectError, writer::kConnectError, Match::kPrefix, kWriter, false},
    {kWriteError, writer::kWriteError, Match::kPrefix, kWriter, false},
    {kProgress, writer::kProgress, Match::kPrefix, kWriter, false},
    {kWriteFinished, writer::kFinished, Match::kPrefix, kWriter, false},
    {kReadVersion, writer::kReadVersion, Match::kPrefix, kWriter, false},
    {kTargetVersion, writer::kTargetVersion, Match::kPrefix, kWriter, false},
    {kUpgradeSuccess, writer::kUpgradeSuccess, Match::kExact, kWriter, false},
    {kUpgradeFailed, writer::kUpgradeFailed, Match::kExact, kWriter, false},
    {kChecksumFailed, force::kChecksumFailed, Match::kPrefix, kForce, false},
    {kForceCalidata, force::kCalibration, Match::kPrefix, kForce, false},
    {kForceOk, driver::kForceOk, Match::kExact, kDriver, false},
    {kForceFailed, driver::kForceFailed, Match::kExact, kDriver, false},
    {kVersionCalidata, driver::kCalibration, Match::kPrefix, kDriver, false},
    {kTpVersion, driver::kVersions, Match::kPrefix, kDriver, false},
    {kVersionError, driver::kQueryError, Match::kPrefix, kDriver, true},
    {kVersionErrorEmpty, "", Match::kExact, kDriver, true},
    {kAnotherUpdate, guards::kAnotherUpdateRunning, Match::kExact, nullptr, false},
    {kBatteryLow, guards::kBatteryTooLow, Match::kPrefix, nullptr, false},
    {kSessionEnding, log_lines::shutdown_guard_cpp::kSessionEnding, Match::kExact, nullptr, false},
    {kVersionRefused, guards::kVersionReportRefused, Match::kExact, nullptr, false},
    {kNoUpdateRefused, guards::kRunWithoutUpdateRefused, Match::kExact, nullptr, false},
};
static_assert(std::size(kPatterns) == kPatternCount);

// The files a line can come from; patterns are looked up per file so a line
// is held against a handful of texts, not all of them.
const char* const kGroupFiles[] = {kDriver, kTouchpad, kForce, kWriter};
constexpr int kGroups = static_cast<int>(std::size(kGroupFiles)) + 1;  // the last: any other file

struct PatternIndex {
  size_t length[kPatternCount];
  std::vector<const LinePattern*> byGroup[kGroups];
  PatternSet whole = 0;
  PatternIndex() {
    for (const LinePattern& p : kPatterns) {
      length[p.id] = std::strlen(p.text);
      if (p.match == Match::kExact) whole |= Bit(p.id);
      for (int g = 0; g < kGroups; ++g) {
        const bool inGroup = g < kGroups - 1 ? p.file == nullptr || p.file == kGroupFiles[g] : p.file == nullptr;
        if (inGroup) byGroup[g].push_back(&p);
      }
    }
  }
};

const PatternIndex& Index() {
  static const PatternIndex index;
  return index;
}

int GroupOf(std::string_view file) {
  for (int g = 0; g < kGroups - 1; ++g) {
    if (file == kGroupFiles[g]) return g;
  }
  return kGroups - 1;
}

}  // namespace

PatternSet MatchLine(const LogLine& line) {
  const PatternIndex& index = Index();
  const bool error = line.level == "ERROR";
  PatternSet set = 0;
  for (const LinePattern* p : index.byGroup[GroupOf(line.file)]) {
    if (p->error && !error) continue;
    const size_t n = index.length[p->id];
    if (line.message.size() < n || (p->match == Match::kExact && line.message.size() != n)) continue;
    if (std::memcmp(line.message.data(), p->text, n) == 0) set |= Bit(p->id);
  }
  return set;
}

PatternSet WholeMessagePatterns() { return Index().whole; }

std::string_view ValueAfter(Pattern pattern, std::string_view message) {
  const size_t length = Index().length[pattern];
  return message.size() >= length ? message.substr(length) : std::string_view();
}

const CauseRow kCauseRows[] = {
    {Cause::kComInit, Scope::kRun, {{kComFailed}}},
    {Cause::kTpLibrary, Scope::kRun, {{kTpInitFailed, kTpError, true}}},
    {Cause::kTpInit, Scope::kRun, {{kTpInitFailed}}},
    // No file, an empty or short one, or one that could not be opened again
    // for the check (the failure follows the upgrade without a word).
    {Cause::kTpFirmware,
     Scope::kRun,
     {{kTpNoFile}, {kTpFileEmpty}, {kTpFileShort}, {kTpFailed, kTpUpgraded}}},
    {Cause::kTpUpgrade, Scope::kRun, {{kTpUpgradeFailed}}},
    {Cause::kTpChecksum, Scope::kRun, {{kTpGetChecksumFailed}, {kTpChecksumFailed}}},
    // The bridge's reason follows its failed driver start.
    {Cause::kForceLibrary, Scope::kRun, {{kForceError, kInitDriverFail}}},
    {Cause::kForceOpen, Scope::kRun, {{kInitDriverFail}, {kOpenFail}}},
    {Cause::kForceFirmware, Scope::kLastAttempt, {{kLoadFileFailed}}},
    {Cause::kForceConnect, Scope::kLastAttempt, {{kConnectError}}},
    {Cause::kForceWrite, Scope::kLastAttempt, {{kWriteError}}},
    {Cause::kForceVersion, Scope::kLastAttempt, {{kUpgradeFailed, kTargetVersion}}},
    {Cause::kForceChecksum, Scope::kLastAttempt, {{kChecksumFailed}}},
    {Cause::kVersionRead, Scope::kRun, {{kVersionError}, {kVersionErrorEmpty}}},
    {Cause::kAnotherInstance, Scope::kRun, {{kAnotherUpdate}}},
    {Cause::kBatteryLow, Scope::kRun, {{kBatteryLow}}},
};
const int kCauseRowCount = static_cast<int>(std::size(kCauseRows));

const StepMark kStepMarks[] = {
    {kStartTouchpad, Step::kBiosReset},  {kTpInitializing, Step::kTouchpad},
    {kStartForce, Step::kForceOpen},     {kWriterStart, Step::kForceWrite},
    {kWriteFinished, Step::kForceVerify}, {kUpgradeSuccess, Step::kForceReadback},
    {kChecksumFailed, Step::kCalibration},
};
const int kStepMarkCount = static_cast<int>(std::size(kStepMarks));

}  // namespace calder::report
