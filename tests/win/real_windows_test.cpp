// Only real Windows runs these (win_real_windows; docs/TESTING.md): Wine has no
// private namespaces, no second token and no NTFS ACLs or junctions.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "driver/folder_trust.h"
#include "platform/win32/guards_win32.h"
#include "platform/win32/library_binding.h"
#include "platform/win32/win32_seams.h"

namespace calder {
namespace {

HANDLE OwnToken() {
  HANDLE token = nullptr;
  OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token);
  return token;
}

PSID WellKnown(WELL_KNOWN_SID_TYPE type, std::vector<BYTE>* storage) {
  storage->resize(SECURITY_MAX_SID_SIZE);
  DWORD size = SECURITY_MAX_SID_SIZE;
  return CreateWellKnownSid(type, nullptr, storage->data(), &size) ? storage->data() : nullptr;
}

// The same user as UAC's filtered token gives it: Administrators deny-only,
// no privileges beyond the basic ones, medium integrity.
HANDLE NonElevatedToken() {
  std::vector<BYTE> admins, medium;
  SID_AND_ATTRIBUTES disable = {WellKnown(WinBuiltinAdministratorsSid, &admins), 0};
  HANDLE lowered = nullptr;
  CreateRestrictedToken(OwnToken(), DISABLE_MAX_PRIVILEGE | LUA_TOKEN, 1, &disable, 0, nullptr, 0,
                        nullptr, &lowered);
  TOKEN_MANDATORY_LABEL label = {{WellKnown(WinMediumLabelSid, &medium), SE_GROUP_INTEGRITY}};
  if (lowered) SetTokenInformation(lowered, TokenIntegrityLevel, &label, sizeof label);
  return lowered;
}

// A restricted token: Administrators deny-only and every access checked again
// against the user, the ordinary groups, RESTRICTED and the logon session.
HANDLE RestrictedToken() {
  std::vector<std::vector<BYTE>> sids(5);
  SID_AND_ATTRIBUTES disable = {WellKnown(WinBuiltinAdministratorsSid, &sids[0]), 0};
  std::vector<SID_AND_ATTRIBUTES> only;
  const WELL_KNOWN_SID_TYPE ordinary[] = {WinWorldSid, WinBuiltinUsersSid, WinAuthenticatedUserSid,
                                          WinRestrictedCodeSid};
  for (int i = 0; i < 4; ++i) only.push_back({WellKnown(ordinary[i], &sids[i + 1]), 0});
  std::vector<BYTE> user(4096), groups(65536);
  DWORD size = 0;
  HANDLE own = OwnToken();
  if (GetTokenInformation(own, TokenUser, user.data(), 4096, &size)) {
    only.push_back({reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid, 0});
  }
  if (GetTokenInformation(own, TokenGroups, groups.data(), 65536, &size)) {
    const auto* list = reinterpret_cast<TOKEN_GROUPS*>(groups.data());
    for (DWORD i = 0; i < list->GroupCount; ++i) {
      if (list->Groups[i].Attributes & SE_GROUP_LOGON_ID) only.push_back({list->Groups[i].Sid, 0});
    }
  }
  HANDLE restricted = nullptr;
  CreateRestrictedToken(own, DISABLE_MAX_PRIVILEGE, 1, &disable, 0, nullptr,
                        static_cast<DWORD>(only.size()), only.data(), &restricted);
  return restricted;
}

// This program again under token, running RealWindowsChild with what to try
// in CALDER_LOCK_CHILD and two inherited events: set when it squats, set when
// it may end. Its exit code is its test result.
struct Child {
  HANDLE squatting = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  PROCESS_INFORMATION process = {};

  Child(HANDLE token, const std::wstring& lock, const char* mode) {
    for (HANDLE h : {squatting, done}) SetHandleInformation(h, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    const std::string env = std::string(mode) + " " + std::to_string(reinterpret_cast<uintptr_t>(squatting)) +
                            " " + std::to_string(reinterpret_cast<uintptr_t>(done));
    SetEnvironmentVariableA("CALDER_LOCK_CHILD", env.c_str());
    SetEnvironmentVariableW(L"CALDER_LOCK_NAME", lock.c_str());
    wchar_t exe[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring line = L"\"" + std::wstring(exe) + L"\" --gtest_filter=RealWindowsChild.*";
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    EXPECT_TRUE(CreateProcessAsUserW(token, exe, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                     &start, &process))
        << "error " << GetLastError();
    SetEnvironmentVariableA("CALDER_LOCK_CHILD", nullptr);
    HANDLE waits[2] = {squatting, process.hProcess};
    if (process.hProcess) WaitForMultipleObjects(2, waits, FALSE, 60000);
  }

  DWORD Finish() {
    SetEvent(done);
    DWORD code = 1;
    if (WaitForSingleObject(process.hProcess, 60000) == WAIT_OBJECT_0) GetExitCodeProcess(process.hProcess, &code);
    return code;
  }
};

bool Elevated() {
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  return GetTokenInformation(OwnToken(), TokenElevation, &elevation, sizeof elevation, &size) &&
         elevation.TokenIsElevated;
}

struct TokenCase {
  const wchar_t* lock;
  HANDLE (*make)();
};

class RealWindowsLock : public testing::TestWithParam<TokenCase> {};

TEST_P(RealWindowsLock, ALowerTokenCanNeitherCreateOpenNorSquatTheLock) {
  ASSERT_TRUE(Elevated()) << "the suite runs elevated on Windows, as calder.exe does";
  HANDLE token = GetParam().make();
  ASSERT_NE(token, nullptr) << "error " << GetLastError();
  Child squatter(token, GetParam().lock, "free");
  EXPECT_EQ(Win32UpdateLock(GetParam().lock).Acquire().outcome, LockOutcome::Taken);
  EXPECT_EQ(Child(token, GetParam().lock, "held").Finish(), 0u);
  EXPECT_EQ(squatter.Finish(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Tokens, RealWindowsLock,
                         testing::Values(TokenCase{L"CalderRealLockNonElevated", &NonElevatedToken},
                                         TokenCase{L"CalderRealLockRestricted", &RestrictedToken}));

// The child's side. "free": nobody holds the lock; it cannot take it, then
// squats the namespace's name under a boundary of its own and the lock's name
// in Global\, and holds both. "held": it can neither open the namespace nor
// take the lock.
TEST(RealWindowsChild, TriesTheLock) {
  char mode[8] = {};
  unsigned long long squatting = 0, done = 0;
  const char* given = std::getenv("CALDER_LOCK_CHILD");
  ASSERT_TRUE(given && std::sscanf(given, "%7s %llu %llu", mode, &squatting, &done) == 3);
  wchar_t lock[64] = {};
  GetEnvironmentVariableW(L"CALDER_LOCK_NAME", lock, 64);
  EXPECT_EQ(Win32UpdateLock(lock).Acquire().outcome, LockOutcome::Held);
  // Bound at run time: Wine exports none of these, and this program runs there too.
  decltype(&CreateBoundaryDescriptorW) boundaryOf = nullptr;
  decltype(&AddSIDToBoundaryDescriptor) addSid = nullptr;
  decltype(&OpenPrivateNamespaceW) open = nullptr;
  decltype(&CreatePrivateNamespaceW) create = nullptr;
  EntryPointFinder find(GetModuleHandleW(L"kernel32.dll"));
  find("CreateBoundaryDescriptorW", &boundaryOf);
  find("AddSIDToBoundaryDescriptor", &addSid);
  find("OpenPrivateNamespaceW", &open);
  find("CreatePrivateNamespaceW", &create);
  ASSERT_EQ(find.missing(), "");
  std::vector<BYTE> admins, world;
  HANDLE boundary = boundaryOf(L"KoruCalder", 0), own = boundaryOf(L"KoruCalder", 0);
  addSid(&boundary, WellKnown(WinBuiltinAdministratorsSid, &admins));
  EXPECT_EQ(open(boundary, L"KoruCalder"), nullptr);
  if (std::string(mode) == "free") {  // squatters' names, admitting anyone (a null DACL)
    SECURITY_DESCRIPTOR anyone;
    InitializeSecurityDescriptor(&anyone, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&anyone, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES everyone = {sizeof everyone, &anyone, FALSE};
    addSid(&own, WellKnown(WinWorldSid, &world));
    create(&everyone, own, L"KoruCalder");
    CreateMutexW(&everyone, TRUE, (std::wstring(L"KoruCalder\\") + lock).c_str());
    CreateMutexW(&everyone, TRUE, (std::wstring(L"Global\\") + lock).c_str());
  }
  SetEvent(reinterpret_cast<HANDLE>(static_cast<uintptr_t>(squatting)));
  WaitForSingleObject(reinterpret_cast<HANDLE>(static_cast<uintptr_t>(done)), 60000);
}

// A folder under C:\ProgramData made as Windows makes one (inheriting its
// ACL) is owned by an administrator and trusted; a junction to it is refused.
TEST(RealWindowsFolders, AProgramDataFolderIsTrustedAndAJunctionToItIsNot) {
  const std::string data = std::getenv("ProgramData") ? std::getenv("ProgramData") : "C:\\ProgramData";
  const std::string folder = data + "\\CalderRealWindows", link = folder + "Link";
  RemoveDirectoryA(link.c_str());
  RemoveDirectoryA(folder.c_str());
  ASSERT_TRUE(CreateDirectoryA(folder.c_str(), nullptr));
  Win32FileSystem files;
  const PathFacts made = files.Inspect(folder);
  EXPECT_EQ(made.isReparsePoint, false);
  EXPECT_EQ(made.owner, PathOwner::kSystemOrAdministrators);
  EXPECT_TRUE(CheckFolder(files, folder).trusted);
  ASSERT_EQ(std::system(("mklink /J \"" + link + "\" \"" + folder + "\" >nul").c_str()), 0);
  EXPECT_EQ(files.Inspect(link).isReparsePoint, true);
  EXPECT_EQ(CheckFolder(files, link).reason, "is a reparse point (junction or link)");
  RemoveDirectoryA(link.c_str());
  RemoveDirectoryA(folder.c_str());
}

}  // namespace
}  // namespace calder
