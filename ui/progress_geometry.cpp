#include "ui/progress_geometry.h"

#include <algorithm>

namespace calder {

float PainterScale(int scale_percent) { return static_cast<float>(scale_percent) / 96.0f; }

std::vector<PathArc> RoundedRectArcs(int x, int y, int w, int h, int radius) {
  const float d = static_cast<float>(radius) * 2.0f;
  const float left = static_cast<float>(x);
  const float top = static_cast<float>(y);
  const float right = static_cast<float>(x + w) - d;
  const float bottom = static_cast<float>(y + h) - d;
  return {
      {left, top, d, 180.0f, 90.0f},
      {right, top, d, 270.0f, 90.0f},
      {right, bottom, d, 0.0f, 90.0f},
      {left, bottom, d, 90.0f, 90.0f},
  };
}

BarGeometry ComputeBarGeometry(const UiRect& control, int scale_percent, int radius, int value) {
  const float s = PainterScale(scale_percent);
  BarGeometry g;
  const int width = control.right - control.left;
  const int band_top = static_cast<int>(static_cast<float>(control.top) + s * 9.0f);
  const int band_bottom = static_cast<int>(s * 10.0f + static_cast<float>(band_top));
  if (width <= 0 || band_bottom - band_top <= 0) return g;
  g.visible = true;
  g.track = {control.left, band_top, control.right, band_bottom};
  g.radius = static_cast<int>(static_cast<float>(radius) * s);
  // The fill is not clipped: above 100 it runs past the track's right end.
  g.fill = static_cast<int>((static_cast<float>(value) / 100.0f) * static_cast<float>(width));
  g.fill_rect = {control.left, band_top, control.left + std::max(g.fill, 0), band_bottom};
  return g;
}

CircleGeometry ComputeCircleGeometry(const UiRect& control, int scale_percent, int pen_width,
                                     int text_size, int value) {
  CircleGeometry g;
  const int w = control.right - control.left;
  const int h = control.bottom - control.top;
  if (w < 1 || h < 1) return g;
  const float s = PainterScale(scale_percent);
  g.visible = true;
  g.cx = control.left + w / 2;
  g.cy = control.top + h / 2;
  g.pen = static_cast<int>(static_cast<float>(pen_width) * s);
  g.text_size = static_cast<float>(text_size) * s;
  g.font_height = -static_cast<int>(g.text_size);
  // A 4-pixel (scaled) margin plus half the stroke stays inside the square.
  g.r = std::min(w, h) / 2 - static_cast<int>(s * 4.0f) - g.pen / 2;
  g.sweep = static_cast<float>(value) * 360.0f / 100.0f;
  return g;
}

}  // namespace calder
