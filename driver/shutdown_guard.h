#pragma once

#include "platform/session_end.h"

namespace calder {

// What the system shows a person who tries to shut down during the update.
extern const wchar_t kShutdownBlockReason[];

// Holds off the end of the session from the moment the progress window exists
// until the update's final 100 %. Every call comes on the window's thread.
class ShutdownGuard : public SessionEndListener {
 public:
  explicit ShutdownGuard(ShutdownBlocker& blocker) : blocker_(blocker) {}

  void UpdateStarted();
  bool MaySessionEnd() override;
  // A forced end during the update logs its line and ends the process with 1.
  void SessionEnding(bool ending) override;
  void UpdateFinished() override;

  bool Blocking() const { return blocking_; }

 private:
  ShutdownBlocker& blocker_;
  bool blocking_ = false;
};

}  // namespace calder
