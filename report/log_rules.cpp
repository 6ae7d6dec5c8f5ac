#include "report/log_rules.h"

#include <cstring>
#include <iterator>
#include <vector>

#include "driver/log_texts.h"

namespace calder::report {

namespace {

enum class Match { kExact, kPrefix };

constexpr char kDriver[] = "calder.cpp";
constexpr char kTouchpad[] = "tp_update.cpp";
constexpr char kForce[] = "force_update.cpp";
constexpr char kWriter[] = "update_fw.cpp";

struct LinePattern {
  Pattern id;
  const char* text;
  Match match;
  const char* file;  // null: any source file
  bool error;        // only at ERROR level
};

// The texts as calder.exe logs them, quirks included.
const LinePattern kPatterns[] = {
    {kCurrentVersion, kCurrentVersionLine, Match::kPrefix, nullptr, false},
    {kMainReturned, kMainReturnedLine, Match::kPrefix, nullptr, false},
    {kFinish, kFinishLine, Match::kExact, kDriver, false},
    {kInvalidInput, "invalid input", Match::kExact, kDriver, false},
    {kComFailed, "CoInitializeEx failed: ", Match::kPrefix, kDriver, false},
    {kStartTouchpad, "---start tp update---", Match::kExact, kDriver, false},
    {kTpInitializing, "Initializing...", Match::kExact, kTouchpad, false},
    {kTpError, "ERROR: ", Match::kPrefix, kTouchpad, false},
    {kTpInitFailed, "ERROR: Init failed with error code: ", Match::kPrefix, kTouchpad, false},
    {kTpNoFile, "Upgrading from:", Match::kExact, kTouchpad, false},
    {kTpFileEmpty, "file size == 0,exit", Match::kExact, kTouchpad, false},
    {kTpFileShort, "file read incomplete,exit", Match::kExact, kTouchpad, false},
    {kTpUpgraded, "SUCCESS: Upgrade completed successfully!", Match::kExact, kTouchpad, false},
    {kTpFailed, "tp update failed", Match::kExact, kDriver, false},
    {kTpUpgradeFailed, "ERROR: Upgrade failed with error code: ", Match::kPrefix, kTouchpad,
     false},
    {kTpGetChecksumFailed, "ERROR: Get checksum failed: ", Match::kPrefix, kTouchpad, false},
    {kTpChecksumFailed, "Upgrade checksum failed!", Match::kExact, kTouchpad, false},
    {kTpOver, "---tp update over---", Match::kExact, kDriver, false},
    {kStartForce, "---start force update---", Match::kExact, kDriver, false},
    {kForceCurrent, "current force version: ", Match::kPrefix, kForce, false},
    {kInitDriverFail, "init driver fail: ", Match::kPrefix, kForce, false},
    {kForceError, "", Match::kPrefix, kForce, true},
    {kOpenFail, "Open device fail: ", Match::kPrefix, kForce, false},
    {kWriterStart, "upgrading: writing to chip", Match::kExact, kWriter, false},
    {kLoadFileFailed, "LoadFile failed", Match::kExact, kWriter, false},
    {kConnectError, "jump Uboot connect error : ", Match::kPrefix, kWriter, false},
    {kWriteError, "write flash data Error ", Match::kPrefix, kWriter, false},
    {kProgress, "progress: ", Match::kPrefix, kWriter, false},
    {kWriteFinished, "upgrade finish ret = ", Match::kPrefix, kWriter, false},
    {kReadVersion, "read force version form firmware : ", Match::kPrefix, kWriter, false},
    {kTargetVersion, "target force version : ", Match::kPrefix, kWriter, false},
    {kUpgradeSuccess, "upgrade success", Match::kExact, kWriter, false},
    {kUpgradeFailed, "upgrade failed", Match::kExact, kWriter, false},
    {kChecksumFailed, "checksum check failed!", Match::kPrefix, kForce, false},
    {kForceCalidata, "calidata: ", Match::kPrefix, kForce, false},
    {kForceOk, "force update success", Match::kExact, kDriver, false},
    {kForceFailed, "force update failed", Match::kExact, kDriver, false},
    {kVersionCalidata, "calidata: ", Match::kPrefix, kDriver, false},
    {kTpVersion, "tp version : ", Match::kPrefix, kDriver, false},
    {kVersionError, "err: ", Match::kPrefix, kDriver, true},
    {kVersionErrorEmpty, "", Match::kExact, kDriver, true},
    {kAnotherUpdate, kAnotherUpdateText, Match::kExact, nullptr, false},
    {kBatteryLow, kBatteryLowText, Match::kPrefix, nullptr, false},
    {kSessionEnding, kSessionEndingText, Match::kExact, nullptr, false},
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
