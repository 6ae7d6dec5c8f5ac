#include "driver/run_guards.h"

#include <string>

#include "base/guard_lines.h"
#include "base/log.h"
#include "driver/calder.h"
#include "platform/environment.h"
#include "platform/update_lock.h"

namespace calder {

namespace lines = guard_lines;

bool BatteryAllowsUpdate(const PowerStatus& status) {
  if (status.acLine != 0) return true;
  if (status.chargePercent == PowerStatus::kUnknown) return true;
  const bool critical = status.batteryFlags != PowerStatus::kUnknown &&
                        (status.batteryFlags & PowerStatus::kCriticalFlag) != 0;
  return !critical && status.chargePercent >= kMinimumBatteryPercent;
}

bool IsVersionQuery(int argc, char** argv) {
  return argc == 2 && argv[1] != nullptr && std::string(argv[1]) == "--version";
}

namespace {

bool FirstArgumentIs(int argc, char** argv, const char* wanted) {
  return argc >= 2 && argv[1] != nullptr && std::string(argv[1]) == wanted;
}

bool PowerAllowsUpdate() {
  if (Env().powerStatus == nullptr) return true;
  const PowerStatus status = Env().powerStatus->Read();
  if (BatteryAllowsUpdate(status)) return true;
  LOG(ERROR) << lines::kBatteryTooLow << status.chargePercent << lines::kBatteryTooLowCharge
             << kMinimumBatteryPercent << lines::kBatteryTooLowNeeded;
  return false;
}

}  // namespace

RunAdmission::RunAdmission(int argc, char** argv) {
  if (!TakeLock()) {
    // A version report, with or without a window, still gives its line.
    if (FirstArgumentIs(argc, argv, "--version")) PrintUnknownVersion();
    LOG(ERROR) << lines::kAnotherUpdateRunning;
    return;
  }
  admitted_ = !FirstArgumentIs(argc, argv, "--update") || PowerAllowsUpdate();
}

RunAdmission::~RunAdmission() {
  if (locked_) Env().updateLock->Release();
}

bool RunAdmission::TakeLock() {
  if (Env().updateLock == nullptr) return true;
  const LockAttempt attempt = Env().updateLock->Acquire();
  switch (attempt.outcome) {
    case LockOutcome::Taken:
      break;
    case LockOutcome::TakenOver:
      LOG(INFO) << lines::kLockAbandoned;
      break;
    case LockOutcome::Held:
      return false;
    case LockOutcome::NotCreatable:
      // Unguarded is better than no update at all.
      LOG(INFO) << lines::kLockUnavailable << attempt.error;
      return true;
  }
  locked_ = true;
  return true;
}

}  // namespace calder
