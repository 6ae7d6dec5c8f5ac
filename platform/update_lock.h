#pragma once

namespace calder {

// What taking the machine-wide update lock gave.
enum class LockOutcome {
  Taken,         // it was free
  TakenOver,     // its last holder ended without releasing it
  Held,          // another process holds it
  NotCreatable,  // the lock itself could not be made or waited on
};

struct LockAttempt {
  LockOutcome outcome = LockOutcome::NotCreatable;
  unsigned long error = 0;  // the system's error code for NotCreatable
};

// One lock that every calder.exe on the machine sees, whatever its session.
class UpdateLock {
 public:
  virtual ~UpdateLock() = default;
  // Does not wait: a lock held elsewhere gives Held at once.
  virtual LockAttempt Acquire() = 0;
  // Called on the thread that acquired it, at the end of a run that did.
  virtual void Release() = 0;
};

}  // namespace calder
