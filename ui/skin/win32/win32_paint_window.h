#pragma once

#include <windows.h>

#include <map>

#include "ui/skin/paint_window.h"

namespace calder {

class CPaintManagerUI;

// The paint manager's window over an HWND: double-buffered WM_PAINT, native
// timers routed to the manager, the DPI relayout message, fonts per scale.
class Win32PaintWindow : public PaintWindow {
 public:
  explicit Win32PaintWindow(CPaintManagerUI* manager) : manager_(manager) {}
  ~Win32PaintWindow() override;

  void Attach(HWND hwnd);
  // The messages the framework handles itself; false leaves them to the window.
  bool HandleMessage(UINT msg, WPARAM wparam, LPARAM lparam, LRESULT* result);
  // The font of the manager's table at the current scale, made on first use.
  HFONT GetFont(int id);

  void* NativeHandle() const override { return hwnd_; }
  void Invalidate(const UiRect& rect) override;
  bool StartTimer(unsigned native_id, unsigned elapse_ms) override;
  void StopTimer(unsigned native_id) override;
  UiRect GetWindowRect() const override;
  bool IsMaximized() const override;
  void MoveWindow(const UiRect& rect) override;
  void PostToWindow(unsigned msg, uintptr_t wparam, intptr_t lparam) override;
  void ResetDpiAssets() override;

 private:
  void Paint();
  void EnsureBuffer(HDC reference, int width, int height);
  void ReleaseBuffer();

  CPaintManagerUI* manager_;
  HWND hwnd_ = nullptr;
  HDC buffer_dc_ = nullptr;
  HBITMAP buffer_ = nullptr;
  HGDIOBJ buffer_old_ = nullptr;
  int buffer_width_ = 0;
  int buffer_height_ = 0;
  std::map<int, HFONT> fonts_;
};

}  // namespace calder
