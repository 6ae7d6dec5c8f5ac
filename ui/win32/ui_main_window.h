#pragma once

#include <windows.h>

#include "platform/session_end.h"
#include "ui/progress_window_core.h"
#include "ui/skin/win32/window_impl_base.h"

namespace calder {

class CControlUI;
class CProgressUI;

// The countdown's platform: posts to the window, GetTickCount64, Sleep,
// IsWindow and WinExec, nothing else.
class Win32CountdownPlatform : public CountdownPlatform {
 public:
  void PostTick(void* window, int seconds) override;
  uint64_t NowMs() override;
  void Sleep(uint32_t ms) override;
  bool IsWindow(void* window) override;
  void RunRestart(const char* command) override;
};

// The full-screen progress window built from "skin.xml". The worker drives it
// only through posted messages: WM_UPDATE_PROGRESS, WM_COUNTDOWN_TICK (its own
// countdown thread) and WM_CLOSE.
class UIMainWindow : public WindowImplBase, private ProgressView {
 public:
  UIMainWindow();
  ~UIMainWindow() override;

  const wchar_t* GetWindowClassName() const override { return L"UIMainWindow"; }
  LRESULT HandleMessage(UINT uMsg, WPARAM wParam, LPARAM lParam) override;
  void InitWindow() override;
  std::wstring GetSkinFile() override { return L"skin.xml"; }
  LPCWSTR GetResourceID() const override { return MAKEINTRESOURCEW(m_nResourceId); }
  CControlUI* CreateControl(const wchar_t* pstrClass) override;

  void SetProgress(int percent) { core_.SetProgress(percent); }
  void StartCountdown() { core_.StartCountdown(); }
  void StopCountdown() { core_.StopCountdown(); }
  void UpdateCountdownText(int seconds) { core_.UpdateCountdownText(seconds); }
  // Relays WM_QUERYENDSESSION, WM_ENDSESSION and the final 100 % to listener.
  void ListenForSessionEnd(SessionEndListener* listener) { session_ = listener; }

  int m_nResourceId = 0;

 private:
  bool GetBarRange(int* min, int* max) override;
  void SetBarValue(int value) override;
  void SetProgressText(const std::wstring& text) override;
  void ShowCountdownRow() override;
  void SetCountdownText(const std::wstring& text) override;
  void* NativeHandle() override { return GetHWND(); }

  CControlUI* m_pLottie = nullptr;
  CProgressUI* m_pProgress = nullptr;
  CControlUI* m_pProgressText = nullptr;
  CControlUI* m_pCountdownLabel = nullptr;
  CControlUI* m_pUpdatingRow = nullptr;
  CControlUI* m_pCountdownRow = nullptr;
  SessionEndListener* session_ = nullptr;
  Win32CountdownPlatform platform_;
  ProgressWindowCore core_;
};

constexpr int kSkinResourceId = 107;

// Creates and shows the progress window over the whole primary screen:
// layered at opacity 230, never activated, top-most and disabled for input.
// The window object lives until the process ends.
UIMainWindow* CreateProgressWindow();

}  // namespace calder
