#include "platform/update_lock.h"

namespace calder {

namespace {

// The system lacks the call: ERROR_CALL_NOT_IMPLEMENTED, ERROR_PROC_NOT_FOUND.
constexpr unsigned long kNoLockSupport[] = {120, 127};

}  // namespace

LockAttempt LockFailure(unsigned long error) {
  for (unsigned long missing : kNoLockSupport) {
    if (error == missing) return {LockOutcome::NotCreatable, error};
  }
  return {LockOutcome::Held, error};
}

}  // namespace calder
