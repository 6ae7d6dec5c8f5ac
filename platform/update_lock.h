#pragma once

namespace calder {

// What taking the machine-wide update lock gave.
enum class LockOutcome {
  Taken,         // it was free
  TakenOver,     // its last holder ended without releasing it
  Held,          // another process holds it, or it exists and cannot be opened
  NotCreatable,  // the system offers no such lock at all
};

struct LockAttempt {
  LockOutcome outcome = LockOutcome::NotCreatable;
  unsigned long error = 0;  // the system's error code when it failed
};

// A lock that could not be made, opened or waited on, by the system's error
// code. Only a system without the calls runs unguarded; any other failure
// (access denied, the name taken by another kind of object, no reason given)
// may be a squatter or a live update, so it counts as held.
LockAttempt LockFailure(unsigned long error);

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
