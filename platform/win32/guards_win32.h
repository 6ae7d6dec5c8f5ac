#pragma once

#include <windows.h>

#include "platform/power_status.h"
#include "platform/session_end.h"
#include "platform/update_lock.h"

namespace calder {

// Machine-wide: a private namespace spans every session, the device
// service's (session 0) and the signed-in person's alike.
constexpr wchar_t kUpdateLockName[] = L"KoruCalderFirmwareUpdate";

// A mutex in a private namespace whose boundary names the Administrators
// group, so only an elevated token can create the namespace, and whose DACL
// admits SYSTEM and Administrators only, so nobody else can open it: an
// ordinary user can neither create the name first nor hold it. Where the
// system has no private namespaces (Wine), the same mutex is made in Global\.
// Anything that keeps it from being opened counts as held (LockFailure). It
// stays open until the process ends; a holder that dies leaves it abandoned.
class Win32UpdateLock : public UpdateLock {
 public:
  explicit Win32UpdateLock(const wchar_t* name = kUpdateLockName) : name_(name) {}
  LockAttempt Acquire() override;
  void Release() override;

 private:
  const wchar_t* name_;
  HANDLE namespace_ = nullptr;
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
