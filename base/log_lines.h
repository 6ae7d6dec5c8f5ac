#pragma once

// Every text calder.exe logs that another program or a test reads back, named
// once. Grouped by the source file whose name the line shows: a line moves
// to another file only together with its group. Texts are kept as the field
// sees them, quirks and trailing blanks included. Pieces that follow a text
// (a number, a version) are noted beside it.
namespace calder::log_lines {

// calder.cpp: the entry, main, the update sequence and the version report.
namespace calder_cpp {
inline constexpr char kFile[] = "calder.cpp";
inline constexpr char kCurrentVersion[] = "Current version: ";  // + tool version
inline constexpr char kHelperNotified[] = "WM_USER + 1 message send ";
inline constexpr char kHelperMissing[] = "can not find window";
inline constexpr char kHelperEnded[] = "WM_USER + 2 message send ";
inline constexpr char kMainReturned[] = "main returned: ";  // + main's result
inline constexpr char kWindowMissing[] = "progress window could not be created";  // ERROR
// ERROR: the system gave no thread for the update; the run ends with exit 1.
inline constexpr char kWorkerNotStarted[] = "worker thread could not be started";
inline constexpr char kFinish[] = "finish---------------------------------------";
inline constexpr char kInvalidInput[] = "invalid input";
inline constexpr char kComFailed[] = "CoInitializeEx failed: ";  // + HRESULT
inline constexpr char kStartTouchpad[] = "---start tp update---";
inline constexpr char kBiosResetOk[] = "WMIBiosTPReset success";
inline constexpr char kBiosResetFailed[] = "WMIBiosTPReset failed";
inline constexpr char kTouchpadFailed[] = "tp update failed";  // ERROR
inline constexpr char kTouchpadOk[] = "tp update success";
inline constexpr char kTouchpadOver[] = "---tp update over---";
inline constexpr char kStartForce[] = "---start force update---";
inline constexpr char kForceOk[] = "force update success";
inline constexpr char kForceFailed[] = "force update failed";  // ERROR
inline constexpr char kCalibration[] = "calidata: ";          // + calibration data
inline constexpr char kVersions[] = "tp version : ";           // + versions
inline constexpr char kQueryError[] = "err: ";                 // ERROR, a failed query's text
}  // namespace calder_cpp

// run_guards.cpp: the guards that come before any window, message or device.
namespace run_guards_cpp {
inline constexpr char kFile[] = "run_guards.cpp";
// ERROR: another calder.exe holds the update lock; this run touches nothing.
inline constexpr char kAnotherUpdateRunning[] = "another update is running";
// INFO, just after the line above when the system gave an error (a squatter,
// a denied lock), followed by its code; none when the lock is simply held.
inline constexpr char kLockError[] = "update lock: error ";
// INFO, just before the line above when the refused run was no update: what
// was refused, so that the run's mode can be seen.
inline constexpr char kVersionReportRefused[] = "version report refused";
inline constexpr char kRunWithoutUpdateRefused[] = "run without an update refused";
// INFO: the lock's last holder died holding it; this run takes it over.
inline constexpr char kLockAbandoned[] = "previous update ended without releasing the lock";
// INFO, followed by the system's error code: the run goes on unguarded.
inline constexpr char kLockUnavailable[] = "update lock could not be created: error ";
// ERROR: "battery too low for an update: 24 % on battery, needs 25 % or AC power".
inline constexpr char kBatteryTooLow[] = "battery too low for an update: ";
inline constexpr char kBatteryTooLowCharge[] = " % on battery, needs ";
inline constexpr char kBatteryTooLowNeeded[] = " % or AC power";
}  // namespace run_guards_cpp

// shutdown_guard.cpp: the session's end during an update.
namespace shutdown_guard_cpp {
// INFO, once per refused request to end the session.
inline constexpr char kShutdownRefused[] = "shutdown refused: update in progress";
// ERROR: the session ends anyway (forced); the process ends with exit code 1.
inline constexpr char kSessionEnding[] = "session ending during update";
}  // namespace shutdown_guard_cpp

// crash_ending.cpp: a fault or an exception nobody handled, on any thread.
namespace crash_ending_cpp {
inline constexpr char kFile[] = "crash_ending.cpp";
// ERROR, the one line of a crashed run (exit code 1): the code as %08X,
// then where: "unhandled exception 0xC0000005 in btl_upgrade.dll+0x1A2B",
// or "unhandled exception 0xC0000005 at 0x1A2B" outside any module.
inline constexpr char kUnhandled[] = "unhandled exception 0x";
inline constexpr char kUnhandledIn[] = " in ";
inline constexpr char kUnhandledOffset[] = "+0x";
inline constexpr char kUnhandledAt[] = " at 0x";
}  // namespace crash_ending_cpp

// tp_update.cpp: the touchpad upgrade command interpreter.
namespace tp_update_cpp {
inline constexpr char kFile[] = "tp_update.cpp";
inline constexpr char kInitializing[] = "Initializing...";
inline constexpr char kError[] = "ERROR: ";  // at INFO, + the library's reason
inline constexpr char kInitFailed[] = "ERROR: Init failed with error code: ";  // + code
inline constexpr char kUpgradingFrom[] = "Upgrading from:";                      // + file
inline constexpr char kFileEmpty[] = "file size == 0,exit";
inline constexpr char kFileShort[] = "file read incomplete,exit";
inline constexpr char kUpgraded[] = "SUCCESS: Upgrade completed successfully!";
inline constexpr char kUpgradeFailed[] = "ERROR: Upgrade failed with error code: %d ";  // + code
inline constexpr char kGetChecksumFailed[] = "ERROR: Get checksum failed: ";           // + code
inline constexpr char kChecksumFailed[] = "Upgrade checksum failed!";
}  // namespace tp_update_cpp

// force_update.cpp: the force upgrade procedure.
namespace force_update_cpp {
inline constexpr char kFile[] = "force_update.cpp";
inline constexpr char kCurrentVersion[] = "current force version: ";  // + version
inline constexpr char kInitDriverFailed[] = "init driver fail: ";     // + code
inline constexpr char kOpenFailed[] = "Open device fail: ";           // + code
inline constexpr char kChecksumFailed[] =
    "checksum check failed!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!";
inline constexpr char kCalibration[] = "calidata: ";  // + calibration data
}  // namespace force_update_cpp

// update_fw.cpp: the force firmware writer.
namespace update_fw_cpp {
inline constexpr char kFile[] = "update_fw.cpp";
inline constexpr char kWriting[] = "upgrading: writing to chip";
inline constexpr char kLoadFileFailed[] = "LoadFile failed";
inline constexpr char kConnectError[] = "jump Uboot connect error : ";  // + result
inline constexpr char kWriteError[] = "write flash data Error ";       // + result
inline constexpr char kProgress[] = "progress: ";                      // + percent
inline constexpr char kFinished[] = "upgrade finish ret = ";           // + 0
inline constexpr char kReadVersion[] = "read force version form firmware : ";  // + version
inline constexpr char kTargetVersion[] = "target force version : ";            // + version
inline constexpr char kUpgradeSuccess[] = "upgrade success";
inline constexpr char kUpgradeFailed[] = "upgrade failed";
}  // namespace update_fw_cpp

}  // namespace calder::log_lines
