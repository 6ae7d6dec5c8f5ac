#pragma once

#include "platform/power_status.h"

namespace calder {

// A flash starts on battery only from this charge up.
constexpr int kMinimumBatteryPercent = 25;

// False on battery with a known charge below kMinimumBatteryPercent, or with
// the battery flagged critical; AC power, an unknown AC status and an unknown
// charge (no battery) let the update go on.
bool BatteryAllowsUpdate(const PowerStatus& status);

// Exactly one argument, "--version": main runs on the entry thread, no window.
bool IsVersionQuery(int argc, char** argv);

// The guards that come before any window, message or device: the machine-wide
// update lock for every run, and the battery for "--update". Built first
// thing in WinMain; a refused run logs its one line and exits 1. The lock is
// held until the object dies, on the thread that made it.
class RunAdmission {
 public:
  RunAdmission(int argc, char** argv);
  ~RunAdmission();
  RunAdmission(const RunAdmission&) = delete;
  RunAdmission& operator=(const RunAdmission&) = delete;

  bool Admitted() const { return admitted_; }

 private:
  bool TakeLock();

  bool admitted_ = false;
  bool locked_ = false;
};

}  // namespace calder
