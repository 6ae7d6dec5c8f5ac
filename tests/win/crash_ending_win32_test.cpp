#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "base/log.h"
#include "platform/win32/crash_ending.h"
#include "platform/win32/guards_win32.h"

namespace calder {
namespace {

constexpr wchar_t kLock[] = L"CalderTestCrashLock";
const char kLog[] = "C:\\calder-crash-child.log";

DWORD WINAPI Fault(void*) {
  volatile uintptr_t address = 0x10;
  return *reinterpret_cast<volatile DWORD*>(address);
}

DWORD WINAPI Raise(void*) {
  RaiseException(0xE0C0DE01, 0, 0, nullptr);
  return 0;
}

struct FaultingSink : el::LogDispatchCallback {
  void handle(const el::LogDispatchData*) override { Fault(nullptr); }
};

// Run only as a child of the case below, which names what it does in
// CALDER_CRASH_CHILD; the process ends inside it.
TEST(CrashEndingChild, Crashes) {
  const std::string how = std::getenv("CALDER_CRASH_CHILD");
  el::Configurations config;
  config.setGlobally(el::ConfigurationType::Format, "%level %fbase: %msg");
  config.setGlobally(el::ConfigurationType::Filename, kLog);
  config.setGlobally(el::ConfigurationType::ToFile, "true");
  config.setGlobally(el::ConfigurationType::ToStandardOutput, "false");
  el::Loggers::reconfigureLogger(el::Loggers::getLogger("default", true), config);
  if (how == "logger") el::Helpers::installLogDispatchCallback<FaultingSink>("faulting");
  static Win32UpdateLock lock(kLock);
  ASSERT_EQ(lock.Acquire().outcome, LockOutcome::Taken);
  EndRunOnCrash(&lock);
  if (how == "owner") Fault(nullptr);
  WaitForSingleObject(CreateThread(nullptr, 0, how == "raised" ? &Raise : &Fault, nullptr, 0, nullptr), INFINITE);
}

// A fault or an exception nobody handles, on the lock's thread or another,
// ends the process with 1 and one line naming the code and the module; the
// lock is given back by the thread that holds it, else left abandoned. A
// fault while that line is written ends the process without it, unhung.
TEST(CrashEndingTest, EachCrashEndsTheProcessWithItsLine) {
  const struct { const char* how; const char* line; LockOutcome after; } cases[] = {
      {"worker", "crash_ending.cpp: unhandled exception 0xC0000005 in calder_win_tests.exe+0x",
       LockOutcome::TakenOver},
      {"owner", "crash_ending.cpp: unhandled exception 0xC0000005 in calder_win_tests.exe+0x",
       LockOutcome::Taken},
      {"raised", "crash_ending.cpp: unhandled exception 0xE0C0DE01 in kernelbase.dll+0x",
       LockOutcome::TakenOver},
      {"logger", nullptr, LockOutcome::TakenOver}};
  Win32UpdateLock open(kLock);  // kept open: a lock a child leaves is abandoned, not gone
  ASSERT_EQ(open.Acquire().outcome, LockOutcome::Taken);
  open.Release();
  wchar_t self[MAX_PATH];
  GetModuleFileNameW(nullptr, self, MAX_PATH);
  for (const auto& c : cases) {
    DeleteFileA(kLog);
    SetEnvironmentVariableA("CALDER_CRASH_CHILD", c.how);
    std::wstring line = std::wstring(L"\"") + self + L"\" --gtest_filter=CrashEndingChild.*";
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    PROCESS_INFORMATION child = {};
    ASSERT_TRUE(CreateProcessW(self, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start, &child));
    EXPECT_EQ(WaitForSingleObject(child.hProcess, 60000), WAIT_OBJECT_0) << c.how;
    DWORD exit = 0;
    GetExitCodeProcess(child.hProcess, &exit);
    CloseHandle(child.hProcess);
    CloseHandle(child.hThread);
    std::ifstream in(kLog);
    const std::string log((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(exit, 1u) << c.how;
    if (c.line != nullptr) {
      EXPECT_EQ(log.rfind("ERROR ", 0), 0u) << c.how << ": " << log;
      EXPECT_NE(log.find(c.line), std::string::npos) << c.how << ": " << log;
      EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << c.how << ": " << log;
    }
    Win32UpdateLock after(kLock);
    EXPECT_EQ(after.Acquire().outcome, c.after) << c.how;
    after.Release();
  }
  SetEnvironmentVariableA("CALDER_CRASH_CHILD", nullptr);
}

}  // namespace
}  // namespace calder
