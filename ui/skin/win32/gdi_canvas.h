#pragma once

#include <windows.h>

#include "ui/skin/canvas.h"

namespace calder {

class Win32PaintWindow;

// Paints with GDI on a device context; fills with partial alpha go through
// GDI+, since GDI has no alpha.
class GdiCanvas : public Canvas {
 public:
  GdiCanvas(HDC dc, Win32PaintWindow* fonts) : dc_(dc), fonts_(fonts) {}

  void FillRect(const UiRect& rect, uint32_t argb) override;
  void DrawBorder(const UiRect& rect, int size, uint32_t argb) override;
  void DrawString(const UiRect& rect, const std::wstring& text, int font, uint32_t argb,
                  unsigned style) override;
  void PushClip(const UiRect& rect) override;
  void PopClip() override;
  void* NativeContext() override { return dc_; }

 private:
  HDC dc_;
  Win32PaintWindow* fonts_;
};

}  // namespace calder
