#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "ui/progress_window_core.h"

namespace calder {
namespace {

using namespace std::chrono_literals;

void* const kWindow = reinterpret_cast<void*>(0x1234);

// The countdown's five platform operations on a virtual clock. Sleeps run free
// by default; a held platform blocks each sleep until the test releases it or
// the window asks the countdown to stop.
class FakeCountdownPlatform : public CountdownPlatform {
 public:
  void PostTick(void* window, int seconds) override {
    std::lock_guard<std::mutex> lock(mutex_);
    EXPECT_EQ(window, kWindow);
    ticks_.push_back(seconds);
  }
  uint64_t NowMs() override {
    std::lock_guard<std::mutex> lock(mutex_);
    return clock_.NowMs();
  }
  void Sleep(uint32_t ms) override {
    std::unique_lock<std::mutex> lock(mutex_);
    clock_.Sleep(ms);
    changed_.notify_all();
    while (held_ && releases_ == 0 && !(wake_ && wake_())) changed_.wait_for(lock, 1ms);
    if (releases_ > 0) --releases_;
  }
  bool IsWindow(void* window) override {
    std::lock_guard<std::mutex> lock(mutex_);
    return window_alive_ && window == kWindow;
  }
  void RunRestart(const char* command) override {
    std::lock_guard<std::mutex> lock(mutex_);
    restarts_.push_back(command);
    restart_at_ = clock_.NowMs();
    changed_.notify_all();
  }

  void Hold(std::function<bool()> wake) {
    std::lock_guard<std::mutex> lock(mutex_);
    held_ = true;
    wake_ = std::move(wake);
  }
  void Release(int sleeps) {
    std::lock_guard<std::mutex> lock(mutex_);
    releases_ += sleeps;
  }
  void WaitForSleeps(size_t count) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return clock_.sleeps().size() >= count; });
  }
  void WaitForRestart() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return !restarts_.empty(); });
  }
  void CloseWindow() {
    std::lock_guard<std::mutex> lock(mutex_);
    window_alive_ = false;
  }

  std::vector<int> ticks() {
    std::lock_guard<std::mutex> lock(mutex_);
    return ticks_;
  }
  std::vector<std::string> restarts() {
    std::lock_guard<std::mutex> lock(mutex_);
    return restarts_;
  }
  std::vector<uint32_t> sleeps() {
    std::lock_guard<std::mutex> lock(mutex_);
    return clock_.sleeps();
  }
  uint64_t restart_at() {
    std::lock_guard<std::mutex> lock(mutex_);
    return restart_at_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  VirtualClock clock_;
  std::vector<int> ticks_;
  std::vector<std::string> restarts_;
  uint64_t restart_at_ = 0;
  bool window_alive_ = true;
  bool held_ = false;
  int releases_ = 0;
  std::function<bool()> wake_;
};

// The window's controls, with the skin's bar range 0..100.
class FakeView : public ProgressView {
 public:
  bool GetBarRange(int* min, int* max) override {
    if (!has_bar) return false;
    *min = 0;
    *max = 100;
    return true;
  }
  void SetBarValue(int value) override { bar.push_back(value); }
  void SetProgressText(const std::wstring& text) override { progress_text = text; }
  void ShowCountdownRow() override { countdown_row_shows++; }
  void SetCountdownText(const std::wstring& text) override { countdown_text.push_back(text); }
  void* NativeHandle() override { return kWindow; }

  bool has_bar = true;
  std::vector<int> bar;
  std::wstring progress_text;
  int countdown_row_shows = 0;
  std::vector<std::wstring> countdown_text;
};

std::vector<int> SecondsDownFrom(int from) {
  std::vector<int> seconds;
  for (int s = from; s >= 0; --s) seconds.push_back(s);
  return seconds;
}

class ProgressWindowTest : public testing::Test {
 protected:
  FakeCountdownPlatform platform;
  FakeView view;
};

TEST_F(ProgressWindowTest, ProgressClampsTheBarButNotTheLabel) {
  ProgressWindowCore window(view, platform);
  window.SetProgress(-5);
  EXPECT_EQ(view.bar.back(), 0);
  EXPECT_EQ(view.progress_text, L"-5%");
  window.SetProgress(250);
  EXPECT_EQ(view.bar.back(), 100);
  EXPECT_EQ(view.progress_text, L"250%");
  window.SetProgress(42);
  EXPECT_EQ(view.bar.back(), 42);
  EXPECT_EQ(view.progress_text, L"42%");
  // Only exactly 100 starts the countdown.
  EXPECT_FALSE(window.CountdownRunning());
  EXPECT_EQ(view.countdown_row_shows, 0);
  EXPECT_TRUE(platform.ticks().empty());
}

TEST_F(ProgressWindowTest, LabelWithoutABarStillFollows) {
  view.has_bar = false;
  ProgressWindowCore window(view, platform);
  window.SetProgress(7);
  EXPECT_TRUE(view.bar.empty());
  EXPECT_EQ(view.progress_text, L"7%");
}

TEST_F(ProgressWindowTest, HundredWithoutACloseCountsDownAndRestartsOnce) {
  ProgressWindowCore window(view, platform);
  window.SetProgress(100);
  EXPECT_EQ(view.countdown_row_shows, 1);
  EXPECT_EQ(view.countdown_text, std::vector<std::wstring>{L"12s 后将自动重启"});
  platform.WaitForRestart();
  window.StopCountdown();  // joins the finished thread

  EXPECT_EQ(platform.ticks(), SecondsDownFrom(12));
  EXPECT_EQ(platform.restarts(), std::vector<std::string>{"shutdown /r /t 0 /d p:0:0"});
  EXPECT_EQ(platform.restart_at(), 12000u);
  // Polled every 200 ms until the deadline.
  EXPECT_EQ(platform.sleeps(), std::vector<uint32_t>(60, 200));

  window.UpdateCountdownText(3);
  EXPECT_EQ(view.countdown_text.back(), L"3s 后将自动重启");
}

TEST_F(ProgressWindowTest, CloseRightAfterHundredCancelsTheRestart) {
  ProgressWindowCore window(view, platform);
  platform.Hold([&] { return window.CountdownCancelRequested(); });
  window.SetProgress(100);
  platform.WaitForSleeps(1);
  window.StopCountdown();

  EXPECT_EQ(platform.ticks(), std::vector<int>{12});
  EXPECT_TRUE(platform.restarts().empty());
  EXPECT_FALSE(window.CountdownRunning());
}

TEST_F(ProgressWindowTest, SecondHundredKeepsTheDeadline) {
  ProgressWindowCore window(view, platform);
  platform.Hold(nullptr);
  window.SetProgress(100);
  platform.Release(10);
  platform.WaitForSleeps(11);  // 2200 ms into the countdown
  window.SetProgress(100);
  EXPECT_EQ(view.countdown_text.size(), 1u);
  platform.Hold([] { return true; });
  platform.WaitForRestart();
  window.StopCountdown();

  EXPECT_EQ(platform.ticks(), SecondsDownFrom(12));
  EXPECT_EQ(platform.restart_at(), 12000u);
  EXPECT_EQ(platform.restarts().size(), 1u);
}

TEST_F(ProgressWindowTest, ProgressAfterHundredMovesTheBarAndKeepsTheCountdown) {
  ProgressWindowCore window(view, platform);
  platform.Hold([&] { return window.CountdownCancelRequested(); });
  window.SetProgress(99);
  window.SetProgress(100);
  window.SetProgress(50);
  EXPECT_EQ(view.bar, (std::vector<int>{99, 100, 50}));
  EXPECT_EQ(view.progress_text, L"50%");
  EXPECT_EQ(view.countdown_row_shows, 1);
  EXPECT_TRUE(window.CountdownRunning());
  window.StopCountdown();
  EXPECT_TRUE(platform.restarts().empty());
}

TEST_F(ProgressWindowTest, CancelledCountdownCanStartAgain) {
  ProgressWindowCore window(view, platform);
  platform.Hold([&] { return window.CountdownCancelRequested(); });
  window.SetProgress(100);
  window.StopCountdown();
  window.SetProgress(100);
  EXPECT_TRUE(window.CountdownRunning());
  EXPECT_EQ(view.countdown_text.size(), 2u);
  window.StopCountdown();
  EXPECT_TRUE(platform.restarts().empty());
}

TEST_F(ProgressWindowTest, GoneWindowGetsNoTicksButTheRestartStillRuns) {
  platform.CloseWindow();
  ProgressWindowCore window(view, platform);
  window.SetProgress(100);
  platform.WaitForRestart();
  window.StopCountdown();
  EXPECT_TRUE(platform.ticks().empty());
  EXPECT_EQ(platform.restarts().size(), 1u);
}

TEST_F(ProgressWindowTest, DestroyingTheWindowCancelsAndJoins) {
  {
    ProgressWindowCore window(view, platform);
    platform.Hold([&] { return window.CountdownCancelRequested(); });
    window.SetProgress(100);
    platform.WaitForSleeps(1);
  }
  EXPECT_TRUE(platform.restarts().empty());
  EXPECT_EQ(platform.ticks(), std::vector<int>{12});
}

}  // namespace
}  // namespace calder
