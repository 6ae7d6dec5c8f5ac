#include "ui/shape_painter.h"

#include "ui/skin/control.h"
#include "ui/skin/dpi.h"
#include "ui/skin/paint_manager.h"

namespace calder {

namespace {
ShapePainterFactory g_factory = nullptr;
}

void SetShapePainterFactory(ShapePainterFactory factory) { g_factory = factory; }

std::unique_ptr<ShapePainter> OpenShapePainter(void* native_context, PaintQuality quality) {
  if (g_factory == nullptr || native_context == nullptr) return nullptr;
  return g_factory(native_context, quality);
}

int ControlScalePercent(const CControlUI& control) {
  const CPaintManagerUI* manager = control.GetManager();
  return manager != nullptr ? manager->GetDPIObj()->GetScale() : 100;
}

}  // namespace calder
