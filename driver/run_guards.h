#pragma once

#include "driver/run_mode.h"
#include "platform/power_status.h"

namespace calder {

class UpdateLock;

// A flash starts on battery only from this charge up.
constexpr int kMinimumBatteryPercent = 25;

// False on battery with a known charge below kMinimumBatteryPercent, or with
// the battery flagged critical; AC power, an unknown AC status and an unknown
// charge (no battery) let the update go on.
bool BatteryAllowsUpdate(const PowerStatus& status);

// The guards that come before any window, message or device: the machine-wide
// update lock for every run, and the battery for "--update". Made first thing
// by the entry; a refused run logs its lines and exits 1. The lock is held
// until the object dies, on the thread that made it. Without a lock or a
// power source that guard lets the run go on.
class RunAdmission {
 public:
  RunAdmission(const CommandLine& commandLine, UpdateLock* lock, PowerStatusSource* power);
  ~RunAdmission();
  RunAdmission(const RunAdmission&) = delete;
  RunAdmission& operator=(const RunAdmission&) = delete;

  bool Admitted() const { return admitted_; }

 private:
  bool TakeLock();
  bool PowerAllowsUpdate();

  UpdateLock* lock_;
  PowerStatusSource* power_;
  bool admitted_ = false;
  bool locked_ = false;
  unsigned long lockError_ = 0;  // the system's, when the lock was refused with one
};

}  // namespace calder
