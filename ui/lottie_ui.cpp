#include "ui/lottie_ui.h"

#include <cwchar>
#include <memory>

#include "platform/environment.h"
#include "platform/process_info.h"
#include "ui/shape_painter.h"
#include "ui/skin/canvas.h"
#include "ui/skin/text.h"

namespace calder {

namespace {

std::string ModulePathUtf8() {
  ProcessInfo* process = Env().process;
  return process != nullptr ? Utf16ToUtf8(process->ModulePathW()) : std::string();
}

}  // namespace

CLottieUI::~CLottieUI() {
  playing_ = false;
  KillTimer(timer_id_);
  Invalidate();
  player_.Unload();
}

std::wstring CLottieUI::GetClass() const { return L"LottieUI"; }

void CLottieUI::SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) {
  if (std::wcscmp(pstrName, L"json") == 0) {
    Load(pstrValue);
    return;
  }
  CProgressUI::SetAttribute(pstrName, pstrValue);
}

void CLottieUI::Load(const std::wstring& name) {
  const std::string path = AnimationFilePath(ModulePathUtf8(), WideToUtf8(name));
  if (path.empty()) return;
  if (!player_.Load(path, ControlScalePercent(*this))) return;
  playing_ = true;
  SetTimer(timer_id_, player_.TimerIntervalMs());
}

void CLottieUI::DoEvent(TEventUI& event) {
  CProgressUI::DoEvent(event);
  if (event.Type != UIEVENT_TIMER || event.wParam != timer_id_ || !playing_) return;
  if (player_.AdvanceFrame()) Invalidate();
}

void CLottieUI::PaintStatusImage(Canvas& canvas) {
  if (!player_.HasAnimation() || player_.total_frames() == 0 || player_.buffer() == nullptr) {
    return;
  }
  if (GetWidth() < 1 || GetHeight() < 1) return;
  // A control pushed past the left or top edge vanishes entirely.
  if (rect_.left < 0 || rect_.top < 0) return;
  std::unique_ptr<ShapePainter> painter =
      OpenShapePainter(canvas.NativeContext(), PaintQuality::kImage);
  if (!painter) return;
  painter->DrawPremultiplied(player_.buffer(), static_cast<int>(player_.buffer_width()),
                             static_cast<int>(player_.buffer_height()), rect_);
}

}  // namespace calder
