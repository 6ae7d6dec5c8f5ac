#include "driver/run_guards.h"

#include "base/log.h"
#include "base/log_lines.h"
#include "driver/calder.h"
#include "platform/update_lock.h"

namespace calder {

namespace lines = log_lines::run_guards_cpp;

bool BatteryAllowsUpdate(const PowerStatus& status) {
  if (status.acLine != 0) return true;
  if (status.chargePercent == PowerStatus::kUnknown) return true;
  const bool critical = status.batteryFlags != PowerStatus::kUnknown &&
                        (status.batteryFlags & PowerStatus::kCriticalFlag) != 0;
  return !critical && status.chargePercent >= kMinimumBatteryPercent;
}

RunAdmission::RunAdmission(const CommandLine& commandLine, UpdateLock* lock, PowerStatusSource* power)
    : lock_(lock), power_(power) {
  if (!TakeLock()) {
    // A refused run that was no update names what it was, so that its log
    // is not read as a refused update. A version report, with or without a
    // window, still gives its line.
    if (commandLine.mode == RunMode::kVersion) {
      PrintUnknownVersion();
      LOG(INFO) << lines::kVersionReportRefused;
    } else if (commandLine.mode != RunMode::kUpdate) {
      LOG(INFO) << lines::kRunWithoutUpdateRefused;
    }
    LOG(ERROR) << lines::kAnotherUpdateRunning;
    // A squatter or a denied lock reads apart from a concurrent update.
    if (lockError_ != 0) LOG(INFO) << lines::kLockError << lockError_;
    return;
  }
  admitted_ = commandLine.mode != RunMode::kUpdate || PowerAllowsUpdate();
}

RunAdmission::~RunAdmission() {
  if (locked_) lock_->Release();
}

bool RunAdmission::PowerAllowsUpdate() {
  if (power_ == nullptr) return true;
  const PowerStatus status = power_->Read();
  if (BatteryAllowsUpdate(status)) return true;
  LOG(ERROR) << lines::kBatteryTooLow << status.chargePercent << lines::kBatteryTooLowCharge
             << kMinimumBatteryPercent << lines::kBatteryTooLowNeeded;
  return false;
}

bool RunAdmission::TakeLock() {
  if (lock_ == nullptr) return true;
  const LockAttempt attempt = lock_->Acquire();
  switch (attempt.outcome) {
    case LockOutcome::Taken:
      break;
    case LockOutcome::TakenOver:
      LOG(INFO) << lines::kLockAbandoned;
      break;
    case LockOutcome::Held:
      lockError_ = attempt.error;
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
