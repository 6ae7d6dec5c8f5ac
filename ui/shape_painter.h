#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ui/progress_geometry.h"
#include "ui/skin/ui_types.h"

namespace calder {

class CControlUI;

// The rendering settings each custom control asks for.
enum class PaintQuality {
  kBar,    // anti-alias, half-pixel offset
  kRing,   // anti-alias, high-quality pixel offset, ClearType grid-fit text
  kImage,  // high-quality bicubic, half-pixel offset, high-quality source-over
};

// Anti-aliased drawing on a native drawing context (GDI+ on Windows). One
// painter lives for one paint call; its objects are made and freed per call.
class ShapePainter {
 public:
  virtual ~ShapePainter() = default;
  // A closed figure of arcs, filled in the alternate mode.
  virtual void FillArcPath(const std::vector<PathArc>& arcs, uint32_t argb) = 0;
  virtual void DrawEllipse(int x, int y, int w, int h, float pen, uint32_t argb) = 0;
  virtual void DrawArc(int x, int y, int w, int h, float start, float sweep, float pen,
                       uint32_t argb, bool round_caps) = 0;
  // White bold text centred on one line, in native text drawing.
  virtual void DrawCentredText(const UiRect& rect, const std::wstring& text, int font_height,
                               const std::wstring& face) = 0;
  // A premultiplied ARGB buffer scaled into dest.
  virtual void DrawPremultiplied(const uint32_t* pixels, int width, int height,
                                 const UiRect& dest) = 0;
};

using ShapePainterFactory = std::unique_ptr<ShapePainter> (*)(void* native_context,
                                                             PaintQuality quality);

// The custom controls paint through the installed factory; with none, or
// without a native context, they draw nothing.
void SetShapePainterFactory(ShapePainterFactory factory);
std::unique_ptr<ShapePainter> OpenShapePainter(void* native_context, PaintQuality quality);

// The DPI scale in percent of the control's manager (100 without one), the
// P of the painters' P / 96.
int ControlScalePercent(const CControlUI& control);

}  // namespace calder
