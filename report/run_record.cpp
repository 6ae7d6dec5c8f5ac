#include "report/run_record.h"

#include <iterator>

namespace calder::report {

namespace {

const char* const kKindCodes[] = {"update", "version", "none", "unreadable"};
const char* const kOutcomeCodes[] = {nullptr, "success", "failure", "refused", "interrupted"};
const char* const kCauseCodes[] = {
    nullptr,        "com-init",       "tp-library",    "tp-init",        "tp-firmware",
    "tp-upgrade",   "tp-checksum",    "force-library", "force-open",     "force-firmware",
    "force-connect", "force-write",   "force-version", "force-checksum", "version-read",
    "another-instance", "battery-low", "interrupted",  "unknown"};
const char* const kStepCodes[] = {nullptr,       "start",        "bios-reset",
                                  "touchpad",    "force-open",   "force-write",
                                  "force-verify", "force-readback", "calibration"};

static_assert(std::size(kKindCodes) == static_cast<size_t>(Kind::kCount));
static_assert(std::size(kOutcomeCodes) == static_cast<size_t>(Outcome::kCount));
static_assert(std::size(kCauseCodes) == static_cast<size_t>(Cause::kCount));
static_assert(std::size(kStepCodes) == static_cast<size_t>(Step::kCount));

template <typename Enum, size_t N>
bool FromCode(const char* const (&codes)[N], std::string_view text, Enum* value) {
  for (size_t i = 0; i < N; ++i) {
    if (codes[i] != nullptr && text == codes[i]) {
      *value = static_cast<Enum>(i);
      return true;
    }
  }
  return false;
}

}  // namespace

const char* KindCode(Kind kind) { return kKindCodes[static_cast<size_t>(kind)]; }
const char* OutcomeCode(Outcome outcome) { return kOutcomeCodes[static_cast<size_t>(outcome)]; }
const char* CauseCode(Cause cause) { return kCauseCodes[static_cast<size_t>(cause)]; }
const char* StepCode(Step step) { return kStepCodes[static_cast<size_t>(step)]; }

bool KindFromCode(std::string_view text, Kind* kind) { return FromCode(kKindCodes, text, kind); }
bool OutcomeFromCode(std::string_view text, Outcome* outcome) {
  return FromCode(kOutcomeCodes, text, outcome);
}
bool CauseFromCode(std::string_view text, Cause* cause) {
  return FromCode(kCauseCodes, text, cause);
}
bool StepFromCode(std::string_view text, Step* step) { return FromCode(kStepCodes, text, step); }

}  // namespace calder::report
