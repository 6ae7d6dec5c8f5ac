#include <windows.h>

#include "ui/skin/paint_manager.h"
#include "ui/skin/paint_window.h"

namespace calder {

namespace {

// Offers the message to the paint managers of its window (or an ancestor).
bool PreTranslate(const MSG& msg) {
  for (CPaintManagerUI* manager : CPaintManagerUI::GetPaintManagers()) {
    PaintWindow* window = manager->GetPaintWindow();
    if (window == nullptr) continue;
    HWND hwnd = static_cast<HWND>(window->NativeHandle());
    if (hwnd == nullptr || (msg.hwnd != hwnd && !IsChild(hwnd, msg.hwnd))) continue;
    intptr_t result = 0;
    if (manager->PreMessageHandler(msg.message, msg.wParam, msg.lParam, result)) return true;
  }
  return false;
}

}  // namespace

std::wstring CPaintManagerUI::GetInstancePath() {
  wchar_t path[MAX_PATH + 1] = {};
  GetModuleFileNameW(static_cast<HMODULE>(GetInstance()), path, MAX_PATH);
  std::wstring folder(path);
  const size_t slash = folder.find_last_of(L'\\');
  if (slash != std::wstring::npos) folder.resize(slash + 1);
  return folder;
}

void CPaintManagerUI::MessageLoop() {
  MSG msg = {};
  while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
    if (PreTranslate(msg)) continue;
    TranslateMessage(&msg);
    try {
      DispatchMessageW(&msg);
    } catch (...) {
      // A failing handler must not end the loop that owns every window.
    }
  }
}

}  // namespace calder
