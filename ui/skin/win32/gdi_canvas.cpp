#include "ui/skin/win32/gdi_canvas.h"

#include "ui/skin/win32/gdiplus_include.h"

#include "ui/skin/win32/win32_paint_window.h"

namespace calder {

static_assert(kTextLeft == DT_LEFT && kTextCenter == DT_CENTER && kTextRight == DT_RIGHT &&
                  kTextVCenter == DT_VCENTER && kTextSingleLine == DT_SINGLELINE &&
                  kTextNoPrefix == DT_NOPREFIX,
              "text styles pass straight to DrawTextW");

namespace {

COLORREF ToColorRef(uint32_t argb) {
  return RGB((argb >> 16) & 0xFF, (argb >> 8) & 0xFF, argb & 0xFF);
}

uint32_t Alpha(uint32_t argb) { return argb >> 24; }

}  // namespace

void GdiCanvas::FillRect(const UiRect& rect, uint32_t argb) {
  if (Alpha(argb) == 0 || rect.IsEmpty()) return;
  if (Alpha(argb) == 0xFF) {
    const RECT r{rect.left, rect.top, rect.right, rect.bottom};
    const COLORREF old = SetDCBrushColor(dc_, ToColorRef(argb));
    ::FillRect(dc_, &r, static_cast<HBRUSH>(GetStockObject(DC_BRUSH)));
    SetDCBrushColor(dc_, old);
    return;
  }
  using namespace Gdiplus::DllExports;
  Gdiplus::GpGraphics* graphics = nullptr;
  if (GdipCreateFromHDC(dc_, &graphics) != Gdiplus::Ok) return;
  Gdiplus::GpSolidFill* brush = nullptr;
  if (GdipCreateSolidFill(argb, &brush) == Gdiplus::Ok) {
    GdipFillRectangleI(graphics, brush, rect.left, rect.top, rect.Width(), rect.Height());
    GdipDeleteBrush(brush);
  }
  GdipDeleteGraphics(graphics);
}

void GdiCanvas::DrawBorder(const UiRect& rect, int size, uint32_t argb) {
  if (size <= 0) return;
  FillRect(UiRect{rect.left, rect.top, rect.right, rect.top + size}, argb);
  FillRect(UiRect{rect.left, rect.bottom - size, rect.right, rect.bottom}, argb);
  FillRect(UiRect{rect.left, rect.top + size, rect.left + size, rect.bottom - size}, argb);
  FillRect(UiRect{rect.right - size, rect.top + size, rect.right, rect.bottom - size}, argb);
}

void GdiCanvas::DrawString(const UiRect& rect, const std::wstring& text, int font, uint32_t argb,
                           unsigned style) {
  if (text.empty()) return;
  RECT r{rect.left, rect.top, rect.right, rect.bottom};
  const HGDIOBJ old_font = SelectObject(dc_, fonts_->GetFont(font));
  const int old_mode = SetBkMode(dc_, TRANSPARENT);
  const COLORREF old_color = SetTextColor(dc_, ToColorRef(argb));
  DrawTextW(dc_, text.c_str(), static_cast<int>(text.size()), &r, style);
  SetTextColor(dc_, old_color);
  SetBkMode(dc_, old_mode);
  SelectObject(dc_, old_font);
}

void GdiCanvas::PushClip(const UiRect& rect) {
  SaveDC(dc_);
  IntersectClipRect(dc_, rect.left, rect.top, rect.right, rect.bottom);
}

void GdiCanvas::PopClip() { RestoreDC(dc_, -1); }

}  // namespace calder
