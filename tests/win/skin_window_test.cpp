#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ui/skin/skin.h"
#include "ui/skin/win32/window_impl_base.h"

namespace calder {
namespace {

constexpr UINT kFiltered = WM_USER + 7;
constexpr UINT kDispatched = WM_USER + 8;

// Counts its timer events by id.
class TimerProbe : public CProgressUI {
 public:
  explicit TimerProbe(std::wstring cls) : cls_(std::move(cls)) {}
  std::wstring GetClass() const override { return cls_; }
  void DoEvent(TEventUI& event) override {
    if (event.Type == UIEVENT_TIMER && event.pSender == this) ticks.push_back(static_cast<unsigned>(event.wParam));
    CProgressUI::DoEvent(event);
  }
  std::vector<unsigned> ticks;

 private:
  std::wstring cls_;
};

class SkinTestWindow : public WindowImplBase {
 public:
  explicit SkinTestWindow(int resource, std::wstring skin = L"skin.xml") : resource_(resource), skin_(std::move(skin)) {}
  ~SkinTestWindow() override {
    if (IsWindow(GetHWND())) DestroyWindow(GetHWND());
  }

  const wchar_t* GetWindowClassName() const override { return L"CalderSkinTestWindow"; }
  std::wstring GetSkinFile() override { return skin_; }
  LPCWSTR GetResourceID() const override { return MAKEINTRESOURCEW(resource_); }
  void InitWindow() override { ++init_calls; }
  void OnFinalMessage(HWND hwnd) override {
    ++final_calls;
    WindowImplBase::OnFinalMessage(hwnd);
  }
  CControlUI* CreateControl(const wchar_t* tag) override {
    const std::wstring t = tag;
    if (t == L"LottieUI") return lottie = new TimerProbe(L"LottieUI");
    if (t == L"FirmProgressUI") return bar = new TimerProbe(L"CFirmProgressUI");
    return nullptr;
  }
  LRESULT HandleMessage(UINT msg, WPARAM wparam, LPARAM lparam) override {
    if (msg >= WM_USER) handled.push_back(msg);
    return WindowImplBase::HandleMessage(msg, wparam, lparam);
  }
  intptr_t MessageHandler(unsigned msg, uintptr_t, intptr_t, bool& bHandled) override {
    bHandled = msg == kFiltered;
    if (bHandled) ++filtered;
    return 0;
  }

  HWND Open(DWORD style = WS_POPUP | WS_VISIBLE) {
    return Create(nullptr, L"", style, 0, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT);
  }

  int init_calls = 0;
  int final_calls = 0;
  int filtered = 0;
  std::vector<UINT> handled;
  TimerProbe* lottie = nullptr;
  TimerProbe* bar = nullptr;

 private:
  int resource_;
  std::wstring skin_;
};

std::vector<std::wstring> g_failed_skins;
void RecordSkinFailure(const std::wstring& file) { g_failed_skins.push_back(file); }

void Pump(DWORD ms) {
  const ULONGLONG end = GetTickCount64() + ms;
  MSG msg;
  while (GetTickCount64() < end) {
    // Bounded: a window that asks to be painted forever must not hang the test.
    while (GetTickCount64() < end && PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
    Sleep(5);
  }
}

class SkinWindow : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    CPaintManagerUI::SetInstance(GetModuleHandleW(nullptr));
    CPaintManagerUI::SetResourcePath(CPaintManagerUI::GetInstancePath());
    CPaintManagerUI::SetResourceType(UILIB_ZIPRESOURCE);
    WindowImplBase::SetSkinFailureHandler(&RecordSkinFailure);
  }
  static void TearDownTestSuite() { WindowImplBase::SetSkinFailureHandler(nullptr); }
};

TEST_F(SkinWindow, ResourcePathEndsInABackslash) {
  const std::wstring path = CPaintManagerUI::GetInstancePath();
  ASSERT_FALSE(path.empty());
  EXPECT_EQ(path.back(), L'\\');
  CPaintManagerUI::SetResourcePath(L"C:\\x");
  EXPECT_EQ(CPaintManagerUI::GetResourcePath(), L"C:\\x\\");
  CPaintManagerUI::SetResourcePath(L"C:/x/");
  EXPECT_EQ(CPaintManagerUI::GetResourcePath(), L"C:/x/");
}

TEST_F(SkinWindow, MissingResourceLeavesAnEmptyWindowAndTheZipLoadsOncePerProcess) {
  CPaintManagerUI::SetResourceZip(nullptr, 0);
  SkinTestWindow missing(999);
  ASSERT_NE(missing.Open(), nullptr);
  EXPECT_EQ(missing.GetPaintManager().GetRoot(), nullptr);
  EXPECT_EQ(missing.init_calls, 0);
  EXPECT_FALSE(CPaintManagerUI::IsResourceZipHeld());
  Pump(50);  // paints an empty window without trouble

  SkinTestWindow real(107);
  ASSERT_NE(real.Open(), nullptr);
  EXPECT_TRUE(CPaintManagerUI::IsResourceZipHeld());
  EXPECT_EQ(real.init_calls, 1);
  EXPECT_NE(real.GetPaintManager().FindControl(L"progressText"), nullptr);

  // The zip is held now, so a wrong id is never looked up again.
  SkinTestWindow again(999);
  ASSERT_NE(again.Open(), nullptr);
  EXPECT_EQ(again.init_calls, 1);
}

TEST_F(SkinWindow, ABadSkinGoesToTheFailureHandler) {
  g_failed_skins.clear();
  SkinTestWindow prime(107);
  ASSERT_NE(prime.Open(), nullptr);
  SkinTestWindow bad(107, L"nope.xml");
  EXPECT_EQ(bad.Open(), nullptr);  // creation refused once the handler returns
  EXPECT_EQ(bad.init_calls, 0);
  EXPECT_EQ(g_failed_skins, std::vector<std::wstring>{L"nope.xml"});
}

TEST_F(SkinWindow, CreationStripsTheCaptionAndTakesTheSkinSize) {
  SkinTestWindow w(107);
  ASSERT_NE(w.Open(0x96C80000), nullptr);  // the progress window's style, caption included
  const LONG_PTR style = GetWindowLongPtrW(w.GetHWND(), GWL_STYLE);
  EXPECT_EQ(style & WS_CAPTION, 0);
  EXPECT_EQ(style & (WS_CLIPSIBLINGS | WS_CLIPCHILDREN), WS_CLIPSIBLINGS | WS_CLIPCHILDREN);
  RECT r;
  GetWindowRect(w.GetHWND(), &r);
  EXPECT_EQ(r.right - r.left, 1920);
  EXPECT_EQ(r.bottom - r.top, 1200);
  RECT client;
  GetClientRect(w.GetHWND(), &client);
  EXPECT_EQ(client.right, 1920);  // no native frame
  EXPECT_EQ(client.bottom, 1200);

  // SetDPI rescales the window and the framework's own message arrives.
  w.GetPaintManager().SetDPI(144, UiRect{});
  GetWindowRect(w.GetHWND(), &r);
  EXPECT_EQ(r.right - r.left, 2880);
  EXPECT_EQ(r.bottom - r.top, 1800);
  Pump(50);
  EXPECT_NE(std::find(w.handled.begin(), w.handled.end(), WM_USER + 200u), w.handled.end());
}

TEST_F(SkinWindow, PerControlTimersReachTheirOwnersDoEvent) {
  SkinTestWindow w(107);
  ASSERT_NE(w.Open(), nullptr);
  ASSERT_NE(w.lottie, nullptr);
  ASSERT_NE(w.bar, nullptr);
  ASSERT_TRUE(w.lottie->SetTimer(2026, 20));
  ASSERT_TRUE(w.bar->SetTimer(2026, 60));
  Pump(400);
  EXPECT_GE(w.lottie->ticks.size(), 5u);
  EXPECT_GE(w.bar->ticks.size(), 2u);
  EXPECT_LT(w.bar->ticks.size(), w.lottie->ticks.size());
  for (unsigned id : w.lottie->ticks) EXPECT_EQ(id, 2026u);
  EXPECT_TRUE(w.lottie->KillTimer(2026));
  const size_t after_kill = w.lottie->ticks.size();
  Pump(150);
  EXPECT_EQ(w.lottie->ticks.size(), after_kill);
  EXPECT_GT(w.bar->ticks.size(), 2u);
}

TEST_F(SkinWindow, MessageLoopPreTranslatesThenDispatchesUntilQuit) {
  SkinTestWindow w(107);
  ASSERT_NE(w.Open(), nullptr);
  w.handled.clear();
  PostMessageW(w.GetHWND(), kFiltered, 0, 0);
  PostMessageW(w.GetHWND(), kDispatched, 0, 0);
  PostQuitMessage(0);
  CPaintManagerUI::MessageLoop();
  EXPECT_EQ(w.filtered, 1);
  EXPECT_EQ(std::count(w.handled.begin(), w.handled.end(), kFiltered), 0);
  EXPECT_EQ(std::count(w.handled.begin(), w.handled.end(), kDispatched), 1);

  // Closing destroys the window; the object stays and forgets its handle.
  PostMessageW(w.GetHWND(), WM_CLOSE, 0, 0);
  Pump(50);
  EXPECT_EQ(w.GetHWND(), nullptr);
  EXPECT_EQ(w.final_calls, 1);
}

// Runs in a child process (see below): the default failure handler shows its
// message box, a watcher reads and dismisses it, and the process ends with 1.
TEST(SkinFailureChild, DefaultHandlerShowsTheMessageBoxAndExits) {
  wchar_t report[MAX_PATH] = {};
  if (GetEnvironmentVariableW(L"CALDER_SKIN_FAILURE_REPORT", report, MAX_PATH) == 0) {
    GTEST_SKIP() << "runs only as the child of SkinWindow.ABadSkinShowsTheMessageBoxAndEndsTheProcess";
  }
  static std::wstring report_path;
  report_path = report;
  CreateThread(
      nullptr, 0,
      [](void*) -> DWORD {
        for (int i = 0; i < 400; ++i) {
          HWND box = FindWindowW(L"#32770", L"Error");
          if (box != nullptr) {
            std::wstring texts;
            EnumChildWindows(
                box,
                [](HWND child, LPARAM out) -> BOOL {
                  wchar_t cls[32] = {}, text[256] = {};
                  GetClassNameW(child, cls, 31);
                  GetWindowTextW(child, text, 255);
                  if (lstrcmpiW(cls, L"Static") == 0 && text[0] != 0) *reinterpret_cast<std::wstring*>(out) += text;
                  return TRUE;
                },
                reinterpret_cast<LPARAM>(&texts));
            if (FILE* f = _wfopen(report_path.c_str(), L"wb")) {
              std::fwrite(texts.data(), sizeof(wchar_t), texts.size(), f);
              std::fclose(f);
            }
            PostMessageW(box, WM_COMMAND, IDOK, 0);
            return 0;
          }
          Sleep(25);
        }
        return 1;
      },
      nullptr, 0, nullptr);
  CPaintManagerUI::SetInstance(GetModuleHandleW(nullptr));
  CPaintManagerUI::SetResourceType(UILIB_ZIPRESOURCE);
  SkinTestWindow bad(107, L"nope.xml");
  bad.Open();
  ADD_FAILURE() << "the process should have ended";
}

TEST_F(SkinWindow, ABadSkinShowsTheMessageBoxAndEndsTheProcess) {
  wchar_t exe[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, exe, MAX_PATH);
  wchar_t temp[MAX_PATH] = {};
  GetTempPathW(MAX_PATH, temp);
  const std::wstring report = std::wstring(temp) + L"calder_skin_failure.txt";
  DeleteFileW(report.c_str());
  SetEnvironmentVariableW(L"CALDER_SKIN_FAILURE_REPORT", report.c_str());
  std::wstring command = L"\"" + std::wstring(exe) + L"\" --gtest_filter=SkinFailureChild.*";
  STARTUPINFOW si = {};
  si.cb = sizeof si;
  PROCESS_INFORMATION pi = {};
  const BOOL started = CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi);
  SetEnvironmentVariableW(L"CALDER_SKIN_FAILURE_REPORT", nullptr);
  ASSERT_TRUE(started);
  ASSERT_EQ(WaitForSingleObject(pi.hProcess, 60000), WAIT_OBJECT_0);
  DWORD code = 0;
  GetExitCodeProcess(pi.hProcess, &code);
  CloseHandle(pi.hThread);
  CloseHandle(pi.hProcess);
  EXPECT_EQ(code, 1u);
  std::wstring shown;
  if (FILE* f = _wfopen(report.c_str(), L"rb")) {
    wchar_t c;
    while (std::fread(&c, sizeof c, 1, f) == 1) shown += c;
    std::fclose(f);
  }
  // "加载资源文件失败：" and the skin file name, in a box titled "Error"
  EXPECT_EQ(shown, L"\u52A0\u8F7D\u8D44\u6E90\u6587\u4EF6\u5931\u8D25\uFF1Anope.xml");
}

// A screen grab of the window, as 32-bit top-down pixels.
struct Screenshot {
  int width = 0, height = 0;
  std::vector<uint32_t> pixels;

  uint32_t At(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x] & 0xFFFFFF; }
  int Count(const RECT& r, bool (*pick)(uint32_t)) const {
    int n = 0;
    for (int y = r.top; y < r.bottom; ++y)
      for (int x = r.left; x < r.right; ++x) n += pick(At(x, y)) ? 1 : 0;
    return n;
  }
  void SaveBmp(const char* path) const {
    BITMAPFILEHEADER file = {};
    BITMAPINFOHEADER info = {};
    info.biSize = sizeof info;
    info.biWidth = width;
    info.biHeight = -height;
    info.biPlanes = 1;
    info.biBitCount = 32;
    const DWORD bytes = static_cast<DWORD>(pixels.size() * 4);
    file.bfType = 0x4D42;
    file.bfOffBits = sizeof file + sizeof info;
    file.bfSize = file.bfOffBits + bytes;
    if (FILE* f = std::fopen(path, "wb")) {
      std::fwrite(&file, sizeof file, 1, f);
      std::fwrite(&info, sizeof info, 1, f);
      std::fwrite(pixels.data(), 1, bytes, f);
      std::fclose(f);
    }
  }
};

Screenshot GrabScreen(int width, int height) {
  Screenshot shot;
  shot.width = width;
  shot.height = height;
  shot.pixels.assign(static_cast<size_t>(width) * height, 0);
  HDC screen = GetDC(nullptr);
  HDC mem = CreateCompatibleDC(screen);
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = -height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  void* bits = nullptr;
  HBITMAP dib = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  HGDIOBJ old = SelectObject(mem, dib);
  BitBlt(mem, 0, 0, width, height, screen, 0, 0, SRCCOPY);
  GdiFlush();
  std::memcpy(shot.pixels.data(), bits, shot.pixels.size() * 4);
  SelectObject(mem, old);
  DeleteObject(dib);
  DeleteDC(mem);
  ReleaseDC(nullptr, screen);
  return shot;
}

bool IsBlack(uint32_t c) { return c == 0; }
bool IsBright(uint32_t c) { return ((c >> 16) & 0xFF) > 0xC0 && ((c >> 8) & 0xFF) > 0xC0 && (c & 0xFF) > 0xC0; }
bool IsLit(uint32_t c) { return c != 0; }

TEST_F(SkinWindow, TheEmbeddedSkinShowsOnScreen) {
  SkinTestWindow w(107);
  ASSERT_NE(w.Open(), nullptr);
  SetWindowPos(w.GetHWND(), HWND_TOPMOST, 0, 0, 1920, 1200, SWP_SHOWWINDOW);
  Pump(300);
  UpdateWindow(w.GetHWND());
  Pump(200);
  const int width = std::min(1920, GetSystemMetrics(SM_CXSCREEN));
  const int height = std::min(1200, GetSystemMetrics(SM_CYSCREEN));
  if (width != 1920 || height != 1200) GTEST_SKIP() << "needs a 1920x1200 screen (Xvfb, as scripts/test starts it)";
  const Screenshot shot = GrabScreen(width, height);
  shot.SaveBmp("skin_window.bmp");

  // Black everywhere no text is (the root's background).
  EXPECT_EQ(shot.Count(RECT{0, 0, 1920, 340}, &IsBlack), 1920 * 340);
  EXPECT_EQ(shot.Count(RECT{0, 860, 1920, 1200}, &IsBlack), 1920 * 340);
  // White text: the upgrading line and the percentage; grey notes.
  EXPECT_GT(shot.Count(RECT{515, 638, 1405, 691}, &IsBright), 200);  // tip_big
  EXPECT_GT(shot.Count(RECT{1247, 565, 1323, 592}, &IsBright), 30);  // progressText "100%"
  EXPECT_GT(shot.Count(RECT{515, 737, 1405, 759}, &IsLit), 200);     // info_one
  EXPECT_GT(shot.Count(RECT{515, 813, 1405, 835}, &IsLit), 100);     // info_threee
  EXPECT_EQ(shot.Count(RECT{515, 759, 1405, 775}, &IsLit), 0);       // the gap between two notes
  // The "100%" label is right-aligned: its left part stays dark.
  EXPECT_EQ(shot.Count(RECT{1247, 565, 1262, 592}, &IsLit), 0);
}

}  // namespace
}  // namespace calder
