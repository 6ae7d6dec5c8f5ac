#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "platform/win32/library_loading.h"
#include "platform/win32/win32_seams.h"

namespace calder {
namespace {

const std::string kScratch = "C:\\calder-folder-security";

TEST(Win32FileSystem, InspectTellsAFolderItCreatedFromAMissingOne) {
  Win32FileSystem files;
  RemoveDirectoryA(kScratch.c_str());
  const PathFacts missing = files.Inspect(kScratch);
  EXPECT_FALSE(missing.exists);
  EXPECT_EQ(missing.owner, PathOwner::kUnreadable);

  ASSERT_TRUE(files.MakeFolder(kScratch));
  EXPECT_FALSE(files.MakeFolder(kScratch));  // already there
  const PathFacts made = files.Inspect(kScratch);
  EXPECT_TRUE(made.exists);
  EXPECT_FALSE(made.isReparsePoint);
  // Elevated on Windows: Administrators; under Wine every file is the
  // running account's.
  EXPECT_TRUE(made.owner == PathOwner::kSystemOrAdministrators ||
              made.owner == PathOwner::kRunningAccount);
  RemoveDirectoryA(kScratch.c_str());
}

TEST(LibraryLoading, VendorLibrariesComeOnlyFromBesideTheExecutable) {
  // A copy of a library in the current folder is not beside the executable.
  wchar_t system[MAX_PATH] = {};
  GetSystemDirectoryW(system, MAX_PATH);
  const std::wstring saved = [] {
    wchar_t cwd[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, cwd);
    return std::wstring(cwd);
  }();
  ASSERT_TRUE(SetCurrentDirectoryW(system));
  SetLastError(0);
  EXPECT_EQ(LoadBesideExecutable(L"version.dll"), nullptr);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
  SetCurrentDirectoryW(saved.c_str());
}

}  // namespace
}  // namespace calder
