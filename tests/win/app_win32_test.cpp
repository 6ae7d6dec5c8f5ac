#include <windows.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "driver/calder.h"
#include "base/firmware_discovery.h"
#include "base/log.h"
#include "driver/logging.h"
#include "driver/power_request_guard.h"
#include "platform/environment.h"
#include "platform/win32/progress_globals.h"
#include "platform/win32/win32_seams.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

class Win32Test : public testing::Test {
 protected:
  static void SetUpTestSuite() { InstallWin32Environment(); }

  static std::string ScratchFolder(const std::string& name) {
    const std::string root = "C:\\calder-test";
    CreateDirectoryA(root.c_str(), nullptr);
    const std::string folder = root + "\\" + name;
    CreateDirectoryA(folder.c_str(), nullptr);
    return folder;
  }

  static void Touch(const std::string& path, const std::string& content = "fw") {
    std::ofstream(path, std::ios::binary) << content;
  }

  static std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
};

TEST_F(Win32Test, FirstFileSkipsSubFoldersAndKeepsTheGivenSeparator) {
  const std::string folder = ScratchFolder("tp");
  CreateDirectoryA((folder + "\\sub").c_str(), nullptr);
  Touch(folder + "\\only.bin");
  EXPECT_EQ(FindFirstFileInFolder(folder), folder + "\\only.bin");
  EXPECT_EQ(FindFirstFileInFolder(folder + "\\"), folder + "\\only.bin");
  EXPECT_EQ(FindFirstFileInFolder(folder + "/"), folder + "/only.bin");
}

TEST_F(Win32Test, FirstFileIsEmptyForMissingOrFolderOnlyFolders) {
  const std::string folder = ScratchFolder("folders-only");
  CreateDirectoryA((folder + "\\a").c_str(), nullptr);
  CreateDirectoryA((folder + "\\b").c_str(), nullptr);
  EXPECT_EQ(FindFirstFileInFolder(folder), "");
  EXPECT_EQ(FindFirstFileInFolder("C:\\calder-test\\no-such-folder"), "");
}

TEST_F(Win32Test, HiddenAndReadOnlyFilesCount) {
  const std::string folder = ScratchFolder("hidden");
  const std::string file = folder + "\\h.bin";
  Touch(file);
  SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(FindFirstFileInFolder(folder), file);
  SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(Win32Test, ModuleDirIsTheTestExecutablesFolder) {
  char path[MAX_PATH];
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  const std::string dir = GetModuleDir();
  EXPECT_EQ(dir + "\\" + std::string(path).substr(dir.size() + 1), path);
  EXPECT_NE(dir.back(), '\\');
}

TEST_F(Win32Test, MarkerHoldsTheModulePathAsUtf16AndIsDeleted) {
  WriteProcessPathMarker();
  wchar_t module[MAX_PATH];
  const DWORD units = GetModuleFileNameW(nullptr, module, MAX_PATH);
  const std::string bytes = ReadAll(MarkerFilePath());
  ASSERT_EQ(bytes.size(), 2u * units);
  EXPECT_EQ(bytes, std::string(reinterpret_cast<const char*>(module), 2 * units));
  DeleteProcessPathMarker();
  EXPECT_EQ(GetFileAttributesA(MarkerFilePath().c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(Win32Test, InitLoggingWritesEachLineToTheRunsFile) {
  InitLogging();
  LOG(INFO) << "Current version: " << kToolVersion;
  const std::string folder = kLogFolder;
  WIN32_FIND_DATAA data;
  HANDLE search = FindFirstFileA((folder + "\\Calder_*.log").c_str(), &data);
  ASSERT_NE(search, INVALID_HANDLE_VALUE) << "no log file in " << folder;
  std::string newest;
  do {
    if (newest.empty() || std::string(data.cFileName) > newest) newest = data.cFileName;
  } while (FindNextFileA(search, &data));
  FindClose(search);
  // Calder_YYYY-MM-DD_hhmmss_<pid>.log
  const std::string suffix = "_" + std::to_string(GetCurrentProcessId()) + ".log";
  EXPECT_EQ(newest.size(), std::string("Calder_2026-04-22_093015").size() + suffix.size());
  EXPECT_EQ(newest.substr(newest.size() - suffix.size()), suffix);

  const std::string text = ReadAll(folder + "\\" + newest);
  // "YYYY-MM-DD hh:mm:ss.ggg INFO app_win32_test.cpp NN: Current version: 20260422-01"
  const size_t at = text.find(" INFO app_win32_test.cpp ");
  ASSERT_NE(at, std::string::npos) << text;
  EXPECT_EQ(at, std::string("2026-04-22 09:30:15.123").size());
  // The file is written in text mode: Windows line ends.
  EXPECT_NE(text.find(": Current version: 20260422-01\r\n"), std::string::npos) << text;
  test::QuietDefaultLogger();
}

TEST_F(Win32Test, FatalLogLineDoesNotEndTheProcess) {
  InitLogging();
  LOG(FATAL) << "fatal lines are only logged";
  test::QuietDefaultLogger();
  SUCCEED();
}

TEST_F(Win32Test, PowerRequestGuardCopesWithWhatTheSystemGives) {
  // Wine hands out no power request; Windows does. Either way the guard must
  // neither crash nor leave a request behind.
  { PowerRequestGuard guard; }
  Win32PowerRequests power;
  PowerRequestHandle handle = power.Create(L"Firmware screen update in progress");
  if (handle != kInvalidPowerRequest) power.Close(handle);
}

TEST_F(Win32Test, ComStartsMultithreadedOnAFreshThread) {
  long hr = -1;
  HANDLE thread = CreateThread(
      nullptr, 0,
      [](void* out) -> DWORD {
        Win32ComRuntime com;
        *static_cast<long*>(out) = com.InitializeMultithreaded();
        com.Uninitialize();
        return 0;
      },
      &hr, 0, nullptr);
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  EXPECT_EQ(hr, S_OK);
}

class ProgressPosterTest : public Win32Test {
 protected:
  void SetUp() override {
    window_ = CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr,
                              nullptr);
    ASSERT_NE(window_, nullptr);
  }
  void TearDown() override {
    g_hProgressWnd = nullptr;
    g_bProgressWindowActive = false;
    DestroyWindow(window_);
  }
  std::vector<WPARAM> Drain() {
    std::vector<WPARAM> got;
    MSG msg;
    while (PeekMessageW(&msg, window_, WM_UPDATE_PROGRESS, WM_UPDATE_PROGRESS, PM_REMOVE)) {
      got.push_back(msg.wParam);
    }
    return got;
  }
  HWND window_ = nullptr;
};

TEST_F(ProgressPosterTest, PostsOnlyWhileTheWindowIsSetAndActive) {
  WindowProgressPoster poster;
  poster.Post(5);  // no window yet
  g_hProgressWnd = window_;
  poster.Post(10);  // window not active
  g_bProgressWindowActive = true;
  poster.Post(20);
  poster.Post(90);
  g_hProgressWnd = nullptr;
  poster.Post(95);
  EXPECT_EQ(Drain(), (std::vector<WPARAM>{20, 90}));
}

}  // namespace
}  // namespace calder
