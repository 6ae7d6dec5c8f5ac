#include "platform/win32/guards_win32.h"

#include <sddl.h>

#include <string>

#include "platform/win32/library_binding.h"

namespace calder {

namespace {

// Protected DACL: full access for SYSTEM and Administrators only.
constexpr wchar_t kLockSecurity[] = L"D:P(A;;GA;;;SY)(A;;GA;;;BA)";
// Enough to wait on the mutex and release it, whoever created it.
constexpr DWORD kLockAccess = SYNCHRONIZE | MUTEX_MODIFY_STATE;
// The private namespace's name and its boundary's.
constexpr wchar_t kNamespaceAlias[] = L"KoruCalder";

// Bound at run time: Wine 8 exports none of these but the first (a stub
// that returns null), so their absence is how a system without private
// namespaces shows itself. The integrity label is bound apart: a system
// with namespaces but without it cannot make the boundary an elevated
// token's alone, so the lock then counts as held.
struct NamespaceCalls {
  decltype(&CreateBoundaryDescriptorW) createBoundary;
  decltype(&AddSIDToBoundaryDescriptor) addSid;
  decltype(&DeleteBoundaryDescriptor) deleteBoundary;
  decltype(&CreatePrivateNamespaceW) createNamespace;
  decltype(&OpenPrivateNamespaceW) openNamespace;
};

struct LabelCall {
  decltype(&AddIntegrityLabelToBoundaryDescriptor) addLabel;
};

void FillLabelCall(EntryPointFinder& find, LabelCall* call) {
  find("AddIntegrityLabelToBoundaryDescriptor", &call->addLabel);
}

const LabelCall* IntegrityLabels() {
  static LibraryBinding<LabelCall> kernel32(L"kernel32.dll", LibraryFolder::kSystem, FillLabelCall);
  static const LabelCall* const call = kernel32.Bind();
  return call;
}

void FillNamespaceCalls(EntryPointFinder& find, NamespaceCalls* calls) {
  find("CreateBoundaryDescriptorW", &calls->createBoundary);
  find("AddSIDToBoundaryDescriptor", &calls->addSid);
  find("DeleteBoundaryDescriptor", &calls->deleteBoundary);
  find("CreatePrivateNamespaceW", &calls->createNamespace);
  find("OpenPrivateNamespaceW", &calls->openNamespace);
}

const NamespaceCalls* PrivateNamespaces() {
  static LibraryBinding<NamespaceCalls> kernel32(L"kernel32.dll", LibraryFolder::kSystem, FillNamespaceCalls);
  static const NamespaceCalls* const calls = kernel32.Bind();
  return calls;
}

// Creates the namespace, or opens it when another calder.exe made it first;
// its boundary holds the Administrators group and the high integrity label,
// so only an elevated token can create it. ERROR_SUCCESS or the failing
// call's error.
DWORD OpenLockNamespace(const NamespaceCalls& calls, const LabelCall& label, SECURITY_ATTRIBUTES* attributes,
                        HANDLE* space) {
  BYTE administrators[SECURITY_MAX_SID_SIZE];
  BYTE highLabel[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof administrators;
  if (!CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size)) return GetLastError();
  size = sizeof highLabel;
  if (!CreateWellKnownSid(WinHighLabelSid, nullptr, highLabel, &size)) return GetLastError();
  SetLastError(ERROR_SUCCESS);
  HANDLE boundary = calls.createBoundary(kNamespaceAlias, 0);
  if (boundary == nullptr) return GetLastError();
  DWORD error = ERROR_SUCCESS;
  if (!calls.addSid(&boundary, administrators) || !label.addLabel(&boundary, highLabel)) {
    error = GetLastError();
    if (error == ERROR_SUCCESS) error = ERROR_INVALID_PARAMETER;
  } else if ((*space = calls.createNamespace(attributes, boundary, kNamespaceAlias)) == nullptr) {
    error = GetLastError();
    if (error == ERROR_ALREADY_EXISTS) {
      *space = calls.openNamespace(boundary, kNamespaceAlias);
      error = *space == nullptr ? GetLastError() : ERROR_SUCCESS;
    }
  }
  calls.deleteBoundary(boundary);
  return error;
}

}  // namespace

LockAttempt Win32UpdateLock::Acquire() {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(kLockSecurity, SDDL_REVISION_1, &descriptor,
                                                            nullptr)) {
    return LockFailure(GetLastError());
  }
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor, FALSE};
  std::wstring name = std::wstring(L"Global\\") + name_;
  DWORD error = ERROR_SUCCESS;
  if (const NamespaceCalls* calls = PrivateNamespaces()) {
    const LabelCall* label = IntegrityLabels();
    if (label == nullptr) {
      LocalFree(descriptor);
      // Not LockFailure: a missing entry point there means no lock at all.
      return {LockOutcome::Held, ERROR_PROC_NOT_FOUND};
    }
    error = OpenLockNamespace(*calls, *label, &attributes, &namespace_);
    name = std::wstring(kNamespaceAlias) + L"\\" + name_;
  }
  if (error == ERROR_SUCCESS) {
    mutex_ = CreateMutexExW(&attributes, name.c_str(), 0, kLockAccess);
    if (mutex_ == nullptr) error = GetLastError();
  }
  LocalFree(descriptor);
  if (error != ERROR_SUCCESS || mutex_ == nullptr) return LockFailure(error);
  switch (WaitForSingleObject(mutex_, 0)) {
    case WAIT_OBJECT_0:
      return {LockOutcome::Taken, 0};
    case WAIT_ABANDONED:
      return {LockOutcome::TakenOver, 0};
    case WAIT_TIMEOUT:
      return {LockOutcome::Held, 0};
    default:
      return LockFailure(GetLastError());
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
