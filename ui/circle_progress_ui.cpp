#include "ui/circle_progress_ui.h"

#include <cwchar>

#include "ui/progress_geometry.h"
#include "ui/progress_window_core.h"
#include "ui/shape_painter.h"
#include "ui/skin/canvas.h"
#include "ui/skin/text.h"

namespace calder {

std::wstring CCircleProgressUI::GetClass() const { return L"CircleProgress"; }

void CCircleProgressUI::SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) {
  if (std::wcscmp(pstrName, L"textFontSize") == 0) text_size_ = ParseInt(pstrValue);
  if (std::wcscmp(pstrName, L"circlePenWidth") == 0) pen_width_ = ParseInt(pstrValue);
  if (std::wcscmp(pstrName, L"cirbjcolor") == 0) {
    if (*pstrValue == L'#') ++pstrValue;
    ring_color_ = ParseColor(pstrValue);
  }
  if (std::wcscmp(pstrName, L"circolor") == 0) {
    arc_color_ = ParseColor(pstrValue);
    return;
  }
  CProgressUI::SetAttribute(pstrName, pstrValue);
}

void CCircleProgressUI::PaintStatusImage(Canvas& canvas) {
  const CircleGeometry g =
      ComputeCircleGeometry(rect_, ControlScalePercent(*this), pen_width_, text_size_, value_);
  if (!g.visible) return;
  std::unique_ptr<ShapePainter> painter =
      OpenShapePainter(canvas.NativeContext(), PaintQuality::kRing);
  if (!painter) return;
  const int x = g.cx - g.r;
  const int y = g.cy - g.r;
  const float pen = static_cast<float>(g.pen);
  painter->DrawEllipse(x, y, 2 * g.r, 2 * g.r, pen, ring_color_);
  painter->DrawArc(x, y, 2 * g.r, 2 * g.r, g.start, g.sweep, pen, arc_color_, true);
  painter->DrawCentredText(rect_, FormatProgressText(value_), g.font_height, L"微软雅黑");
}

}  // namespace calder
