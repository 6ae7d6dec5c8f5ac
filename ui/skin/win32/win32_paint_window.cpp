#include "ui/skin/win32/win32_paint_window.h"

#include "ui/skin/win32/gdiplus_include.h"

#include <algorithm>

#include "ui/skin/paint_manager.h"
#include "ui/skin/win32/gdi_canvas.h"

namespace calder {

namespace {

// GDI+ stays up for the process: custom controls paint with it too.
void StartGdiplusOnce() {
  static const bool started = [] {
    ULONG_PTR token = 0;
    Gdiplus::GdiplusStartupInput input;
    return Gdiplus::GdiplusStartup(&token, &input, nullptr) == Gdiplus::Ok;
  }();
  (void)started;
}

RECT ToRect(const UiRect& r) { return RECT{r.left, r.top, r.right, r.bottom}; }
UiRect FromRect(const RECT& r) { return UiRect{r.left, r.top, r.right, r.bottom}; }

}  // namespace

Win32PaintWindow::~Win32PaintWindow() {
  ResetDpiAssets();
  ReleaseBuffer();
}

void Win32PaintWindow::Attach(HWND hwnd) {
  StartGdiplusOnce();
  hwnd_ = hwnd;
  HDC screen = GetDC(nullptr);
  manager_->GetDPIObj()->SetSystemScale(MulDivRound(GetDeviceCaps(screen, LOGPIXELSX), 100, 96));
  ReleaseDC(nullptr, screen);
}

bool Win32PaintWindow::HandleMessage(UINT msg, WPARAM wparam, LPARAM, LRESULT* result) {
  switch (msg) {
    case WM_PAINT:
      Paint();
      *result = 0;
      return true;
    case WM_ERASEBKGND:
      *result = 1;  // the paint covers everything; erasing would flicker
      return true;
    case WM_SIZE:
      manager_->NeedUpdate();
      InvalidateRect(hwnd_, nullptr, FALSE);
      return false;
    case WM_TIMER:
      if (!manager_->OnNativeTimer(static_cast<unsigned>(wparam), GetTickCount64())) return false;
      *result = 0;
      return true;
    case kUiMsgSetDpi:
      manager_->NeedUpdate();
      InvalidateRect(hwnd_, nullptr, FALSE);
      *result = 0;
      return true;
    default:
      return false;
  }
}

void Win32PaintWindow::Paint() {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd_, &ps);
  RECT client;
  GetClientRect(hwnd_, &client);
  const int width = std::max<int>(1, client.right - client.left);
  const int height = std::max<int>(1, client.bottom - client.top);
  EnsureBuffer(dc, width, height);
  if (buffer_dc_ != nullptr) {
    // Where no control paints, the window shows the system window colour.
    FillRect(buffer_dc_, &ps.rcPaint, GetSysColorBrush(COLOR_WINDOW));
    GdiCanvas canvas(buffer_dc_, this);
    manager_->Paint(canvas, FromRect(client), FromRect(ps.rcPaint));
    BitBlt(dc, ps.rcPaint.left, ps.rcPaint.top, ps.rcPaint.right - ps.rcPaint.left,
           ps.rcPaint.bottom - ps.rcPaint.top, buffer_dc_, ps.rcPaint.left, ps.rcPaint.top, SRCCOPY);
  }
  EndPaint(hwnd_, &ps);
}

void Win32PaintWindow::EnsureBuffer(HDC reference, int width, int height) {
  if (buffer_dc_ != nullptr && width == buffer_width_ && height == buffer_height_) return;
  ReleaseBuffer();
  buffer_dc_ = CreateCompatibleDC(reference);
  buffer_ = CreateCompatibleBitmap(reference, width, height);
  if (buffer_dc_ == nullptr || buffer_ == nullptr) {
    ReleaseBuffer();
    return;
  }
  buffer_old_ = SelectObject(buffer_dc_, buffer_);
  buffer_width_ = width;
  buffer_height_ = height;
}

void Win32PaintWindow::ReleaseBuffer() {
  if (buffer_dc_ != nullptr && buffer_old_ != nullptr) SelectObject(buffer_dc_, buffer_old_);
  if (buffer_ != nullptr) DeleteObject(buffer_);
  if (buffer_dc_ != nullptr) DeleteDC(buffer_dc_);
  buffer_dc_ = nullptr;
  buffer_ = nullptr;
  buffer_old_ = nullptr;
  buffer_width_ = buffer_height_ = 0;
}

HFONT Win32PaintWindow::GetFont(int id) {
  const auto cached = fonts_.find(id);
  if (cached != fonts_.end()) return cached->second;
  const UiFont* font = manager_->GetFont(id);
  if (font == nullptr) return static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
  LOGFONTW lf = {};
  lf.lfHeight = -manager_->GetFontHeight(id);  // negative: character height in pixels
  lf.lfWeight = font->bold ? FW_BOLD : FW_NORMAL;
  lf.lfItalic = font->italic ? TRUE : FALSE;
  lf.lfUnderline = font->underline ? TRUE : FALSE;
  lf.lfCharSet = DEFAULT_CHARSET;
  lf.lfQuality = CLEARTYPE_QUALITY;
  font->face.copy(lf.lfFaceName, LF_FACESIZE - 1);
  HFONT made = CreateFontIndirectW(&lf);
  if (made == nullptr) return static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
  fonts_[id] = made;
  return made;
}

void Win32PaintWindow::Invalidate(const UiRect& rect) {
  const RECT r = ToRect(rect);
  InvalidateRect(hwnd_, &r, FALSE);
}

bool Win32PaintWindow::StartTimer(unsigned native_id, unsigned elapse_ms) {
  return ::SetTimer(hwnd_, native_id, elapse_ms, nullptr) != 0;
}

void Win32PaintWindow::StopTimer(unsigned native_id) { ::KillTimer(hwnd_, native_id); }

UiRect Win32PaintWindow::GetWindowRect() const {
  RECT r = {};
  ::GetWindowRect(hwnd_, &r);
  return FromRect(r);
}

bool Win32PaintWindow::IsMaximized() const { return IsZoomed(hwnd_) != FALSE; }

void Win32PaintWindow::MoveWindow(const UiRect& rect) {
  SetWindowPos(hwnd_, nullptr, rect.left, rect.top, rect.Width(), rect.Height(), SWP_NOZORDER | SWP_NOACTIVATE);
}

void Win32PaintWindow::PostToWindow(unsigned msg, uintptr_t wparam, intptr_t lparam) {
  PostMessageW(hwnd_, msg, wparam, lparam);
}

void Win32PaintWindow::ResetDpiAssets() {
  for (const auto& entry : fonts_) DeleteObject(entry.second);
  fonts_.clear();
}

}  // namespace calder
