#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ui/progress_window_core.h"
#include "ui/skin/text.h"

namespace calder {
namespace {

void* const kWindow = reinterpret_cast<void*>(0x1234);

// The countdown's platform on a virtual clock. Each sleep advances it at once;
// while a gate is set, the sleep then waits until the gate opens.
class FakeCountdownPlatform : public CountdownPlatform {
 public:
  void PostTick(void* window, int seconds) override {
    std::lock_guard<std::mutex> lock(mutex_);
    EXPECT_EQ(window, kWindow);
    events += std::to_string(seconds) + " ";
  }
  uint64_t NowMs() override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (next_ < script.size()) now_ = script[next_++];
    return now_;
  }
  void Sleep(uint32_t ms) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      now_ += ms;
      sleeps.push_back(ms);
    }
    while (gate_ && !gate_()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  bool IsWindow(void* window) override { return window_alive && window == kWindow; }
  void RunRestart(const char* command) override {
    std::lock_guard<std::mutex> lock(mutex_);
    events += std::string(command) + " at " + std::to_string(now_) + " ";
    ++restarts;
  }

  // Waits for the countdown thread to get as far as done says.
  void WaitUntil(const std::function<bool()>& done) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!done()) {
      lock.unlock();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      lock.lock();
    }
  }

  std::function<bool()> gate_;  // set before the countdown starts
  std::vector<uint64_t> script;  // the clock's next readings, if any; set before the start
  // Read once the countdown thread has been joined.
  std::string events;  // ticks, and the restart with its time
  int restarts = 0;
  std::vector<uint32_t> sleeps;
  std::atomic<bool> window_alive{true};

 private:
  std::mutex mutex_;
  uint64_t now_ = 5000;
  size_t next_ = 0;
};

// Notes what the window core asks of its view, one word each.
class FakeView : public ProgressView {
 public:
  bool GetBarRange(int* min, int* max) override {
    *min = 0;
    *max = 100;
    return has_bar;
  }
  void SetBarValue(int value) override { log += "bar " + std::to_string(value) + "|"; }
  void SetProgressText(const std::wstring& text) override { log += WideToUtf8(text) + "|"; }
  void ShowCountdownRow() override { log += "row|"; }
  void SetCountdownText(const std::wstring& text) override { log += WideToUtf8(text) + "|"; }
  void* NativeHandle() override { return kWindow; }

  bool has_bar = true;
  std::string log;
};

class ProgressWindowTest : public testing::Test {
 protected:
  FakeCountdownPlatform platform;
  FakeView view;
};

TEST_F(ProgressWindowTest, ProgressClampsTheBarButNotTheLabelAndOnlyExactlyHundredCountsDown) {
  ProgressWindowCore window(view, platform);
  for (int percent : {-5, 0, 99, 101, 250}) window.SetProgress(percent);
  view.has_bar = false;
  window.SetProgress(7);
  EXPECT_EQ(view.log, "bar 0|-5%|bar 0|0%|bar 99|99%|bar 100|101%|bar 100|250%|7%|");
}

TEST_F(ProgressWindowTest, HundredWithoutACloseCountsDownAndRestartsOnce) {
  ProgressWindowCore window(view, platform);
  window.SetProgress(100);
  EXPECT_EQ(view.log, "bar 100|100%|row|12s 后将自动重启|");
  platform.WaitUntil([&] { return platform.restarts == 1; });
  window.StopCountdown();
  EXPECT_EQ(platform.sleeps, std::vector<uint32_t>(60, 200));
  // A window gone by then gets no ticks, but the restart still runs.
  platform.window_alive = false;
  window.SetProgress(100);
  platform.WaitUntil([&] { return platform.restarts == 2; });
  window.StopCountdown();
  EXPECT_EQ(platform.events,  // restarts 12 s after each 100
            "12 11 10 9 8 7 6 5 4 3 2 1 0 shutdown /r /t 0 /d p:0:0 at 17000 shutdown /r /t 0 /d p:0:0 at 29000 ");
}

// Whole seconds rounded up: 1 s left shows as long as any time is left.
TEST_F(ProgressWindowTest, CountdownSecondsRoundUp) {
  ProgressWindowCore window(view, platform);
  platform.script = {0, 0, 999, 1000, 10999, 11000, 11999, 12000};
  window.SetProgress(100);
  platform.WaitUntil([&] { return platform.restarts == 1; });
  window.StopCountdown();
  EXPECT_EQ(platform.events, "12 11 2 1 0 shutdown /r /t 0 /d p:0:0 at 12000 ");
}

TEST_F(ProgressWindowTest, CloseCancelsTheCountdownAndALaterHundredStartsAnother) {
  {
    ProgressWindowCore window(view, platform);
    platform.gate_ = [&] { return window.CountdownCancelRequested(); };
    window.SetProgress(100);
    platform.WaitUntil([&] { return !platform.sleeps.empty(); });
    window.SetProgress(50);   // moves the bar, keeps the countdown
    window.SetProgress(100);  // and so does a second 100: same deadline, same thread
    window.StopCountdown();
    EXPECT_EQ(platform.events, "12 ");
    EXPECT_FALSE(window.CountdownRunning());
    window.SetProgress(100);
    EXPECT_EQ(view.log, "bar 100|100%|row|12s 后将自动重启|bar 50|50%|bar 100|100%|row|bar 100|100%|row|12s 后将自动重启|");
    platform.WaitUntil([&] { return platform.sleeps.size() == 2; });
  }  // destroying the window cancels and joins
  EXPECT_EQ(platform.events, "12 12 ");  // no restart
}

}  // namespace
}  // namespace calder
