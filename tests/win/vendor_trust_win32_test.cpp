#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/win32/checked_library.h"
#include "platform/win32/library_loading.h"
#include "platform/win32/new_file.h"
#include "tests/win/stand_in_path.h"

namespace calder {
namespace {

std::string RunningAccountSid() {
  HANDLE token = nullptr;
  alignas(TOKEN_USER) BYTE buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  char* text = nullptr;
  OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
  GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size);
  ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, &text);
  CloseHandle(token);
  return text;  // a few bytes left to the process
}

// Descriptors as Windows writes them (SDDL), "ME" for the running account;
// aceType, when set, replaces the type of the access list's first entry.
TEST(WhoElseMayChange, OnlyAdministrationAndTheRunningOwnerMayChangeWhatIsLoaded) {
  const std::string me = RunningAccountSid();
  const std::string installer = "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
  struct Case {
    std::string sddl;
    int aceType;
    std::string expected;  // in the reason; empty: nobody else may change it
  } cases[] = {
      // A folder copied under Program Files, and what the system installs.
      {"O:BAD:PAI(A;;FA;;;SY)(A;;FA;;;BA)(A;;0x1200a9;;;BU)(A;OICIIO;GA;;;CO)(A;CIIO;GA;;;" +
           installer + ")", -1, ""},
      {"O:" + installer + "D:(A;;FA;;;" + installer + ")(A;;0x1200a9;;;WD)", -1, ""},
      // Owning it, the running account may rewrite the list anyway.
      {"O:MED:(A;;FA;;;ME)(A;;FA;;;SY)", -1, ""},
      // Deny entries only take away; inherit-only ones give nothing here.
      {"O:BAD:(D;;FA;;;WD)(A;OICIIO;FA;;;BU)", -1, ""},
      {"O:BAD:", -1, ""},
      {"O:BUD:(A;;FA;;;SY)", -1, "is owned by BUILTIN\\Users (S-1-5-32-545)"},
      {"D:(A;;FA;;;SY)", -1, "has an owner that cannot be read"},
      // Moved from the Public Downloads: Interactive may modify it.
      {"O:BAD:(A;;FA;;;SY)(A;ID;0x1301bf;;;IU)", -1, "(S-1-5-4) may write it"},
      // The running account's own programs without elevation carry its SID.
      {"O:BAD:(A;;FA;;;ME)", -1, me + ") may write it"},
      {"O:SYD:(A;;FW;;;S-1-5-21-1-2-3-513)", -1, "S-1-5-21-1-2-3-513 may write it"},
      {"O:SYD:(A;;GW;;;S-1-2-0)", -1, "(S-1-2-0) may write it"},
      {"O:SYD:(A;;GA;;;S-1-5-113)", -1, "S-1-5-113"},
      {"O:SYD:(A;;SD;;;AU)", -1, "(S-1-5-11) may write it"},
      {"O:SYD:(A;;WD;;;WD)", -1, "(S-1-1-0) may write it"},
      {"O:SYD:(A;;0x40;;;WD)", -1, "(S-1-1-0) may write it"},  // delete what is inside
      {"O:SYD:(A;;FR;;;SY)", ACCESS_ALLOWED_OBJECT_ACE_TYPE, "type 5"},
      {"O:SYD:(A;;FR;;;SY)", ACCESS_ALLOWED_CALLBACK_ACE_TYPE, "type 9"},
      {"O:SYD:(A;;FR;;;SY)", 0x42, "type 66"},
  };
  for (Case& c : cases) {
    for (size_t at; (at = c.sddl.find("ME")) != std::string::npos;) c.sddl.replace(at, 2, me);
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorA(
        c.sddl.c_str(), SDDL_REVISION_1, &descriptor, nullptr))
        << c.sddl;
    PACL dacl = nullptr;
    BOOL present = FALSE, defaulted = FALSE;
    void* ace = nullptr;
    if (c.aceType >= 0 && GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted) &&
        GetAce(dacl, 0, &ace)) {
      static_cast<ACE_HEADER*>(ace)->AceType = static_cast<BYTE>(c.aceType);
    }
    const std::string why = WhoElseMayChange(descriptor);
    LocalFree(descriptor);
    if (c.expected.empty()) {
      EXPECT_EQ(why, "") << c.sddl;
    } else {
      EXPECT_NE(why.find(c.expected), std::string::npos) << c.sddl << ": " << why;
    }
  }
  // No access list at all (Wine reads "D:NO_ACCESS_CONTROL" as an empty one).
  SECURITY_DESCRIPTOR open;
  BYTE administrators[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof administrators;
  InitializeSecurityDescriptor(&open, SECURITY_DESCRIPTOR_REVISION);
  CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size);
  SetSecurityDescriptorOwner(&open, administrators, FALSE);
  SetSecurityDescriptorDacl(&open, TRUE, nullptr, FALSE);
  EXPECT_EQ(WhoElseMayChange(&open), "has no access list: anyone may write it");
}

// A new vendor folder under the scratch root, holding copies of built DLLs.
std::wstring VendorParent(const std::wstring& name, std::initializer_list<const wchar_t*> dlls) {
  const std::wstring parent = L"C:\\calder-vendor-trust\\" + name;
  std::error_code ignored;
  std::filesystem::remove_all(parent, ignored);
  std::filesystem::create_directories(parent + L"\\vendor");
  for (const wchar_t* dll : dlls) {
    if (*dll == L'\0') continue;
    const std::wstring from = StandInPath(dll);
    CopyFileW(from.c_str(), (parent + L"\\vendor" + from.substr(from.rfind(L'\\'))).c_str(), FALSE);
  }
  return parent;
}

// What Wine keeps of such a grant: the Unix mode's write bit for others.
void LetEveryoneWrite(const std::wstring& path) {
  EXPLICIT_ACCESSW grant = {};
  BuildExplicitAccessWithNameW(&grant, const_cast<wchar_t*>(L"Everyone"), GENERIC_ALL,
                               GRANT_ACCESS, NO_INHERITANCE);
  PACL dacl = nullptr;
  ASSERT_EQ(SetEntriesInAclW(1, &grant, nullptr, &dacl), static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_EQ(SetNamedSecurityInfoW(const_cast<wchar_t*>(path.c_str()), SE_FILE_OBJECT,
                                  DACL_SECURITY_INFORMATION, nullptr, nullptr, dacl, nullptr),
            static_cast<DWORD>(ERROR_SUCCESS));
  LocalFree(dacl);
}

const wchar_t* const kDependent = L"stand-ins\\dependent\\btl_hid_transfer.dll";
const wchar_t* const kPlanted = L"stand-ins\\planted.dll";

TEST(CheckedLibrary, LoadsTheLibraryAfterItsCheckedDependencyFromTheFolderAndRefusesTheRest) {
  struct Case {
    const wchar_t* name;
    const wchar_t* opened;  // made writable by everyone, or null
    const char* refused;
    const char* why;
  } cases[] = {
      {L"open-dependency", L"vendor\\planted.dll", "vendor\\planted.dll", "(S-1-1-0) may write it"},
      {L"open-library", L"vendor\\btl_hid_transfer.dll", "vendor\\btl_hid_transfer.dll",
       "(S-1-1-0) may write it"},
      {L"open-folder", L"vendor", "vendor\\", "(S-1-1-0) may write it"},
      // Not in the folder: the system folder has no planted.dll either.
      {L"no-dependency", nullptr, "vendor\\btl_hid_transfer.dll", "could not be loaded, error 126"},
      {L"cut", nullptr, "vendor\\btl_hid_transfer.dll", "has an import table that cannot be read"},
      {L"no-folder", nullptr, "vendor\\", "does not exist"},
  };
  for (const Case& c : cases) {
    const std::wstring name = c.name;
    const std::wstring parent =
        VendorParent(name, {kDependent, name == L"no-dependency" ? L"" : kPlanted});
    if (c.opened != nullptr) LetEveryoneWrite(parent + L"\\" + c.opened);
    const std::wstring vendor = parent + L"\\vendor\\";
    if (name == L"cut") std::filesystem::resize_file(vendor + L"btl_hid_transfer.dll", 1024);
    if (name == L"no-folder") MoveFileW(vendor.c_str(), (parent + L"\\elsewhere").c_str());
    CheckedLibrary refused(parent, L"vendor", L"btl_hid_transfer.dll");
    EXPECT_FALSE(refused.loaded());
    EXPECT_EQ(refused.refused(), c.refused);
    EXPECT_NE(refused.why().find(c.why), std::string::npos) << refused.why();
    EXPECT_EQ(GetFileAttributesW((vendor + L"planted.dll.loaded").c_str()),
              INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetModuleHandleW(refused.path().c_str()), nullptr);
  }
  // Last: once planted.dll is loaded, a library importing it binds to it.
  const std::wstring good = VendorParent(L"good", {kDependent, kPlanted});
  CheckedLibrary library(good, L"vendor", L"btl_hid_transfer.dll");
  ASSERT_TRUE(library.loaded()) << library.refused() << " " << library.why();
  EXPECT_NE(GetFileAttributesW((good + L"\\vendor\\planted.dll.loaded").c_str()),
            INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(LoadBesideExecutable(library.path()), library.module());
  EXPECT_EQ(library.bytes().substr(0, 2), "MZ");
}

TEST(HeldFile, NobodyRewritesRenamesOrDeletesWhatWasCheckedUntilItIsReleased) {
  const std::wstring parent = VendorParent(L"held", {kPlanted});
  const std::wstring file = parent + L"\\vendor\\planted.dll";
  {
    const HeldFile folder(parent + L"\\vendor", true);
    const HeldFile held(file, false);
    ASSERT_TRUE(folder.trusted() && held.trusted()) << folder.why() << held.why();
    SetLastError(0);
    EXPECT_EQ(CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                          OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(MoveFileExW(file.c_str(), (file + L".old").c_str(), 0));
    EXPECT_FALSE(DeleteFileW(file.c_str()));
    EXPECT_FALSE(MoveFileExW((parent + L"\\vendor").c_str(), (parent + L"\\old").c_str(), 0));
  }
  EXPECT_TRUE(DeleteFileW(file.c_str()));
}

TEST(CreateNewFile, NeverOpensWhatStandsAtTheNameAlready) {
  const std::string path = "C:\\calder-vendor-trust\\new.ndjson";
  std::filesystem::create_directories("C:\\calder-vendor-trust");
  DeleteFileA(path.c_str());
  CloseHandle(CreateNewFile(path));
  EXPECT_EQ(CreateNewFile(path), INVALID_HANDLE_VALUE);
  EXPECT_TRUE(DeleteFileA(path.c_str()));
}

}  // namespace
}  // namespace calder
