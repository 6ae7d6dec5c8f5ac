// gesture_helper RECORD [SECONDS] [quit-on-begin]
// Creates the message-only window "KoruTouchGestureClass" / "koru_touch_gesture",
// appends "begin" / "end" to RECORD as WM_USER + 1 / + 2 arrive, and records the
// first steady sighting (500 ms after it shows) of a "UIMainWindow" window: its styles, place, enabled state
// and layered opacity. Creates RECORD.ready once the window exists; leaves after
// SECONDS (default 60), or at once after "begin" with quit-on-begin.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string g_record;
bool g_quit_on_begin = false;
bool g_seen = false;
ULONGLONG g_first_seen = 0;

void Append(const std::string& line) {
  FILE* f = std::fopen(g_record.c_str(), "a");
  if (f == nullptr) return;
  std::fprintf(f, "%s\n", line.c_str());
  std::fclose(f);
}

void LookForProgressWindow() {
  if (g_seen) return;
  HWND window = FindWindowW(L"UIMainWindow", nullptr);
  if (window == nullptr || !IsWindowVisible(window)) return;
  // Its creator finishes setting it up after it first shows: look a moment later.
  if (g_first_seen == 0) g_first_seen = GetTickCount64();
  if (GetTickCount64() - g_first_seen < 500) return;
  RECT rc;
  GetWindowRect(window, &rc);
  BYTE alpha = 0;
  DWORD flags = 0;
  GetLayeredWindowAttributes(window, nullptr, &alpha, &flags);
  char line[256];
  std::snprintf(line, sizeof line,
                "window style=%08lX exstyle=%08lX rect=%ld,%ld,%ld,%ld enabled=%d alpha=%u "
                "lwa=%lu screen=%d,%d",
                static_cast<unsigned long>(GetWindowLongW(window, GWL_STYLE)),
                static_cast<unsigned long>(GetWindowLongW(window, GWL_EXSTYLE)), rc.left, rc.top,
                rc.right, rc.bottom, IsWindowEnabled(window) ? 1 : 0, alpha, flags,
                GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
  Append(line);
  g_seen = true;
}

LRESULT CALLBACK HelperProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (msg == WM_USER + 1) {
    Append("begin");
    if (g_quit_on_begin) PostQuitMessage(0);
    return 0;
  }
  if (msg == WM_USER + 2) {
    Append("end");
    return 0;
  }
  if (msg == WM_TIMER) {
    LookForProgressWindow();
    return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR, int) {
  if (__argc < 2) return 2;
  g_record = __argv[1];
  const int seconds = __argc > 2 ? std::atoi(__argv[2]) : 60;
  g_quit_on_begin = __argc > 3 && std::strcmp(__argv[3], "quit-on-begin") == 0;

  WNDCLASSW wc = {};
  wc.lpfnWndProc = HelperProc;
  wc.hInstance = instance;
  wc.lpszClassName = L"KoruTouchGestureClass";
  RegisterClassW(&wc);
  HWND hwnd = CreateWindowExW(0, wc.lpszClassName, L"koru_touch_gesture", 0, 0, 0, 0, 0,
                              HWND_MESSAGE, nullptr, instance, nullptr);
  if (hwnd == nullptr) return 3;
  SetTimer(hwnd, 1, 5, nullptr);
  SetTimer(hwnd, 2, static_cast<UINT>(seconds) * 1000, nullptr);
  FILE* ready = std::fopen((g_record + ".ready").c_str(), "w");
  if (ready != nullptr) std::fclose(ready);

  MSG msg;
  while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
    if (msg.message == WM_TIMER && msg.wParam == 2) break;
    DispatchMessageW(&msg);
  }
  DestroyWindow(hwnd);
  return 0;
}
