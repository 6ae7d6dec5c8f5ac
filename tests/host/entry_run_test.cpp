#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/entry_run.h"
#include "platform/session_end.h"
#include "platform/update_lock.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

using Strings = std::vector<std::string>;

// The entry's platform and lock, recording every call in one sequence with
// the log lines written before it. The window relays each 100 % it is sent,
// as the real one does; the worker runs at once.
struct EntryRecorder : EntryPlatform, ShutdownBlocker, UpdateLock {
  void Note(const std::string& event) {
    const Strings lines = log.Lines();
    events.insert(events.end(), lines.begin() + logged, lines.end());
    logged = lines.size();
    if (!event.empty()) events.push_back(event);
  }
  void* FindGestureHelper() override {
    Note("find");
    return (finds++ == 0 ? helperAtStart : helperAtEnd) ? &helper : nullptr;
  }
  void TellGestureHelper(void*, bool begins) override { Note(begins ? "begins" : "ended"); }
  void* ShowProgressWindow(SessionEndListener& l) override { return Note("show"), listener = &l, window; }
  ShutdownBlocker& ShutdownBlockerFor(void*) override { return *this; }
  void PostProgress(void*, int percent) override {
    Note("post " + std::to_string(percent));
    if (percent == 100) listener->UpdateFinished();
  }
  void PostClose(void* w) override { Note(w == nullptr ? "close null" : "close"); }
  void RunMessageLoop() override { Note("loop"); }
  bool StartWorker(std::function<void()> work) override {
    if (!workerStarts) return Note("no worker"), false;
    return work(), true;
  }
  void FineTimer(bool on) override { Note(on ? "1 ms" : "timer back"); }
  void Block(const wchar_t*) override { Note("block"); }
  void Unblock() override { Note("unblock"); }
  void EndProcess(int) override { Note("end process"); }
  LockAttempt Acquire() override { return {held ? LockOutcome::Held : LockOutcome::Taken, 0}; }
  void Release() override { Note("release"); }

  test::LogCapture log;
  size_t logged = 0;
  Strings events;
  bool helperAtStart = true, helperAtEnd = true, held = false, workerStarts = true;
  int helper = 0, finds = 0;
  void* window = &helper;
  SessionEndListener* listener = nullptr;
};

enum class Main { kReturns3, kThrows, kNoWorker };

// Admission, the version shortcut, the helper at both ends and the worker's
// closing order; the exit code is main's, or 1 for a refusal or an exception.
TEST(EntryRunTest, RunsEachModeInItsOrder) {
  const std::string version = "INFO calder.cpp: Current version: 20260422-01";
  const std::string returned = "INFO calder.cpp: main returned: ";
  const std::string begun = "INFO calder.cpp: WM_USER + 1 message send ";
  const std::string ended = "INFO calder.cpp: WM_USER + 2 message send ";
  const std::string missing = "INFO calder.cpp: can not find window";
  const Strings worker = {"block", "1 ms", "main", "post 20", "post 100"};
  const struct Case {
    Strings args;
    bool held, helperAtStart, helperAtEnd, window;
    Main main;
    int exit;
    Strings events;
  } cases[] = {
      {{"--update"}, false, true, true, true, Main::kReturns3, 3,
       {version, "find", "begins", begun, "show", "block", "1 ms", "main", "post 20", "post 100",
        returned + "3", "timer back", "post 100", "unblock", "close", "find", "ended", ended, "loop",
        "release"}},
      {{}, false, false, true, true, Main::kReturns3, 3,
       {version, "find", missing, "show", "block", "1 ms", "main", "post 20", "post 100", returned + "3",
        "timer back", "post 100", "unblock", "close", "find", "loop", "release"}},
      {{"--version", "x"}, false, true, false, true, Main::kThrows, 1,
       {version, "find", "begins", begun, "show", "block", "1 ms", "main", returned + "1", "timer back",
        "post 100", "unblock", "close", "find", "loop", "release"}},
      {{"--update"}, false, false, false, false, Main::kReturns3, 3,
       {version, "find", missing, "show", "ERROR calder.cpp: progress window could not be created", "1 ms",
        "main", returned + "3", "timer back", "close null", "find", "release"}},
      {{"--update"}, false, true, true, true, Main::kNoWorker, 1,
       {version, "find", "begins", begun, "show", "block", "no worker",
        "ERROR calder.cpp: worker thread could not be started", "unblock", "close", "find", "ended", ended,
        "loop", "release"}},
      {{"--version"}, false, true, true, true, Main::kReturns3, 3, {version, "main", "release"}},
      {{"--version"}, false, true, true, true, Main::kThrows, 1, {version, "main", "release"}},
      {{"--version"}, true, true, true, true, Main::kReturns3, 1,
       {version, "INFO run_guards.cpp: version report refused",
        "ERROR run_guards.cpp: another update is running"}},
  };
  for (const Case& c : cases) {
    EntryRecorder platform;
    platform.held = c.held;
    platform.helperAtStart = c.helperAtStart;
    platform.helperAtEnd = c.helperAtEnd;
    if (!c.window) platform.window = nullptr;
    platform.workerStarts = c.main != Main::kNoWorker;
    WindowProgress progress(platform);
    const auto driver = [&](int, char**) {
      platform.Note("main");
      if (c.main == Main::kThrows) throw 1;
      progress.Post(20);
      progress.Post(100);  // a writer's last block, before the read-back
      return 3;
    };
    Strings args = {"calder.exe"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(&arg[0]);
    testing::internal::CaptureStdout();
    const int exit = RunEntry({platform, &platform, nullptr, driver},
                              ReadCommandLine(static_cast<int>(argv.size()), argv.data()));
    testing::internal::GetCapturedStdout();
    platform.Note("");
    EXPECT_EQ(exit, c.exit) << c.events.size();
    EXPECT_EQ(platform.events, c.events) << c.events.size();
    progress.Post(5);  // after the close nothing reaches the window
    EXPECT_EQ(platform.events.size(), c.events.size());
  }
}

}  // namespace
}  // namespace calder
