// Only real Windows runs these (win_real_windows; docs/TESTING.md): Wine has no
// private namespaces, no second token and no NTFS ACLs or junctions.
#include <windows.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "driver/folder_trust.h"
#include "platform/win32/guards_win32.h"
#include "platform/win32/library_binding.h"
#include "platform/win32/win32_seams.h"

namespace calder {
namespace {

PSID WellKnown(WELL_KNOWN_SID_TYPE type, std::vector<BYTE>* storage) {
  storage->resize(SECURITY_MAX_SID_SIZE);
  DWORD size = SECURITY_MAX_SID_SIZE;
  return CreateWellKnownSid(type, nullptr, storage->data(), &size) ? storage->data() : nullptr;
}

// This process's token lowered, Administrators deny-only in both: as UAC's
// filtered token gives the same user (medium integrity), or restricted, every
// access checked again against the user, the ordinary groups and RESTRICTED.
HANDLE LowerToken(bool restricted) {
  HANDLE own = nullptr, lowered = nullptr;
  OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own);
  std::vector<std::vector<BYTE>> sids(6);
  SID_AND_ATTRIBUTES admins = {WellKnown(WinBuiltinAdministratorsSid, &sids[0]), 0};
  std::vector<SID_AND_ATTRIBUTES> only;
  for (WELL_KNOWN_SID_TYPE type : {WinWorldSid, WinBuiltinUsersSid, WinAuthenticatedUserSid, WinRestrictedCodeSid}) {
    only.push_back({WellKnown(type, &sids[only.size() + 1]), 0});
  }
  alignas(TOKEN_USER) BYTE user[256];
  DWORD size = 0;
  if (GetTokenInformation(own, TokenUser, user, sizeof user, &size)) {
    only.push_back({reinterpret_cast<TOKEN_USER*>(user)->User.Sid, 0});
  }
  CreateRestrictedToken(own, DISABLE_MAX_PRIVILEGE | (restricted ? 0 : LUA_TOKEN), 1, &admins, 0, nullptr,
                        restricted ? static_cast<DWORD>(only.size()) : 0, only.data(), &lowered);
  TOKEN_MANDATORY_LABEL medium = {{WellKnown(WinMediumLabelSid, &sids[5]), SE_GROUP_INTEGRITY}};
  if (lowered && !restricted) SetTokenInformation(lowered, TokenIntegrityLevel, &medium, sizeof medium);
  return lowered;
}

// What a thread impersonating token can do to the lock: it cannot take it nor
// open its namespace; while nobody holds it (squat) it creates the namespace's
// name under a boundary of its own and the lock's name in Global\, admitting
// anyone, and keeps them.
void TryTheLockAs(HANDLE token, const std::wstring& lock, bool squat) {
  ASSERT_TRUE(ImpersonateLoggedOnUser(token)) << "error " << GetLastError();
  EXPECT_EQ(Win32UpdateLock(lock.c_str()).Acquire().outcome, LockOutcome::Held);
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
  if (squat) {
    SECURITY_DESCRIPTOR anyone;
    InitializeSecurityDescriptor(&anyone, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&anyone, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES everyone = {sizeof everyone, &anyone, FALSE};
    addSid(&own, WellKnown(WinWorldSid, &world));
    create(&everyone, own, L"KoruCalder");
    CreateMutexW(&everyone, TRUE, (L"KoruCalder\\" + lock).c_str());
    CreateMutexW(&everyone, TRUE, (L"Global\\" + lock).c_str());
  }
  RevertToSelf();
}

class RealWindowsLock : public testing::TestWithParam<bool> {};

TEST_P(RealWindowsLock, ALowerTokenCanNeitherCreateOpenNorSquatTheLock) {
  ASSERT_TRUE(IsUserAnAdmin()) << "the suite runs elevated on Windows, as calder.exe does";
  HANDLE token = LowerToken(GetParam());
  ASSERT_NE(token, nullptr) << "error " << GetLastError();
  const std::wstring lock = GetParam() ? L"CalderRealLockRestricted" : L"CalderRealLockNonElevated";
  // A thread each: the lock's mutex belongs to the thread that takes it.
  std::thread([&] { TryTheLockAs(token, lock, true); }).join();
  EXPECT_EQ(Win32UpdateLock(lock.c_str()).Acquire().outcome, LockOutcome::Taken);
  std::thread([&] { TryTheLockAs(token, lock, false); }).join();
}

INSTANTIATE_TEST_SUITE_P(NonElevatedAndRestricted, RealWindowsLock, testing::Bool());

// A folder under C:\ProgramData made as Windows makes one (inheriting its
// ACL) is owned by an administrator and trusted; a junction to it is refused.
TEST(RealWindowsFolders, AProgramDataFolderIsTrustedAndAJunctionToItIsNot) {
  const char* data = std::getenv("ProgramData");
  const std::string folder = std::string(data ? data : "C:\\ProgramData") + "\\CalderRealWindows";
  const std::string link = folder + "Link";
  RemoveDirectoryA(link.c_str());
  RemoveDirectoryA(folder.c_str());
  ASSERT_TRUE(CreateDirectoryA(folder.c_str(), nullptr));
  Win32FileSystem files;
  const PathFacts made = files.Inspect(folder);
  EXPECT_FALSE(made.isReparsePoint);
  EXPECT_EQ(made.owner, PathOwner::kSystemOrAdministrators);
  EXPECT_TRUE(CheckFolder(files, folder).trusted);
  ASSERT_EQ(std::system(("mklink /J \"" + link + "\" \"" + folder + "\" >nul").c_str()), 0);
  EXPECT_TRUE(files.Inspect(link).isReparsePoint);
  EXPECT_EQ(CheckFolder(files, link).reason, "is a reparse point (junction or link)");
}

}  // namespace
}  // namespace calder
