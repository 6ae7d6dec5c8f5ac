#include <windows.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "base/log.h"
#include "platform/win32/guards_win32.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

// Another process's hold on the lock, played by a thread (a mutex belongs to
// a thread): alive and holding it, or ended holding it.
LockOutcome AcquireAfterAnotherHolder(const wchar_t* name, bool holderLives) {
  HANDLE taken = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::thread holder([&] {
    Win32UpdateLock(name).Acquire();  // its handle stays open
    SetEvent(taken);
    if (holderLives) WaitForSingleObject(done, INFINITE);
  });
  WaitForSingleObject(taken, INFINITE);
  if (!holderLives) holder.join();
  const LockOutcome outcome = Win32UpdateLock(name).Acquire().outcome;
  SetEvent(done);
  if (holder.joinable()) holder.join();
  return outcome;
}

TEST(Win32UpdateLockTest, TheMutexStateBecomesTheLockOutcome) {
  EXPECT_EQ(Win32UpdateLock(L"CalderTestLockFree").Acquire().outcome, LockOutcome::Taken);
  EXPECT_EQ(AcquireAfterAnotherHolder(L"CalderTestLockHeld", true), LockOutcome::Held);
  EXPECT_EQ(AcquireAfterAnotherHolder(L"CalderTestLockLeft", false), LockOutcome::TakenOver);
}

// Squatters in Global\: a mutex that admits nobody, an event of the lock's
// name. Without private namespaces (Wine) the lock lives there and such a
// name is held; with them the squatter is beside the point.
TEST(Win32UpdateLockTest, ANameSquattedInGlobalIsHeldOrIgnored) {
  const bool privateNamespaces =
      GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "CreatePrivateNamespaceW") != nullptr;
  const LockOutcome expected = privateNamespaces ? LockOutcome::Taken : LockOutcome::Held;
  SECURITY_ATTRIBUTES nobody = {sizeof nobody, nullptr, FALSE};
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P", SDDL_REVISION_1,
                                                                   &nobody.lpSecurityDescriptor, nullptr));
  // Left open, as a squatter would.
  std::thread([&] { CreateMutexExW(&nobody, L"Global\\CalderTestLockDenied", 0, SYNCHRONIZE); }).join();
  LocalFree(nobody.lpSecurityDescriptor);
  EXPECT_EQ(Win32UpdateLock(L"CalderTestLockDenied").Acquire().outcome, expected);
  ASSERT_NE(CreateEventW(nullptr, TRUE, FALSE, L"Global\\CalderTestLockEvent"), nullptr);
  EXPECT_EQ(Win32UpdateLock(L"CalderTestLockEvent").Acquire().outcome, expected);
}

// The window's thread logs while the worker does: with the library's locks
// every line stays whole and each thread's lines keep their order.
TEST(LoggerThreadsTest, LinesFromTwoThreadsStayWholeAndInOrder) {
  constexpr int kLines = 20000;
  test::LogCapture log;
  std::atomic<int> ready{0};
  auto writer = [&ready](char name) {
    for (++ready; ready < 2;) {
    }
    for (int i = 0; i < kLines; ++i) LOG(INFO) << "thread " << name << " line " << i << " end";
  };
  std::thread worker(writer, 'w');
  writer('u');
  worker.join();
  ASSERT_EQ(log.Messages().size(), 2u * kLines);
  int next[2] = {0, 0};
  for (const std::string& message : log.Messages()) {
    char name = 0, end[4] = {};
    int i = -1;
    ASSERT_EQ(std::sscanf(message.c_str(), "thread %c line %d %3s", &name, &i, end), 3) << message;
    ASSERT_EQ(i, next[name == 'w']++) << message;
    ASSERT_STREQ(end, "end") << message;
  }
}

}  // namespace
}  // namespace calder
