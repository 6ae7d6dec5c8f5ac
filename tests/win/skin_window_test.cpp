#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "ui/skin/skin.h"
#include "ui/skin/win32/window_impl_base.h"

namespace calder {
namespace {

constexpr UINT kFiltered = WM_USER + 7;

// Records its timer events' ids.
class TimerProbe : public CProgressUI {
 public:
  void DoEvent(TEventUI& event) override {
    if (event.Type == UIEVENT_TIMER && event.pSender == this) ticks.push_back(static_cast<unsigned>(event.wParam));
  }
  std::vector<unsigned> ticks;
};

class SkinTestWindow : public WindowImplBase {
 public:
  explicit SkinTestWindow(int resource, std::wstring skin = L"skin.xml") : resource_(resource), skin_(skin) {
    Create(nullptr, L"", WS_POPUP | WS_VISIBLE, 0, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT);
  }
  ~SkinTestWindow() override { DestroyWindow(GetHWND()); }
  const wchar_t* GetWindowClassName() const override { return L"CalderSkinTestWindow"; }
  std::wstring GetSkinFile() override { return skin_; }
  LPCWSTR GetResourceID() const override { return MAKEINTRESOURCEW(resource_); }
  CControlUI* CreateControl(const wchar_t* tag) override {
    return std::wstring(tag) == L"LottieUI" ? (lottie = new TimerProbe()) : nullptr;
  }
  LRESULT HandleMessage(UINT msg, WPARAM wparam, LPARAM lparam) override {
    if (msg >= WM_USER) handled.push_back(msg);
    return WindowImplBase::HandleMessage(msg, wparam, lparam);
  }
  intptr_t MessageHandler(unsigned msg, uintptr_t, intptr_t, bool& bHandled) override {
    bHandled = msg == kFiltered;
    return 0;
  }

  std::vector<UINT> handled;
  TimerProbe* lottie = nullptr;

 private:
  int resource_;
  std::wstring skin_;
};

std::vector<std::wstring> g_failed_skins;

// Pumps for ms, or until done says so: a busy machine delivers late, and
// the long bound is only a hang guard.
void Pump(DWORD ms, const std::function<bool()>& done = nullptr) {
  const ULONGLONG end = GetTickCount64() + ms;
  MSG msg;
  while (GetTickCount64() < end && !(done && done())) {
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
    Sleep(5);
  }
}

class SkinWindow : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    CPaintManagerUI::SetInstance(GetModuleHandleW(nullptr));
    CPaintManagerUI::SetResourceType(UILIB_ZIPRESOURCE);
    WindowImplBase::SetSkinFailureHandler([](const std::wstring& file) { g_failed_skins.push_back(file); });
  }
  static void TearDownTestSuite() { WindowImplBase::SetSkinFailureHandler(nullptr); }
};

TEST_F(SkinWindow, TheZipResourceLoadsOncePerProcessAndABadSkinGoesToTheHandler) {
  CPaintManagerUI::SetResourceZip(nullptr, 0);
  SkinTestWindow missing(999);  // no such resource: an empty window
  ASSERT_NE(missing.GetHWND(), nullptr);
  EXPECT_EQ(missing.GetPaintManager().GetRoot(), nullptr);
  SkinTestWindow real(107);
  EXPECT_NE(real.GetPaintManager().FindControl(L"progressText"), nullptr);
  SkinTestWindow again(999);  // the zip is held now: the id is not looked up again
  EXPECT_NE(again.GetPaintManager().GetRoot(), nullptr);
  real.GetPaintManager().SetDPI(144, UiRect{});  // its move and post reach the native window
  const auto posted = [&] {
    return std::find(real.handled.begin(), real.handled.end(), WM_USER + 200u) != real.handled.end();
  };
  Pump(10000, posted);
  EXPECT_TRUE(posted());
  SkinTestWindow bad(107, L"nope.xml");
  EXPECT_EQ(bad.GetHWND(), nullptr);  // creation refused once the handler returns
  EXPECT_EQ(g_failed_skins, std::vector<std::wstring>{L"nope.xml"});
}

TEST_F(SkinWindow, TimersAndMessageFiltersGoThroughTheFramework) {
  SkinTestWindow w(107);
  ASSERT_NE(w.lottie, nullptr);
  ASSERT_TRUE(w.lottie->SetTimer(2026, 20));
  const auto ticks = [&] { return std::count(w.lottie->ticks.begin(), w.lottie->ticks.end(), 2026u); };
  Pump(10000, [&] { return ticks() >= 3; });
  EXPECT_GE(ticks(), 3);
  ASSERT_TRUE(w.lottie->KillTimer(2026));
  const size_t after_kill = w.lottie->ticks.size();
  Pump(100);
  EXPECT_EQ(w.lottie->ticks.size(), after_kill);

  w.handled.clear();
  PostMessageW(w.GetHWND(), kFiltered, 0, 0);
  PostMessageW(w.GetHWND(), WM_USER + 8, 0, 0);
  PostQuitMessage(0);
  CPaintManagerUI::MessageLoop();  // the filter takes the first, the window gets the second
  EXPECT_EQ(w.handled, std::vector<UINT>{WM_USER + 8});
}

}  // namespace
}  // namespace calder
