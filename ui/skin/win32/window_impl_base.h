#pragma once

#include <windows.h>

#include <string>

#include "ui/skin/paint_manager.h"
#include "ui/skin/ui_events.h"
#include "ui/skin/win32/win32_paint_window.h"
#include "ui/skin/win32/window_wnd.h"

namespace calder {

// A window drawn entirely from a skin: no native frame, no child windows.
// WM_CREATE strips the caption, loads the skin zip resource once per process,
// builds the control tree with the window as builder callback, and calls
// InitWindow.
class WindowImplBase : public CWindowWnd,
                       public CNotifyPump,
                       public INotifyUI,
                       public IMessageFilterUI,
                       public IDialogBuilderCallback,
                       public IQueryControlText {
 public:
  // Told the skin file that failed to build; the default shows the message
  // box and ends the process with exit code 1. Tests install their own.
  using SkinFailureHandler = void (*)(const std::wstring& skin_file);
  static void SetSkinFailureHandler(SkinFailureHandler handler);

  WindowImplBase();

  LRESULT HandleMessage(UINT uMsg, WPARAM wParam, LPARAM lParam) override;
  void OnFinalMessage(HWND hWnd) override;
  ~WindowImplBase() override;
  virtual void InitWindow() {}
  // Empty: the skin is loaded by its file name from the zip.
  virtual std::wstring GetSkinType() { return std::wstring(); }
  virtual std::wstring GetSkinFile() = 0;
  // The id of the "ZIPRES" resource, as MAKEINTRESOURCEW gives it.
  virtual LPCWSTR GetResourceID() const { return nullptr; }

  void Notify(TNotifyUI& msg) override;
  intptr_t MessageHandler(unsigned uMsg, uintptr_t wParam, intptr_t lParam, bool& bHandled) override;
  CControlUI* CreateControl(const wchar_t* pstrClass) override;
  const wchar_t* QueryControlText(const wchar_t* lpstrId, const wchar_t* lpstrType) override;

  CPaintManagerUI& GetPaintManager() { return m_pm; }

 protected:
  virtual LRESULT OnCreate(UINT uMsg, WPARAM wParam, LPARAM lParam, BOOL& bHandled);

  // Declared first so the manager, which stops timers through it, goes first.
  Win32PaintWindow m_paintWindow;
  CPaintManagerUI m_pm;
};

}  // namespace calder
