#include "driver/shutdown_guard.h"

#include "base/log.h"
#include "base/log_lines.h"

namespace calder {

const wchar_t kShutdownBlockReason[] = L"正在升级触控板固件，请勿关机";

void ShutdownGuard::UpdateStarted(ShutdownBlocker& blocker) {
  if (blocking_) return;
  blocker_ = &blocker;
  blocking_ = true;
  workerFinished_ = false;
  blocker_->Block(kShutdownBlockReason);
}

bool ShutdownGuard::MaySessionEnd() {
  if (!blocking_) return true;
  LOG(INFO) << log_lines::shutdown_guard_cpp::kShutdownRefused;
  return false;
}

void ShutdownGuard::SessionEnding(bool ending) {
  if (!ending || !blocking_) return;
  // The logger flushes every line, so the line is on disk before the end.
  LOG(ERROR) << log_lines::shutdown_guard_cpp::kSessionEnding;
  blocker_->EndProcess(1);
}

void ShutdownGuard::UpdateFinished() {
  if (!blocking_ || !workerFinished_) return;
  blocking_ = false;
  blocker_->Unblock();
}

}  // namespace calder
