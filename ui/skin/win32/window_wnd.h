#pragma once

#include <windows.h>

namespace calder {

// A native window whose procedure forwards to a C++ object.
class CWindowWnd {
 public:
  CWindowWnd() = default;
  CWindowWnd(const CWindowWnd&) = delete;
  CWindowWnd& operator=(const CWindowWnd&) = delete;

  // Virtual slots in this order: class name, procedure, final message, destructor.
  virtual const wchar_t* GetWindowClassName() const = 0;
  virtual LRESULT HandleMessage(UINT uMsg, WPARAM wParam, LPARAM lParam);
  // After WM_NCDESTROY; the object is not deleted here.
  virtual void OnFinalMessage(HWND hWnd);
  virtual ~CWindowWnd() = default;
  virtual UINT GetClassStyle() const { return 0; }

  HWND GetHWND() const { return m_hWnd; }
  operator HWND() const { return m_hWnd; }

  bool RegisterWindowClass();
  HWND Create(HWND hwndParent, const wchar_t* pstrName, DWORD dwStyle, DWORD dwExStyle, int x, int y,
              int cx, int cy, HMENU hMenu = nullptr);
  void ShowWindow(bool bShow = true, bool bTakeFocus = true);
  void Close(UINT nRet = IDOK);

 protected:
  static LRESULT CALLBACK WndProc(HWND hWnd, UINT uMsg, WPARAM wParam, LPARAM lParam);

  HWND m_hWnd = nullptr;
};

}  // namespace calder
