#pragma once

#include <cstdint>
#include <vector>

#include "ui/skin/ui_types.h"

namespace calder {

// The progress painters scale by P / 96 where P is the DPI scale in percent.
// Kept as the field sees it: the divisor is 96, not 100; the window's layout
// is tuned to it.
float PainterScale(int scale_percent);

// One corner of a rounded-rectangle path: an arc in the square (x, y, d, d).
struct PathArc {
  float x = 0;
  float y = 0;
  float d = 0;
  float start = 0;
  float sweep = 0;
};

// Top-left, top-right, bottom-right, bottom-left, then the figure closes.
std::vector<PathArc> RoundedRectArcs(int x, int y, int w, int h, int radius);

// Where the pill-shaped bar goes for a control rectangle. The band starts
// about 9 scaled pixels below the control's top edge: the 10-pixel control sits
// at the top of its 27-pixel row and the band lands near the row's middle.
struct BarGeometry {
  bool visible = false;
  UiRect track;     // left, band top, right, band bottom
  int radius = 0;   // scaled corner radius
  int fill = 0;     // fill width in pixels; 0 draws no fill
  UiRect fill_rect;
};

BarGeometry ComputeBarGeometry(const UiRect& control, int scale_percent, int radius, int value);

// The ring, its arc from twelve o'clock and the centre text of the circle.
struct CircleGeometry {
  bool visible = false;
  int cx = 0;
  int cy = 0;
  int r = 0;
  int pen = 0;
  float start = -90.0f;
  float sweep = 0;
  float text_size = 0;   // scaled text size
  int font_height = 0;   // negative: a character height in pixels
};

CircleGeometry ComputeCircleGeometry(const UiRect& control, int scale_percent, int pen_width,
                                     int text_size, int value);

}  // namespace calder
