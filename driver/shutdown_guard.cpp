#include "driver/shutdown_guard.h"

#include "base/guard_lines.h"
#include "base/log.h"

namespace calder {

const wchar_t kShutdownBlockReason[] = L"正在升级触控板固件，请勿关机";

void ShutdownGuard::UpdateStarted() {
  if (blocking_) return;
  blocking_ = true;
  blocker_.Block(kShutdownBlockReason);
}

bool ShutdownGuard::MaySessionEnd() {
  if (!blocking_) return true;
  LOG(INFO) << guard_lines::kShutdownRefused;
  return false;
}

void ShutdownGuard::SessionEnding(bool ending) {
  if (!ending || !blocking_) return;
  // The logger flushes every line, so the line is on disk before the end.
  LOG(ERROR) << guard_lines::kSessionEnding;
  blocker_.EndProcess(1);
}

void ShutdownGuard::UpdateFinished() {
  if (!blocking_) return;
  blocking_ = false;
  blocker_.Unblock();
}

}  // namespace calder
