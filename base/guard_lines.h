#pragma once

// The log lines of the guards around an update. Field tools match these
// texts in fleet logs: change one only together with its readers.
namespace calder::guard_lines {

// ERROR: another calder.exe holds the update lock; this run touches nothing.
constexpr char kAnotherUpdateRunning[] = "another update is running";
// INFO: the lock's last holder died holding it; this run takes it over.
constexpr char kLockAbandoned[] = "previous update ended without releasing the lock";
// INFO, followed by the system's error code: the run goes on unguarded.
constexpr char kLockUnavailable[] = "update lock could not be created: error ";

// ERROR: "battery too low for an update: 24 % on battery, needs 25 % or AC power".
constexpr char kBatteryTooLow[] = "battery too low for an update: ";
constexpr char kBatteryTooLowCharge[] = " % on battery, needs ";
constexpr char kBatteryTooLowNeeded[] = " % or AC power";

// INFO, once per refused request to end the session.
constexpr char kShutdownRefused[] = "shutdown refused: update in progress";
// ERROR: the session ends anyway (forced); the process ends with exit code 1.
constexpr char kSessionEnding[] = "session ending during update";

}  // namespace calder::guard_lines
