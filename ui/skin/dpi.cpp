#include "ui/skin/dpi.h"

#include <climits>

#include "ui/skin/ui_types.h"

namespace calder {

void CDPI::SetScale(unsigned dpi) {
  scale_ = MulDivRound(dpi > INT_MAX ? INT_MAX : static_cast<int>(dpi), 100, 96);
}

int CDPI::GetScale() const {
  switch (awareness_) {
    case kDpiUnaware: return 100;
    case kSystemDpiAware: return system_scale_;
    case kPerMonitorDpiAware: break;
  }
  return scale_;
}

int CDPI::Scale(int x) const {
  if (awareness_ == kDpiUnaware) return x;
  return MulDivRound(x, GetScale(), 100);
}

}  // namespace calder
