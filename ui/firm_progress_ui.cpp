#include "ui/firm_progress_ui.h"

#include <cwchar>

#include "ui/progress_geometry.h"
#include "ui/shape_painter.h"
#include "ui/skin/canvas.h"
#include "ui/skin/text.h"

namespace calder {

// Kept as the field sees it: the C prefix in this class name only; the
// circle and the animation answer "CircleProgress" and "LottieUI".
std::wstring CFirmProgressUI::GetClass() const { return L"CFirmProgressUI"; }

void CFirmProgressUI::SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) {
  // Own names are case-sensitive; "cirbjcolor" and "radius" reach the base too.
  if (std::wcscmp(pstrName, L"cirbjcolor") == 0) {
    if (*pstrValue == L'#') ++pstrValue;
    track_color_ = ParseColor(pstrValue);
  }
  if (std::wcscmp(pstrName, L"radius") == 0) radius_ = ParseInt(pstrValue);
  if (std::wcscmp(pstrName, L"circolor") == 0) {
    fill_color_ = ParseColor(pstrValue);
    return;
  }
  CProgressUI::SetAttribute(pstrName, pstrValue);
}

void CFirmProgressUI::PaintStatusImage(Canvas& canvas) {
  const BarGeometry g = ComputeBarGeometry(rect_, ControlScalePercent(*this), radius_, value_);
  if (!g.visible) return;
  std::unique_ptr<ShapePainter> painter =
      OpenShapePainter(canvas.NativeContext(), PaintQuality::kBar);
  if (!painter) return;
  painter->FillArcPath(
      RoundedRectArcs(g.track.left, g.track.top, g.track.Width(), g.track.Height(), g.radius),
      track_color_);
  if (g.fill > 0) {
    painter->FillArcPath(RoundedRectArcs(g.fill_rect.left, g.fill_rect.top, g.fill,
                                         g.fill_rect.Height(), g.radius),
                         fill_color_);
  }
}

}  // namespace calder
