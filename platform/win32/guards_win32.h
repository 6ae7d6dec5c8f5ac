#pragma once

#include <windows.h>

#include "platform/power_status.h"
#include "platform/session_end.h"
#include "platform/update_lock.h"

namespace calder {

// Machine-wide: the global namespace spans every session, the device
// service's (session 0) and the signed-in person's alike.
constexpr wchar_t kUpdateLockName[] = L"Global\\KoruCalderFirmwareUpdate";

// A named mutex that SYSTEM and Administrators may take and nobody else may
// open, so an ordinary user can neither hold it nor see it. It stays open
// until the process ends; a holder that dies leaves it abandoned.
class Win32UpdateLock : public UpdateLock {
 public:
  explicit Win32UpdateLock(const wchar_t* name = kUpdateLockName) : name_(name) {}
  LockAttempt Acquire() override;
  void Release() override;

 private:
  const wchar_t* name_;
  HANDLE mutex_ = nullptr;
};

class Win32PowerStatus : public PowerStatusSource {
 public:
  PowerStatus Read() override;
};

// ShutdownBlockReasonCreate and Destroy must come from the thread that owns
// the window.
class Win32ShutdownBlocker : public ShutdownBlocker {
 public:
  explicit Win32ShutdownBlocker(HWND window) : window_(window) {}
  void Block(const wchar_t* reason) override;
  void Unblock() override;
  void EndProcess(int exitCode) override;

 private:
  HWND window_;
};

}  // namespace calder
