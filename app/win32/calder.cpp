// The process entry: WinMain and the run around the driver routine. The file
// shares its name with the driver's so that the entry's log lines read calder.cpp.
#include <windows.h>
#include <mmsystem.h>

#include <functional>
#include <future>
#include <string>
#include <thread>

#include "driver/calder.h"
#include "base/log.h"
#include "driver/logging.h"
#include "driver/run_guards.h"
#include "driver/shutdown_guard.h"
#include "platform/win32/guards_win32.h"
#include "platform/win32/library_loading.h"
#include "platform/win32/progress_globals.h"
#include "platform/win32/win32_seams.h"
#include "ui/skin/paint_manager.h"
#include "ui/win32/ui_main_window.h"

namespace {

// The touch-gesture helper, another process, listens on a message-only window.
constexpr wchar_t kGestureHelperClass[] = L"KoruTouchGestureClass";
constexpr wchar_t kGestureHelperName[] = L"koru_touch_gesture";
constexpr UINT kUpdateBegins = WM_USER + 1;
constexpr UINT kUpdateEnded = WM_USER + 2;

// Filled once and kept until the process ends.
std::function<int()> g_task;
std::future<int> g_result;

HWND FindGestureHelper() {
  return FindWindowExW(HWND_MESSAGE, nullptr, kGestureHelperClass, kGestureHelperName);
}

// Runs main on the worker, then reports 100 % and closes the window.
// Kept as the field sees it: the two posts are back to back, so the close
// cancels the restart countdown that 100 % starts.
int RunMainOnWorker() {
  timeBeginPeriod(1);
  const int rc = calder::main(__argc, __argv);
  LOG(INFO) << calder::kMainReturnedLine << rc;
  timeEndPeriod(1);
  if (g_hProgressWnd != nullptr && g_bProgressWindowActive) {
    PostMessageW(g_hProgressWnd, WM_UPDATE_PROGRESS, 100, 0);
  }
  g_bProgressWindowActive = false;
  PostMessageW(g_hProgressWnd, WM_CLOSE, 0, 0);
  g_hProgressWnd = nullptr;
  const HWND helper = FindGestureHelper();
  if (helper != nullptr && g_bGestureHelperNotified) {
    SendMessageW(helper, kUpdateEnded, 0, 0);
    LOG(INFO) << "WM_USER + 2 message send ";
  }
  return rc;
}

// The progress window on this thread while task runs on a detached worker;
// task's result once both have finished.
int RunWithProgressWindow(std::function<int()> task) {
  if (g_bProgressWindowActive) return 0;
  g_bProgressWindowActive = true;
  if (!g_task) g_task = std::move(task);

  calder::UIMainWindow* window = calder::CreateProgressWindow();
  // Published before the worker starts, so its first post finds the window.
  g_hProgressWnd = window->GetHWND();
  if (g_hProgressWnd == nullptr) {
    // Without a window nothing would ever end the message loop: run the
    // update here, without progress display, rather than hang.
    LOG(ERROR) << "progress window could not be created";
    g_bProgressWindowActive = false;
    return g_task ? g_task() : 0;
  }
  // No shutdown while the update runs: released at its 100 %.
  static calder::Win32ShutdownBlocker blocker(g_hProgressWnd);
  static calder::ShutdownGuard guard(blocker);
  guard.UpdateStarted();
  window->ListenForSessionEnd(&guard);

  if (g_task) {
    std::packaged_task<int()> packaged(g_task);
    g_result = packaged.get_future();
    std::thread(std::move(packaged)).detach();
  }
  calder::CPaintManagerUI::MessageLoop();

  if (!g_result.valid()) throw std::future_error(std::future_errc::no_state);
  return g_result.get();
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  calder::RestrictLibrarySearch();
  calder::InstallWin32Environment();
  calder::InitLogging();
  LOG(INFO) << calder::kCurrentVersionLine << calder::kToolVersion;

  const calder::RunAdmission admission(__argc, __argv);
  if (!admission.Admitted()) return 1;
  if (calder::IsVersionQuery(__argc, __argv)) return calder::main(__argc, __argv);

  const HWND helper = FindGestureHelper();
  if (helper != nullptr) {
    g_bGestureHelperNotified = true;
    SendMessageW(helper, kUpdateBegins, 0, 0);
    LOG(INFO) << calder::kHelperNotifiedLine;
  } else {
    g_bGestureHelperNotified = false;
    LOG(INFO) << calder::kHelperMissingLine;
  }
  return RunWithProgressWindow(&RunMainOnWorker);
}
