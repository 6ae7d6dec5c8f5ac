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

// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD, as Windows converts it.
std::string Utf16ToUtf8(const std::u16string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    uint32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

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
