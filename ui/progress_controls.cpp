#include "ui/progress_controls.h"

#include <cwchar>

#include "ui/circle_progress_ui.h"
#include "ui/firm_progress_ui.h"
#include "ui/lottie_ui.h"

namespace calder {

CControlUI* CreateProgressControl(const wchar_t* tag) {
  if (tag == nullptr) return nullptr;
  if (std::wcscmp(tag, L"CircleProgress") == 0) return new CCircleProgressUI();
  if (std::wcscmp(tag, L"LottieUI") == 0) return new CLottieUI();
  if (std::wcscmp(tag, L"FirmProgressUI") == 0) return new CFirmProgressUI();
  return nullptr;
}

}  // namespace calder
