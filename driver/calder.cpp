// The program's own lines show calder.cpp: the entry run, main, the update
// sequence and the version report live here.
#include "driver/calder.h"

#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "base/firmware_discovery.h"
#include "base/log.h"
#include "base/log_lines.h"
#include "base/tool_version.h"
#include "driver/entry_run.h"
#include "driver/power_request_guard.h"
#include "driver/run_guards.h"
#include "driver/run_marker.h"
#include "driver/shutdown_guard.h"
#include "driver/update_phases.h"
#include "bios/wmi_bios_tp_rst.h"
#include "force/force_update.h"
#include "hid/read_fw.h"
#include "platform/com_runtime.h"
#include "platform/environment.h"
#include "platform/progress.h"
#include "touchpad/tp_update.h"

namespace calder {

namespace lines = log_lines::calder_cpp;

namespace {

constexpr unsigned kPauseAfterBiosResetMs = 3000;
constexpr int kProgressAfterTouchpad = kTouchpadProgressEnd;

long InitializeCom() {
  return Env().com != nullptr ? Env().com->InitializeMultithreaded() : 0;
}

void UninitializeCom() {
  if (Env().com != nullptr) Env().com->Uninitialize();
}

void PostWhileShown(EntryPlatform& platform, int percent) {
  if (g_hProgressWnd != nullptr && g_bProgressWindowActive) platform.PostProgress(g_hProgressWnd, percent);
}

// An exception escaping main fails the run through the ordinary ending: else
// the window would stay, the lock stay held and shutdowns stay refused, or the
// runtime would end the process with the lock abandoned.
int RunDriver(const EntrySeams& seams, const CommandLine& line) {
  try {
    return seams.driver(line.argc, line.argv);
  } catch (...) {
    return 1;
  }
}

// The worker's last steps: no post after the close, then the helper told.
void CloseWindowAndTellHelper(EntryPlatform& platform) {
  g_bProgressWindowActive = false;
  platform.PostClose(g_hProgressWnd);
  g_hProgressWnd = nullptr;
  void* helper = platform.FindGestureHelper();
  if (helper != nullptr && g_bGestureHelperNotified) {
    platform.TellGestureHelper(helper, false);
    LOG(INFO) << lines::kHelperEnded;
  }
}

// Runs main on the worker, then reports 100 % and closes the window.
int RunMainOnWorker(const EntrySeams& seams, const CommandLine& line, ShutdownGuard& guard) {
  EntryPlatform& platform = seams.platform;
  platform.FineTimer(true);
  const int rc = RunDriver(seams, line);
  LOG(INFO) << lines::kMainReturned << rc;
  platform.FineTimer(false);
  guard.WorkerFinished();
  // Kept as the field sees it: the two posts are back to back, so the close
  // cancels the restart countdown that 100 % starts.
  PostWhileShown(platform, 100);
  CloseWindowAndTellHelper(platform);
  return rc;
}

// No worker, so no update: the window and the shutdown block go as after
// one, and the run fails. On the window's thread, so the close posted here
// ends the loop.
int EndWithoutWorker(EntryPlatform& platform, ShutdownGuard& guard) {
  LOG(ERROR) << lines::kWorkerNotStarted;
  guard.WorkerFinished();
  guard.UpdateFinished();
  CloseWindowAndTellHelper(platform);
  platform.RunMessageLoop();
  return 1;
}

// The progress window on this thread while main runs on a detached worker;
// main's result once both have finished.
int RunWithProgressWindow(const EntrySeams& seams, const CommandLine& line) {
  if (g_bProgressWindowActive) return 0;
  g_bProgressWindowActive = true;
  EntryPlatform& platform = seams.platform;
  ShutdownGuard guard;
  void* window = platform.ShowProgressWindow(guard);
  // Published before the worker starts, so its first post finds the window.
  g_hProgressWnd = window;
  if (window == nullptr) {
    // Without a window nothing would ever end the message loop: run the
    // update here, without progress display, rather than hang.
    LOG(ERROR) << lines::kWindowMissing;
    g_bProgressWindowActive = false;
    return RunMainOnWorker(seams, line, guard);
  }
  // No shutdown while the update runs: released at the worker's 100 %.
  guard.UpdateStarted(platform.ShutdownBlockerFor(window));
  auto task = std::make_shared<std::packaged_task<int()>>(
      [&seams, &line, &guard] { return RunMainOnWorker(seams, line, guard); });
  std::future<int> result = task->get_future();
  if (!platform.StartWorker([task] { (*task)(); })) return EndWithoutWorker(platform, guard);
  platform.RunMessageLoop();
  return result.get();
}

}  // namespace

void* g_hProgressWnd = nullptr;
bool g_bProgressWindowActive = false;
bool g_bGestureHelperNotified = false;

void WindowProgress::Post(int percent) { PostWhileShown(platform_, percent); }

int RunEntry(const EntrySeams& seams, const CommandLine& line) {
  LOG(INFO) << lines::kCurrentVersion << kToolVersion;
  const RunAdmission admission(line, seams.lock, seams.power);
  if (!admission.Admitted()) return 1;
  if (line.versionQuery) return RunDriver(seams, line);

  EntryPlatform& platform = seams.platform;
  if (void* helper = platform.FindGestureHelper()) {
    g_bGestureHelperNotified = true;
    platform.TellGestureHelper(helper, true);
    LOG(INFO) << lines::kHelperNotified;
  } else {
    g_bGestureHelperNotified = false;
    LOG(INFO) << lines::kHelperMissing;
  }
  return RunWithProgressWindow(seams, line);
}

UpdatePhases RealPhases() {
  return UpdatePhases{static_cast<bool (*)()>(&WMIBiosTPReset), &TPMain, &UpgradeForceFW,
                      &RunVersionReport};
}

UpdatePhases& Phases() {
  static UpdatePhases phases = RealPhases();
  return phases;
}

int main(int argc, char** argv) {
  PowerRequestGuard power(Env().power);
  switch (ReadCommandLine(argc, argv).mode) {
    case RunMode::kNoArgument:
      LOG(INFO) << lines::kFinish;
      return 0;
    case RunMode::kUpdate:
      return RunUpdateSequence();
    case RunMode::kVersion:
      return Phases().versionReport();
    case RunMode::kOther:
      break;
  }
  LOG(INFO) << lines::kInvalidInput;
  return 1;
}

int RunUpdateSequence() {
  const long hr = InitializeCom();
  if (hr < 0) {
    LOG(INFO) << lines::kComFailed << hr;
    return 1;
  }
  WriteProcessPathMarker();
  LOG(INFO) << lines::kStartTouchpad;

  const std::string firmware = FindFirstFileInFolder(GetModuleDir() + kTouchpadFirmwareFolder);
  std::vector<std::string> args = {"TPUpdate.exe", "upgrade", firmware};
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(&arg[0]);
  argv.push_back(nullptr);

  if (Phases().biosTouchpadReset()) {
    LOG(INFO) << lines::kBiosResetOk;
  } else {
    LOG(INFO) << lines::kBiosResetFailed;
  }
  SleepMs(kPauseAfterBiosResetMs);

  if (Phases().touchpadUpgrade(3, argv.data()) != 0) {
    LOG(ERROR) << lines::kTouchpadFailed;
    return 1;
  }
  LOG(INFO) << lines::kTouchpadOk;
  LOG(INFO) << lines::kTouchpadOver;
  PostProgress(kProgressAfterTouchpad);

  LOG(INFO) << lines::kStartForce;
  if (Phases().forceUpgrade()) {
    LOG(INFO) << lines::kForceOk;
    UninitializeCom();
    DeleteProcessPathMarker();
    return 0;
  }
  LOG(ERROR) << lines::kForceFailed;
  UninitializeCom();
  return 1;
}

void PrintUnknownVersion() { std::cout << "compound version:" << "0.0.0.0.0.0.0.0" << std::endl; }

int RunVersionReport() {
  auto reader = std::make_unique<ReadFW>();
  reader->Init();
  std::string message = "no error";
  std::string tpVersion;
  std::string forceVersion;
  // Every failed query gives the same line; the reason is only in the log.
  const auto ReportUnknownVersion = [](const std::string& text) {
    PrintUnknownVersion();
    LOG(ERROR) << text;
    return 1;
  };

  // Calibration first, then force, then touchpad; the first failure ends it.
  if (!reader->ReadCalibrateData(message)) return ReportUnknownVersion(message);
  LOG(INFO) << lines::kCalibration << message;
  if (!reader->ReadForceVersion(forceVersion, message)) return ReportUnknownVersion(message);
  if (!reader->ReadTouchVersion(tpVersion, message)) return ReportUnknownVersion(message);

  LOG(INFO) << lines::kVersions << tpVersion << " force version : " << forceVersion;
  std::cout << "compound version:" << tpVersion << "." << forceVersion << std::endl;
  reader->CloseHandles();
  reader.reset();  // Kept as the field sees it: closes both handles again, harmlessly.
  LOG(INFO) << lines::kFinish;
  return 0;
}

}  // namespace calder
