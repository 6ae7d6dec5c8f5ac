#include "ui/win32/ui_main_window.h"

#include <shellscalingapi.h>

#include "ui/win32/progress_messages.h"
#include "ui/progress_controls.h"
#include "ui/skin/paint_manager.h"
#include "ui/skin/progress.h"
#include "ui/win32/gdiplus_painter.h"

namespace calder {

namespace {

constexpr BYTE kOpacity = 230;
// WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU | WS_CLIPSIBLINGS | WS_CLIPCHILDREN
constexpr DWORD kWindowStyle = 0x96C80000;

}  // namespace

void Win32CountdownPlatform::PostTick(void* window, int seconds) {
  PostMessageW(static_cast<HWND>(window), WM_COUNTDOWN_TICK, static_cast<WPARAM>(seconds), 0);
}

uint64_t Win32CountdownPlatform::NowMs() { return GetTickCount64(); }

void Win32CountdownPlatform::Sleep(uint32_t ms) { ::Sleep(ms); }

bool Win32CountdownPlatform::IsWindow(void* window) {
  return ::IsWindow(static_cast<HWND>(window)) != FALSE;
}

void Win32CountdownPlatform::RunRestart(const char* command) { WinExec(command, SW_HIDE); }

UIMainWindow::UIMainWindow() : core_(*this, platform_) { InstallGdiPlusPainter(); }

UIMainWindow::~UIMainWindow() { StopCountdown(); }

LRESULT UIMainWindow::HandleMessage(UINT uMsg, WPARAM wParam, LPARAM lParam) {
  switch (uMsg) {
    case WM_UPDATE_PROGRESS:
      SetProgress(static_cast<int>(wParam));
      if (static_cast<int>(wParam) == 100 && session_ != nullptr) session_->UpdateFinished();
      break;
    case WM_QUERYENDSESSION:
      if (session_ != nullptr) return session_->MaySessionEnd() ? TRUE : FALSE;
      break;
    case WM_ENDSESSION:
      if (session_ != nullptr) session_->SessionEnding(wParam != FALSE);
      break;
    case WM_COUNTDOWN_TICK:
      UpdateCountdownText(static_cast<int>(wParam));
      return 0;
    case WM_CLOSE:
      // Cancels a countdown that the final 100 % has just started.
      StopCountdown();
      PostQuitMessage(0);
      break;
    default:
      break;
  }
  return WindowImplBase::HandleMessage(uMsg, wParam, lParam);
}

void UIMainWindow::InitWindow() {
  m_pm.SetDPI(static_cast<int>(GetDpiForWindow(GetHWND())), UiRect{});
  m_pLottie = m_pm.FindControl(L"lottieAnim");
  CControlUI* bar = m_pm.FindControl(L"firmprogress");
  m_pProgress = bar != nullptr ? static_cast<CProgressUI*>(bar->GetInterface(L"Progress")) : nullptr;
  m_pProgressText = m_pm.FindControl(L"progressText");
  SetProgress(0);
  m_pCountdownLabel = m_pm.FindControl(L"tip_daojis");
  m_pUpdatingRow = m_pm.FindControl(L"updataText");
  m_pCountdownRow = m_pm.FindControl(L"daojisText");
}

CControlUI* UIMainWindow::CreateControl(const wchar_t* pstrClass) {
  return CreateProgressControl(pstrClass);
}

bool UIMainWindow::GetBarRange(int* min, int* max) {
  if (m_pProgress == nullptr) return false;
  *min = m_pProgress->GetMinValue();
  *max = m_pProgress->GetMaxValue();
  return true;
}

void UIMainWindow::SetBarValue(int value) {
  m_pProgress->SetValue(value);
  // The painted band lies mostly below the bar's own rectangle, inside its
  // row: repaint the row, or only the band's top line would be redrawn.
  CControlUI* row = m_pProgress->GetParent();
  (row != nullptr ? row : m_pProgress)->Invalidate();
}

void UIMainWindow::SetProgressText(const std::wstring& text) {
  if (m_pProgressText != nullptr) m_pProgressText->SetText(text);
}

void UIMainWindow::ShowCountdownRow() {
  if (m_pUpdatingRow != nullptr) m_pUpdatingRow->SetVisible(false);
  if (m_pCountdownRow != nullptr) m_pCountdownRow->SetVisible(true);
}

void UIMainWindow::SetCountdownText(const std::wstring& text) {
  if (m_pCountdownLabel != nullptr) m_pCountdownLabel->SetText(text);
}

UIMainWindow* CreateProgressWindow() {
  SetProcessDpiAwareness(PROCESS_PER_MONITOR_DPI_AWARE);
  CPaintManagerUI::SetInstance(GetModuleHandleW(nullptr));
  CPaintManagerUI::SetResourcePath(CPaintManagerUI::GetInstancePath());
  CPaintManagerUI::SetResourceType(UILIB_ZIPRESOURCE);

  auto* window = new UIMainWindow();
  window->m_nResourceId = kSkinResourceId;
  window->Create(nullptr, L"", kWindowStyle, WS_EX_LAYERED, CW_USEDEFAULT, CW_USEDEFAULT,
                 CW_USEDEFAULT, CW_USEDEFAULT);
  const HWND hwnd = window->GetHWND();
  SetLayeredWindowAttributes(hwnd, 0, kOpacity, LWA_ALPHA);
  const LONG_PTR ex_style = GetWindowLongPtrW(hwnd, GWL_EXSTYLE);
  SetWindowLongPtrW(hwnd, GWL_EXSTYLE, (ex_style & ~WS_EX_TRANSPARENT) | WS_EX_NOACTIVATE);
  SetWindowPos(hwnd, HWND_TOPMOST, 0, 0, GetSystemMetrics(SM_CXSCREEN),
               GetSystemMetrics(SM_CYSCREEN), SWP_NOACTIVATE | SWP_SHOWWINDOW);
  SetForegroundWindow(hwnd);
  SetWindowPos(hwnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE | SWP_NOACTIVATE);
  EnableWindow(hwnd, FALSE);
  return window;
}

}  // namespace calder
