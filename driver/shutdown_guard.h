#pragma once

#include <atomic>

#include "platform/session_end.h"

namespace calder {

// What the system shows a person who tries to shut down during the update.
extern const wchar_t kShutdownBlockReason[];

// Holds off the end of the session from the moment the progress window exists
// until the window shows 100 % after the worker's main has returned: a 100 %
// that the writer posts from its last block comes before the read-back and
// releases nothing. Every call but WorkerFinished comes on the window's thread.
class ShutdownGuard : public SessionEndListener {
 public:
  void UpdateStarted(ShutdownBlocker& blocker);
  // From the worker, before it posts its own 100 %.
  void WorkerFinished() { workerFinished_ = true; }
  bool MaySessionEnd() override;
  // A forced end during the update logs its line and ends the process with 1.
  void SessionEnding(bool ending) override;
  void UpdateFinished() override;

  bool Blocking() const { return blocking_; }

 private:
  ShutdownBlocker* blocker_ = nullptr;
  bool blocking_ = false;
  std::atomic<bool> workerFinished_{false};
};

}  // namespace calder
