#pragma once

#include <cstdint>

namespace calder {

// Window-pixel rectangle; right and bottom are exclusive, as in Win32.
struct UiRect {
  int left = 0;
  int top = 0;
  int right = 0;
  int bottom = 0;

  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
  bool IsEmpty() const { return right <= left || bottom <= top; }
  bool operator==(const UiRect& o) const {
    return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
  }
  bool operator!=(const UiRect& o) const { return !(*this == o); }
};

struct UiSize {
  int cx = 0;
  int cy = 0;
};

// The intersection, or an empty rectangle when they do not overlap.
bool IntersectUiRect(const UiRect& a, const UiRect& b, UiRect* out);

// number * numerator / denominator rounded half away from zero, in 64-bit
// arithmetic and clamped to int; -1 for a zero denominator (as Win32 MulDiv).
int MulDivRound(int number, int numerator, int denominator);

// Message numbers and styles the portable core shares with the Win32 shell.
constexpr unsigned kUiMsgSetDpi = 0x0400 + 200;  // WM_USER + 200

// Text placement flags; the values are GDI's DT_* so the canvas passes them on.
enum TextStyle : unsigned {
  kTextLeft = 0x0000,
  kTextCenter = 0x0001,
  kTextRight = 0x0002,
  kTextVCenter = 0x0004,
  kTextSingleLine = 0x0020,
  kTextNoPrefix = 0x0800,
  kTextHorizontalMask = kTextCenter | kTextRight,
};

}  // namespace calder
