#include <windows.h>

#include <gtest/gtest.h>

#include "platform/win32/progress_globals.h"
#include "ui/firm_progress_ui.h"
#include "ui/lottie_ui.h"
#include "ui/skin/paint_manager.h"
#include "ui/win32/ui_main_window.h"

namespace calder {
namespace {

// The real progress window from the embedded skin, driven by its messages.
class MainWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    window_ = CreateProgressWindow();
    ASSERT_NE(window_->GetHWND(), nullptr);
  }

  CControlUI* Find(const wchar_t* name) { return window_->GetPaintManager().FindControl(name); }
  std::wstring Text(const wchar_t* name) { return Find(name)->GetText(); }
  LRESULT Send(UINT msg, WPARAM wp) { return SendMessageW(window_->GetHWND(), msg, wp, 0); }

  // Posts WM_CLOSE as the worker does and runs the queue until WM_QUIT.
  void CloseLikeTheWorker() {
    PostMessageW(window_->GetHWND(), WM_CLOSE, 0, 0);
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) DispatchMessageW(&msg);
  }

  UIMainWindow* window_ = nullptr;  // lives until the process ends, as in calder.exe
};

TEST_F(MainWindowTest, ShowsTheSkinsControlsWithProgressZero) {
  const HWND hwnd = window_->GetHWND();
  wchar_t cls[64] = {};
  GetClassNameW(hwnd, cls, 64);
  EXPECT_STREQ(cls, L"UIMainWindow");
  EXPECT_FALSE(IsWindowEnabled(hwnd));
  const LONG_PTR ex = GetWindowLongPtrW(hwnd, GWL_EXSTYLE);
  EXPECT_TRUE(ex & WS_EX_LAYERED);
  EXPECT_TRUE(ex & WS_EX_NOACTIVATE);
  EXPECT_TRUE(ex & WS_EX_TOPMOST);
  BYTE alpha = 0;
  GetLayeredWindowAttributes(hwnd, nullptr, &alpha, nullptr);
  EXPECT_EQ(alpha, 230);

  EXPECT_EQ(Find(L"firmprogress")->GetClass(), L"CFirmProgressUI");
  EXPECT_EQ(Find(L"lottieAnim")->GetClass(), L"LottieUI");
  EXPECT_EQ(Text(L"progressText"), L"0%");
  EXPECT_TRUE(Find(L"updataText")->IsVisible());
  EXPECT_FALSE(Find(L"daojisText")->IsVisible());
  CloseLikeTheWorker();
}

TEST_F(MainWindowTest, ProgressMessagesClampTheBarOnly) {
  auto* bar = static_cast<CFirmProgressUI*>(Find(L"firmprogress"));
  Send(WM_UPDATE_PROGRESS, static_cast<WPARAM>(-5));
  EXPECT_EQ(bar->GetValue(), 0);
  EXPECT_EQ(Text(L"progressText"), L"-5%");
  Send(WM_UPDATE_PROGRESS, 250);
  EXPECT_EQ(bar->GetValue(), 100);
  EXPECT_EQ(Text(L"progressText"), L"250%");
  EXPECT_FALSE(Find(L"daojisText")->IsVisible());
  CloseLikeTheWorker();
}

TEST_F(MainWindowTest, HundredThenCloseShowsTheCountdownAndCancelsIt) {
  Send(WM_UPDATE_PROGRESS, 100);
  EXPECT_FALSE(Find(L"updataText")->IsVisible());
  EXPECT_TRUE(Find(L"daojisText")->IsVisible());
  EXPECT_EQ(Text(L"tip_daojis"), L"12s 后将自动重启");
  EXPECT_EQ(Send(WM_COUNTDOWN_TICK, 7), 0);
  EXPECT_EQ(Text(L"tip_daojis"), L"7s 后将自动重启");
  const HWND hwnd = window_->GetHWND();
  CloseLikeTheWorker();  // joins the countdown thread, or this hangs
  EXPECT_FALSE(IsWindow(hwnd));
}

}  // namespace
}  // namespace calder
