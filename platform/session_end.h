#pragma once

namespace calder {

// What the update's window hears when the session would end, and when the
// update is over. The portable core answers; the window only relays.
class SessionEndListener {
 public:
  virtual ~SessionEndListener() = default;
  // A request to end the session: true lets it end.
  virtual bool MaySessionEnd() = 0;
  // The session's end was decided: ending is true when it really ends.
  virtual void SessionEnding(bool ending) = 0;
  // The window showed 100 %: the update is over once the worker has finished.
  virtual void UpdateFinished() = 0;
};

// The platform side of holding off a shutdown.
class ShutdownBlocker {
 public:
  virtual ~ShutdownBlocker() = default;
  // The reason the system shows a person who tries to shut down.
  virtual void Block(const wchar_t* reason) = 0;
  virtual void Unblock() = 0;
  // Ends the process at once with this code: no destructor runs.
  virtual void EndProcess(int exitCode) = 0;
};

}  // namespace calder
