#include "platform/win32/folder_security.h"

#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

namespace calder {
namespace {

// Owner Administrators; protected DACL, inherited by what is created inside.
constexpr char kProtectedFolder[] =
    "O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FR;;;WD)";

PathOwner OwnerOf(HANDLE handle) {
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetSecurityInfo(handle, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                      nullptr, nullptr, &descriptor) != ERROR_SUCCESS ||
      owner == nullptr) {
    if (descriptor != nullptr) LocalFree(descriptor);
    return PathOwner::kUnreadable;
  }
  const bool trusted = IsWellKnownSid(owner, WinLocalSystemSid) ||
                       IsWellKnownSid(owner, WinBuiltinAdministratorsSid) ||
                       IsTrustedInstaller(owner);
  const bool ours = !trusted && IsRunningAccount(owner);
  LocalFree(descriptor);
  if (trusted) return PathOwner::kSystemOrAdministrators;
  return ours ? PathOwner::kRunningAccount : PathOwner::kOther;
}

}  // namespace

bool IsTrustedInstaller(PSID sid) {
  // NT SERVICE\TrustedInstaller: S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464
  SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
  PSID installer = nullptr;
  if (!AllocateAndInitializeSid(&nt, 6, SECURITY_SERVICE_ID_BASE_RID, 956008885, 3418522649,
                                1831038044, 1853292631, 2271478464, 0, 0, &installer)) {
    return false;
  }
  const bool same = EqualSid(sid, installer) != FALSE;
  FreeSid(installer);
  return same;
}

bool IsRunningAccount(PSID sid) {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
  alignas(TOKEN_USER) BYTE buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  const bool same = GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size) &&
                    EqualSid(sid, reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid);
  CloseHandle(token);
  return same;
}

bool CreateProtectedFolder(const std::string& path) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(kProtectedFolder, SDDL_REVISION_1,
                                                            &descriptor, nullptr)) {
    return false;
  }
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor, FALSE};
  const bool created = CreateDirectoryA(path.c_str(), &attributes) != FALSE;
  LocalFree(descriptor);
  return created;
}

PathFacts InspectPath(const std::string& path) {
  PathFacts facts;
  const DWORD attributes = GetFileAttributesA(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return facts;
  facts.exists = true;
  facts.isReparsePoint = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  // The link itself, not what it points to; folders need backup semantics.
  HANDLE handle = CreateFileA(path.c_str(), READ_CONTROL | FILE_READ_ATTRIBUTES,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return facts;
  BY_HANDLE_FILE_INFORMATION info;
  if (GetFileInformationByHandle(handle, &info) &&
      (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    facts.isReparsePoint = true;
  }
  facts.owner = OwnerOf(handle);
  CloseHandle(handle);
  return facts;
}

}  // namespace calder
