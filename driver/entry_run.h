#pragma once

#include <functional>

#include "driver/run_mode.h"
#include "platform/progress.h"

namespace calder {

class PowerStatusSource;
class SessionEndListener;
class ShutdownBlocker;
class UpdateLock;

// Shared by the entry's thread and the worker, written in the order RunEntry
// keeps: no progress post can follow the close request.
extern void* g_hProgressWnd;
extern bool g_bProgressWindowActive;
extern bool g_bGestureHelperNotified;

// What the entry asks of the system, and nothing it decides.
class EntryPlatform {
 public:
  virtual ~EntryPlatform() = default;
  // The gesture helper's message-only window, searched afresh; null when none.
  virtual void* FindGestureHelper() = 0;
  // Sent, not posted: returns once the helper has handled it.
  virtual void TellGestureHelper(void* helper, bool updateBegins) = 0;
  // Creates and shows the progress window, which relays its session-end
  // messages and every 100 % it shows to listener; null when none was made.
  virtual void* ShowProgressWindow(SessionEndListener& listener) = 0;
  // What holds off a shutdown with the shown window.
  virtual ShutdownBlocker& ShutdownBlockerFor(void* window) = 0;
  virtual void PostProgress(void* window, int percent) = 0;
  // Posted even to a null window: results are not checked.
  virtual void PostClose(void* window) = 0;
  // Until the window, closing, posts the quit message.
  virtual void RunMessageLoop() = 0;
  // Runs work on a new, detached thread; false when none could start.
  virtual bool StartWorker(std::function<void()> work) = 0;
  // The system timer at 1 ms while on.
  virtual void FineTimer(bool on) = 0;
};

// Posts progress to the progress window while it is published and active.
class WindowProgress : public ProgressPoster {
 public:
  explicit WindowProgress(EntryPlatform& platform) : platform_(platform) {}
  void Post(int percent) override;

 private:
  EntryPlatform& platform_;
};

using DriverRoutine = std::function<int(int argc, char** argv)>;

struct EntrySeams {
  EntryPlatform& platform;
  UpdateLock* lock = nullptr;          // none: unguarded
  PowerStatusSource* power = nullptr;  // none: the battery is not asked
  DriverRoutine driver;                // main, or a stand-in
};

// The process entry once logging is set up: the version line, the admission,
// the version shortcut, the gesture helper, the progress window, and the
// worker's closing order. Returns the exit code. Defined in calder.cpp, whose
// name its lines show.
int RunEntry(const EntrySeams& seams, const CommandLine& commandLine);

}  // namespace calder
