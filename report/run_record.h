#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <string>

namespace calder::report {

enum class Kind { kUpdate, kVersion, kNone, kUnreadable, kCount };
enum class Outcome { kNone, kSuccess, kFailure, kRefused, kInterrupted, kCount };
// In the order in which the first matching cause decides.
enum class Cause {
  kNone,
  kComInit,
  kTpLibrary,
  kTpInit,
  kTpFirmware,
  kTpUpgrade,
  kTpChecksum,
  kForceLibrary,
  kForceOpen,
  kForceFirmware,
  kForceConnect,
  kForceWrite,
  kForceVersion,
  kForceChecksum,
  kVersionRead,
  kAnotherInstance,
  kBatteryLow,
  kInterrupted,
  kUnknown,
  kCount
};
// Where an interrupted update was when its log stops.
enum class Step {
  kNone,
  kStart,
  kBiosReset,
  kTouchpad,
  kForceOpen,
  kForceWrite,
  kForceVerify,
  kForceReadback,
  kCalibration,
  kCount
};

// The stable codes of the records; null for kNone.
const char* KindCode(Kind kind);
const char* OutcomeCode(Outcome outcome);
const char* CauseCode(Cause cause);
const char* StepCode(Step step);
// The value whose code is text, or false.
bool KindFromCode(std::string_view text, Kind* kind);
bool OutcomeFromCode(std::string_view text, Outcome* outcome);
bool CauseFromCode(std::string_view text, Cause* cause);
bool StepFromCode(std::string_view text, Step* step);

constexpr int64_t kNoTime = -1;
// No run lasts longer: a span beyond it comes from a damaged log or record.
constexpr int64_t kLongestRunMs = 366LL * 24 * 3600 * 1000;

// What one run's log says.
struct RunRecord {
  Kind kind = Kind::kUnreadable;
  Outcome outcome = Outcome::kNone;
  Cause cause = Cause::kNone;
  std::optional<std::string> evidence;  // the deciding line's message
  std::optional<std::string> started;   // ISO 8601, local time
  int64_t totalMs = kNoTime;
  int64_t touchpadMs = kNoTime;
  int64_t forceMs = kNoTime;
  std::optional<std::string> forceBefore;
  std::optional<std::string> forceTarget;
  std::optional<std::string> forceAfter;
  int forceAttempts = 0;
  bool calibrationRescue = false;
  Step lastStep = Step::kNone;
  int writePercent = -1;  // -1: none
};

}  // namespace calder::report
