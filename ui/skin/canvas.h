#pragma once

#include <cstdint>
#include <string>

#include "ui/skin/ui_types.h"

namespace calder {

// What controls paint on. The Win32 shell draws with GDI into the window's
// back buffer; tests record the calls.
class Canvas {
 public:
  virtual ~Canvas() = default;

  // Colours are 0xAARRGGBB; alpha 0 draws nothing.
  virtual void FillRect(const UiRect& rect, uint32_t argb) = 0;
  virtual void DrawBorder(const UiRect& rect, int size, uint32_t argb) = 0;
  // font is an id of the manager's font table (-1: the default font);
  // style is a set of TextStyle flags.
  virtual void DrawString(const UiRect& rect, const std::wstring& text, int font, uint32_t argb,
                          unsigned style) = 0;

  // Nested clip regions, each intersected with the one before.
  virtual void PushClip(const UiRect& rect) = 0;
  virtual void PopClip() = 0;

  // The platform drawing context (an HDC in the Win32 shell) for controls
  // that paint with native calls; null where there is none.
  virtual void* NativeContext() = 0;
};

}  // namespace calder
