#include <windows.h>

#include <gtest/gtest.h>

#include "ui/win32/progress_messages.h"
#include "ui/skin/paint_manager.h"
#include "ui/skin/progress.h"
#include "ui/win32/ui_main_window.h"

namespace calder {
namespace {

// The real progress window from the embedded skin, driven by its messages as
// the worker and the countdown thread send them.
TEST(UIMainWindowMessages, ProgressTicksAndCloseReachTheSkinsControls) {
  UIMainWindow* window = CreateProgressWindow();  // lives until the process ends, as in calder.exe
  const HWND hwnd = window->GetHWND();
  ASSERT_NE(hwnd, nullptr);
  CPaintManagerUI& pm = window->GetPaintManager();
  auto text = [&](const wchar_t* name) { return pm.FindControl(name)->GetText(); };
  auto* bar = static_cast<CProgressUI*>(pm.FindControl(L"firmprogress"));
  EXPECT_EQ(text(L"progressText"), L"0%");  // set as the window initialises
  SendMessageW(hwnd, WM_UPDATE_PROGRESS, 250, 0);
  EXPECT_EQ(bar->GetValue(), 100);  // clamped to the bar's own range
  EXPECT_TRUE(pm.FindControl(L"updataText")->IsVisible());
  SendMessageW(hwnd, WM_UPDATE_PROGRESS, 100, 0);
  EXPECT_FALSE(pm.FindControl(L"updataText")->IsVisible());
  EXPECT_TRUE(pm.FindControl(L"daojisText")->IsVisible());
  EXPECT_EQ(text(L"tip_daojis"), L"12s 后将自动重启");
  EXPECT_EQ(SendMessageW(hwnd, WM_COUNTDOWN_TICK, 7, 0), 0);
  EXPECT_EQ(text(L"tip_daojis"), L"7s 后将自动重启");

  // The worker's close: the countdown is joined (or this hangs) and the loop ends.
  PostMessageW(hwnd, WM_CLOSE, 0, 0);
  MSG msg;
  while (GetMessageW(&msg, nullptr, 0, 0) > 0) DispatchMessageW(&msg);
  EXPECT_EQ(msg.message, static_cast<UINT>(WM_QUIT));
  EXPECT_FALSE(IsWindow(hwnd));
}

}  // namespace
}  // namespace calder
