// The progress window's cost under Wine: start to shown, render + blit per
// animation frame, and the process's CPU share over 10 s of the window alone.
// Prints "BENCH<TAB>metric<TAB>value<TAB>unit" lines for scripts/bench.
#include <windows.h>

#include <cstdio>
#include <string>
#include <thread>

#include "ui/win32/progress_messages.h"
#include "platform/win32/win32_seams.h"
#include "ui/lottie_player.h"
#include "ui/shape_painter.h"
#include "ui/skin/paint_manager.h"
#include "ui/win32/ui_main_window.h"

namespace {

double FileTimeMs(const FILETIME& t) {
  ULARGE_INTEGER v;
  v.LowPart = t.dwLowDateTime;
  v.HighPart = t.dwHighDateTime;
  return static_cast<double>(v.QuadPart) / 10000.0;
}

double ProcessCpuMs() {
  FILETIME created, exited, kernel, user;
  GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user);
  return FileTimeMs(kernel) + FileTimeMs(user);
}

double MsSinceProcessStart() {
  FILETIME created, exited, kernel, user, now;
  GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user);
  GetSystemTimeAsFileTime(&now);
  return FileTimeMs(now) - FileTimeMs(created);
}

double NowMs() {
  LARGE_INTEGER f, c;
  QueryPerformanceFrequency(&f);
  QueryPerformanceCounter(&c);
  return static_cast<double>(c.QuadPart) * 1000.0 / static_cast<double>(f.QuadPart);
}

void Report(const char* metric, double value, const char* unit) {
  std::printf("BENCH\t%s\t%.3f\t%s\n", metric, value, unit);
  std::fflush(stdout);
}

std::string ModuleFolder() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  return calder::AnimationFilePath(path, "");
}

// Renders and blits the shipped spinner the way the control does, on a
// memory DC of the control's size.
void MeasureFrames() {
  calder::LottiePlayer player;
  if (!player.Load(ModuleFolder() + "loading_dark.json", 100)) {
    std::fprintf(stderr, "loading_dark.json did not load\n");
    return;
  }
  HDC screen = GetDC(nullptr);
  HDC dc = CreateCompatibleDC(screen);
  HBITMAP bitmap = CreateCompatibleBitmap(screen, 110, 110);
  HGDIOBJ old = SelectObject(dc, bitmap);
  constexpr int kFrames = 300;
  double render = 0;
  double blit = 0;
  for (int i = 0; i < kFrames; ++i) {
    const double t0 = NowMs();
    player.AdvanceFrame();
    const double t1 = NowMs();
    auto painter = calder::OpenShapePainter(dc, calder::PaintQuality::kImage);
    painter->DrawPremultiplied(player.buffer(), static_cast<int>(player.buffer_width()),
                               static_cast<int>(player.buffer_height()), {0, 0, 110, 110});
    painter.reset();
    GdiFlush();
    blit += NowMs() - t1;
    render += t1 - t0;
  }
  SelectObject(dc, old);
  DeleteObject(bitmap);
  DeleteDC(dc);
  ReleaseDC(nullptr, screen);
  Report("window: spinner render per frame (343x343)", render / kFrames, "ms");
  Report("window: spinner bicubic blit per frame", blit / kFrames, "ms");
  Report("window: spinner render+blit share at 30 fps",
         (render + blit) / kFrames * player.frame_rate() / 10.0, "% of a core");
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  calder::InstallWin32Environment();
  calder::UIMainWindow* window = calder::CreateProgressWindow();
  UpdateWindow(window->GetHWND());
  Report("window: process start to window shown", MsSinceProcessStart(), "ms");

  MeasureFrames();

  // The window alone, animation playing, for 10 s.
  constexpr int kSeconds = 10;
  const double cpu0 = ProcessCpuMs();
  const double wall0 = NowMs();
  std::thread([hwnd = window->GetHWND()] {
    PostMessageW(hwnd, WM_UPDATE_PROGRESS, 42, 0);
    Sleep(kSeconds * 1000);
    PostMessageW(hwnd, WM_CLOSE, 0, 0);
  }).detach();
  calder::CPaintManagerUI::MessageLoop();
  const double wall = NowMs() - wall0;
  Report("window: CPU share over 10 s, animation playing",
         (ProcessCpuMs() - cpu0) / wall * 100.0, "% of a core");
  return 0;
}
