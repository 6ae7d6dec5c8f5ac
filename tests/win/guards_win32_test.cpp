#include <windows.h>

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

// What another process does to the lock, played by a thread: a mutex is
// owned by a thread, and abandoned when that thread ends holding it.
enum class Other { None, Holds, DiedHolding };

LockOutcome SecondAcquire(const wchar_t* name, Other other) {
  HANDLE release = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE taken = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::thread holder([&] {
    // The handle stays open, as in a process that is still alive.
    if (other != Other::None) Win32UpdateLock(name).Acquire();
    SetEvent(taken);
    if (other == Other::Holds) WaitForSingleObject(release, INFINITE);
  });
  WaitForSingleObject(taken, INFINITE);
  if (other != Other::Holds) holder.join();
  Win32UpdateLock lock(name);
  const LockOutcome outcome = lock.Acquire().outcome;
  lock.Release();
  SetEvent(release);
  if (holder.joinable()) holder.join();
  CloseHandle(release);
  CloseHandle(taken);
  return outcome;
}

TEST(Win32UpdateLockTest, TheMutexStateBecomesTheLockOutcome) {
  EXPECT_EQ(SecondAcquire(L"Global\\CalderTestLockFree", Other::None), LockOutcome::Taken);
  EXPECT_EQ(SecondAcquire(L"Global\\CalderTestLockHeld", Other::Holds), LockOutcome::Held);
  EXPECT_EQ(SecondAcquire(L"Global\\CalderTestLockDied", Other::DiedHolding),
            LockOutcome::TakenOver);
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
  std::vector<int> next(2, 0);
  ASSERT_EQ(log.Messages().size(), 2u * kLines);
  for (const std::string& message : log.Messages()) {
    char name = 0;
    int i = -1;
    char end[4] = {};
    ASSERT_EQ(std::sscanf(message.c_str(), "thread %c line %d %3s", &name, &i, end), 3) << message;
    ASSERT_EQ(std::string(end), "end") << message;
    ASSERT_EQ(i, next[name == 'w']++) << message;
  }
}

}  // namespace
}  // namespace calder
