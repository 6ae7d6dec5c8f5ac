// The process entry: the Win32 side of the entry run, and WinMain wiring it.
// Every decision, and every line the entry logs, is the driver's.
#include <windows.h>
#include <mmsystem.h>

#include <functional>
#include <memory>

#include "driver/calder.h"
#include "driver/entry_run.h"
#include "driver/logging.h"
#include "driver/recording_layout.h"
#include "base/firmware_discovery.h"
#include "hid/recording_hid_host.h"
#include "platform/environment.h"
#include "platform/win32/crash_ending.h"
#include "platform/process_info.h"
#include "platform/win32/guards_win32.h"
#include "platform/win32/library_loading.h"
#include "platform/win32/process_clock.h"
#include "platform/win32/trace_file_win32.h"
#include "platform/win32/win32_seams.h"
#include "ui/skin/paint_manager.h"
#include "ui/win32/progress_messages.h"
#include "ui/win32/ui_main_window.h"

namespace {

// The touch-gesture helper, another process, listens on a message-only window.
constexpr wchar_t kGestureHelperClass[] = L"KoruTouchGestureClass";
constexpr wchar_t kGestureHelperName[] = L"koru_touch_gesture";
constexpr UINT kUpdateBegins = WM_USER + 1;
constexpr UINT kUpdateEnded = WM_USER + 2;

class Win32Entry : public calder::EntryPlatform {
 public:
  void* FindGestureHelper() override {
    return FindWindowExW(HWND_MESSAGE, nullptr, kGestureHelperClass, kGestureHelperName);
  }
  void TellGestureHelper(void* helper, bool updateBegins) override {
    SendMessageW(static_cast<HWND>(helper), updateBegins ? kUpdateBegins : kUpdateEnded, 0, 0);
  }
  void* ShowProgressWindow(calder::SessionEndListener& listener) override {
    calder::UIMainWindow* window = calder::CreateProgressWindow();
    window->ListenForSessionEnd(&listener);
    return window->GetHWND();
  }
  calder::ShutdownBlocker& ShutdownBlockerFor(void* window) override {
    blocker_ = std::make_unique<calder::Win32ShutdownBlocker>(static_cast<HWND>(window));
    calder::CrashLiftsShutdownBlock(blocker_.get());
    return *blocker_;
  }
  void PostProgress(void* window, int percent) override {
    PostMessageW(static_cast<HWND>(window), WM_UPDATE_PROGRESS, static_cast<WPARAM>(percent), 0);
  }
  void PostClose(void* window) override { PostMessageW(static_cast<HWND>(window), WM_CLOSE, 0, 0); }
  void RunMessageLoop() override { calder::CPaintManagerUI::MessageLoop(); }
  // A thread the system will not give is a false, never an exception.
  bool StartWorker(std::function<void()> work) override {
    auto* job = new std::function<void()>(std::move(work));
    HANDLE thread = CreateThread(nullptr, 0, &RunJob, job, 0, nullptr);
    if (thread == nullptr) {
      delete job;
      return false;
    }
    CloseHandle(thread);
    return true;
  }
  void FineTimer(bool on) override { on ? timeBeginPeriod(1) : timeEndPeriod(1); }

 private:
  static DWORD WINAPI RunJob(void* job) {
    std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(job));
    (*work)();
    return 0;
  }

  std::unique_ptr<calder::Win32ShutdownBlocker> blocker_;
};

// From a recording layout calder.exe also records its own HID traffic, in a
// trace beside its log; nothing else changes, and outside one nothing does.
void RecordHidInRecordingLayout(const calder::CommandLine& line) {
  using namespace calder;
  const std::string programDir = GetModuleDir();
  if (Env().files == nullptr || Env().hid == nullptr || !IsRecordingLayout(*Env().files, programDir)) {
    return;
  }
  const std::string run = line.argc > 1 && line.argv[1] != nullptr ? line.argv[1] : "";
  const auto open = [programDir, run]() -> TraceSink* {
    ProcessInfo& process = *Env().process;
    const LocalTime now = process.Now();
    const std::string path = HidTracePath(now, process.ProcessId());
    Win32TraceFile* file = path.empty() ? nullptr : Win32TraceFile::CreateNew(path);
    if (file == nullptr) return nullptr;
    Trace header;
    header.library = TraceLibrary::kHid;
    header.started = IsoLocalTime(now, UtcOffsetMinutes());
    header.pid = static_cast<int64_t>(process.ProcessId());
    header.run = run;
    file->Append(FormatTraceHeader(header));
    return file;
  };
  static RecordingHidHost recorder(*Env().hid, &MicrosecondsSinceProcessStart, programDir, open);
  Env().hid = &recorder;
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  calder::SilenceErrorDialogs();
  calder::RestrictLibrarySearch();
  calder::InstallWin32Environment();
  static Win32Entry entry;
  static calder::WindowProgress progress(entry);
  calder::Env().progress = &progress;
  calder::InitLogging();
  const calder::CommandLine line = calder::ReadCommandLine(__argc, __argv);
  RecordHidInRecordingLayout(line);

  static calder::Win32UpdateLock lock;
  calder::EndRunOnCrash(&lock);
  static calder::Win32PowerStatus power;
  const calder::EntrySeams seams{entry, &lock, &power, &calder::main};
  return calder::RunEntry(seams, line);
}
