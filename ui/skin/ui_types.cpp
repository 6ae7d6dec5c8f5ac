#include "ui/skin/ui_types.h"

#include <algorithm>
#include <climits>

namespace calder {

bool IntersectUiRect(const UiRect& a, const UiRect& b, UiRect* out) {
  UiRect r{std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
           std::min(a.bottom, b.bottom)};
  if (r.IsEmpty()) r = UiRect{};
  *out = r;
  return !r.IsEmpty();
}

int MulDivRound(int number, int numerator, int denominator) {
  if (denominator == 0) return -1;
  const int64_t product = static_cast<int64_t>(number) * numerator;
  const bool negative = (product < 0) != (denominator < 0);
  const int64_t p = product < 0 ? -product : product;
  const int64_t d = denominator < 0 ? -static_cast<int64_t>(denominator) : denominator;
  int64_t q = (p + d / 2) / d;
  if (negative) q = -q;
  return static_cast<int>(std::clamp<int64_t>(q, INT_MIN, INT_MAX));
}

}  // namespace calder
