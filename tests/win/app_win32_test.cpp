#include <windows.h>
#include <objbase.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "base/firmware_discovery.h"
#include "platform/win32/win32_seams.h"

namespace calder {
namespace {

class Win32Test : public testing::Test {
 protected:
  static void SetUpTestSuite() { InstallWin32Environment(); }
};

// The real folder listing brings "." and "..", sub-folders and file
// attributes the portable search must see through (empty and missing folders
// are the end-to-end fault matrix's).
TEST_F(Win32Test, FirstFileComesFromTheRealFolderListing) {
  const std::string folder = "C:\\calder-test\\listing";
  CreateDirectoryA("C:\\calder-test", nullptr);
  CreateDirectoryA(folder.c_str(), nullptr);
  CreateDirectoryA((folder + "\\a-sub-folder").c_str(), nullptr);
  const std::string file = folder + "\\hidden.bin";
  std::ofstream(file, std::ios::binary) << "fw";
  SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(FindFirstFileInFolder(folder), file);
  SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(Win32Test, ComStartsMultithreadedOnAFreshThread) {
  long results[2] = {-1, -1};
  HANDLE thread = CreateThread(
      nullptr, 0,
      [](void* out) -> DWORD {
        long* hr = static_cast<long*>(out);
        Win32ComRuntime com;
        hr[0] = com.InitializeMultithreaded();
        // Only a thread already in the multithreaded apartment refuses this.
        hr[1] = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        if (hr[1] >= 0) CoUninitialize();
        com.Uninitialize();
        return 0;
      },
      results, 0, nullptr);
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  EXPECT_EQ(results[0], S_OK);
  EXPECT_EQ(results[1], RPC_E_CHANGED_MODE);
}

}  // namespace
}  // namespace calder
