#include "platform/win32/trusted_file.h"

#include <aclapi.h>
#include <sddl.h>

#include "platform/win32/folder_security.h"

namespace calder {
namespace {

// What reading, listing and running need; any other right, granted to
// anyone not trusted, refuses.
constexpr DWORD kReadRights = FILE_READ_DATA | FILE_READ_EA | FILE_EXECUTE | FILE_READ_ATTRIBUTES |
                              READ_CONTROL | SYNCHRONIZE | GENERIC_READ | GENERIC_EXECUTE;
// Vendor libraries are a few MiB; a file far larger is not read whole.
constexpr LONGLONG kMaxReadBytes = 256ll << 20;

bool IsAdministration(PSID sid) {
  return IsWellKnownSid(sid, WinLocalSystemSid) ||
         IsWellKnownSid(sid, WinBuiltinAdministratorsSid) || IsTrustedInstaller(sid);
}

// "NT AUTHORITY\INTERACTIVE (S-1-5-4)"; only the SID when the name is not
// plain ASCII or not known on this machine (no network lookup).
std::string NameOf(PSID sid) {
  std::string text;
  char* sidText = nullptr;
  if (ConvertSidToStringSidA(sid, &sidText)) {
    text = sidText;
    LocalFree(sidText);
  }
  // Not in mingw's import library; advapi32 is loaded already.
  using Lookup = BOOL(WINAPI*)(PSID, LPWSTR, LPDWORD, LPWSTR, LPDWORD, PSID_NAME_USE);
  const HMODULE advapi = GetModuleHandleW(L"advapi32.dll");
  const auto lookup = reinterpret_cast<Lookup>(reinterpret_cast<void*>(
      advapi != nullptr ? GetProcAddress(advapi, "LookupAccountSidLocalW") : nullptr));
  wchar_t name[128], domain[128];
  DWORD nameSize = 128, domainSize = 128;
  SID_NAME_USE use;
  if (lookup == nullptr || !lookup(sid, name, &nameSize, domain, &domainSize, &use)) return text;
  const std::wstring wide = domain[0] == L'\0' ? std::wstring(name)
                                               : std::wstring(domain) + L"\\" + name;
  std::string account;
  for (wchar_t c : wide) {
    if (c < 0x20 || c > 0x7E) return text;
    account += static_cast<char>(c);
  }
  return account + " (" + text + ")";
}

}  // namespace

std::string WhoElseMayChange(PSECURITY_DESCRIPTOR descriptor) {
  PSID owner = nullptr;
  BOOL defaulted = FALSE, present = FALSE;
  PACL dacl = nullptr;
  if (descriptor == nullptr || !IsValidSecurityDescriptor(descriptor) ||
      !GetSecurityDescriptorOwner(descriptor, &owner, &defaulted) || owner == nullptr ||
      !IsValidSid(owner)) {
    return "has an owner that cannot be read";
  }
  const bool ownerIsUs = IsRunningAccount(owner);
  if (!IsAdministration(owner) && !ownerIsUs) return "is owned by " + NameOf(owner);
  if (!GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted)) {
    return "has an access list that cannot be read";
  }
  if (!present || dacl == nullptr) return "has no access list: anyone may write it";
  if (!IsValidAcl(dacl)) return "has an access list that cannot be read";
  for (DWORD i = 0; i < dacl->AceCount; ++i) {
    void* ace = nullptr;
    if (!GetAce(dacl, i, &ace)) return "has an access entry that cannot be read";
    const auto* header = static_cast<const ACE_HEADER*>(ace);
    if (header->AceType == ACCESS_DENIED_ACE_TYPE) continue;
    if (header->AceType != ACCESS_ALLOWED_ACE_TYPE) {
      return "has an access entry of a kind not read here (type " +
             std::to_string(header->AceType) + ")";
    }
    if ((header->AceFlags & INHERIT_ONLY_ACE) != 0) continue;
    const auto* allowed = static_cast<const ACCESS_ALLOWED_ACE*>(ace);
    const size_t sidOffset = offsetof(ACCESS_ALLOWED_ACE, SidStart);
    PSID sid = const_cast<DWORD*>(&allowed->SidStart);
    if (header->AceSize < sidOffset + sizeof(SID) || !IsValidSid(sid) ||
        GetLengthSid(sid) > header->AceSize - sidOffset) {
      return "has an access entry that cannot be read";
    }
    if ((allowed->Mask & ~kReadRights) == 0 || IsAdministration(sid)) continue;
    if (ownerIsUs && EqualSid(sid, owner)) continue;
    return NameOf(sid) + " may write it";
  }
  return std::string();
}

HeldFile::HeldFile(const std::wstring& path, bool folder) {
  handle_ = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                        FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle_ == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    missing_ = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    why_ = missing_ ? "does not exist" : "cannot be opened, error " + std::to_string(error);
    return;
  }
  FILE_ATTRIBUTE_TAG_INFO tag = {};
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  // By the name too: Wine opens a link's target even when told not to.
  const DWORD named = GetFileAttributesW(path.c_str());
  if (!GetFileInformationByHandleEx(handle_, FileAttributeTagInfo, &tag, sizeof tag) ||
      named == INVALID_FILE_ATTRIBUTES) {
    why_ = "has attributes that cannot be read";
  } else if (((tag.FileAttributes | named) & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    why_ = "is a reparse point (junction or link)";
  } else if (((tag.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) != folder) {
    why_ = folder ? "is not a folder" : "is not a file";
  } else if (GetSecurityInfo(handle_, SE_FILE_OBJECT,
                             OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, nullptr,
                             nullptr, nullptr, nullptr, &descriptor) != ERROR_SUCCESS) {
    why_ = "has a security descriptor that cannot be read";
  } else {
    why_ = WhoElseMayChange(descriptor);
  }
  if (descriptor != nullptr) LocalFree(descriptor);
  if (!why_.empty()) {
    CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }
}

HeldFile::~HeldFile() {
  if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
}

bool HeldFile::ReadAll(std::string* bytes) const {
  LARGE_INTEGER size;
  if (handle_ == INVALID_HANDLE_VALUE || !GetFileSizeEx(handle_, &size) || size.QuadPart < 0 ||
      size.QuadPart > kMaxReadBytes) {
    return false;
  }
  bytes->assign(static_cast<size_t>(size.QuadPart), '\0');
  LARGE_INTEGER start = {};
  DWORD read = 0;
  return SetFilePointerEx(handle_, start, nullptr, FILE_BEGIN) &&
         (bytes->empty() ||
          (ReadFile(handle_, &(*bytes)[0], static_cast<DWORD>(bytes->size()), &read, nullptr) &&
           read == bytes->size()));
}

}  // namespace calder
