#pragma once

#include <cstdint>

#include "ui/skin/ui_types.h"

namespace calder {

// The native window a paint manager drives. The Win32 shell implements it
// over an HWND; tests use a recorder.
class PaintWindow {
 public:
  virtual ~PaintWindow() = default;

  virtual void* NativeHandle() const = 0;
  virtual void Invalidate(const UiRect& rect) = 0;
  virtual bool StartTimer(unsigned native_id, unsigned elapse_ms) = 0;
  virtual void StopTimer(unsigned native_id) = 0;
  virtual UiRect GetWindowRect() const = 0;
  virtual bool IsMaximized() const = 0;
  // Keeps the Z order and does not activate.
  virtual void MoveWindow(const UiRect& rect) = 0;
  virtual void PostToWindow(unsigned msg, uintptr_t wparam, intptr_t lparam) = 0;
  // Drops assets made for the old DPI scale, such as fonts.
  virtual void ResetDpiAssets() = 0;
};

}  // namespace calder
