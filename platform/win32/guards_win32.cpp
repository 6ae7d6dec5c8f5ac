#include "platform/win32/guards_win32.h"

#include <sddl.h>

namespace calder {

namespace {

// Protected DACL: full access for SYSTEM and Administrators only.
constexpr wchar_t kLockSecurity[] = L"D:P(A;;GA;;;SY)(A;;GA;;;BA)";
// Enough to wait on the mutex and release it, whoever created it.
constexpr DWORD kLockAccess = SYNCHRONIZE | MUTEX_MODIFY_STATE;

}  // namespace

LockAttempt Win32UpdateLock::Acquire() {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, FALSE};
  if (ConvertStringSecurityDescriptorToSecurityDescriptorW(kLockSecurity, SDDL_REVISION_1,
                                                           &descriptor, nullptr)) {
    attributes.lpSecurityDescriptor = descriptor;
  }
  mutex_ = CreateMutexExW(&attributes, name_, 0, kLockAccess);
  const DWORD createError = GetLastError();
  if (descriptor != nullptr) LocalFree(descriptor);
  if (mutex_ == nullptr) return {LockOutcome::NotCreatable, createError};
  switch (WaitForSingleObject(mutex_, 0)) {
    case WAIT_OBJECT_0:
      return {LockOutcome::Taken, 0};
    case WAIT_ABANDONED:
      return {LockOutcome::TakenOver, 0};
    case WAIT_TIMEOUT:
      return {LockOutcome::Held, 0};
    default:
      return {LockOutcome::NotCreatable, GetLastError()};
  }
}

void Win32UpdateLock::Release() {
  if (mutex_ != nullptr) ReleaseMutex(mutex_);
}

PowerStatus Win32PowerStatus::Read() {
  PowerStatus status;
  SYSTEM_POWER_STATUS raw = {};
  if (!GetSystemPowerStatus(&raw)) return status;
  status.acLine = raw.ACLineStatus;
  status.batteryFlags = raw.BatteryFlag;
  status.chargePercent = raw.BatteryLifePercent;
  return status;
}

// Under Wine both calls are stubs that fail: the answer to the end-session
// query is what holds the session, the reason only explains it on Windows.
void Win32ShutdownBlocker::Block(const wchar_t* reason) {
  ShutdownBlockReasonCreate(window_, reason);
}

void Win32ShutdownBlocker::Unblock() { ShutdownBlockReasonDestroy(window_); }

void Win32ShutdownBlocker::EndProcess(int exitCode) {
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
}

}  // namespace calder
