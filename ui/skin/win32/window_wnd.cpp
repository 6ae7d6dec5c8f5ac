#include "ui/skin/win32/window_wnd.h"

#include "ui/skin/paint_manager.h"

namespace calder {

namespace {

HINSTANCE Module() {
  HINSTANCE instance = static_cast<HINSTANCE>(CPaintManagerUI::GetInstance());
  return instance != nullptr ? instance : GetModuleHandleW(nullptr);
}

}  // namespace

LRESULT CWindowWnd::HandleMessage(UINT uMsg, WPARAM wParam, LPARAM lParam) {
  return DefWindowProcW(m_hWnd, uMsg, wParam, lParam);
}

void CWindowWnd::OnFinalMessage(HWND) {}

bool CWindowWnd::RegisterWindowClass() {
  WNDCLASSEXW wc = {};
  wc.cbSize = sizeof wc;
  wc.style = GetClassStyle();
  wc.lpfnWndProc = &CWindowWnd::WndProc;
  wc.hInstance = Module();
  wc.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));  // IDC_ARROW
  wc.lpszClassName = GetWindowClassName();
  if (RegisterClassExW(&wc) != 0) return true;
  return GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
}

HWND CWindowWnd::Create(HWND hwndParent, const wchar_t* pstrName, DWORD dwStyle, DWORD dwExStyle, int x,
                        int y, int cx, int cy, HMENU hMenu) {
  if (!RegisterWindowClass()) return nullptr;
  return CreateWindowExW(dwExStyle, GetWindowClassName(), pstrName, dwStyle, x, y, cx, cy, hwndParent, hMenu,
                         Module(), this);
}

void CWindowWnd::ShowWindow(bool bShow, bool bTakeFocus) {
  if (!IsWindow(m_hWnd)) return;
  ::ShowWindow(m_hWnd, bShow ? (bTakeFocus ? SW_SHOWNORMAL : SW_SHOWNOACTIVATE) : SW_HIDE);
}

void CWindowWnd::Close(UINT nRet) {
  if (IsWindow(m_hWnd)) PostMessageW(m_hWnd, WM_CLOSE, static_cast<WPARAM>(nRet), 0);
}

LRESULT CALLBACK CWindowWnd::WndProc(HWND hWnd, UINT uMsg, WPARAM wParam, LPARAM lParam) {
  CWindowWnd* self = nullptr;
  if (uMsg == WM_NCCREATE) {
    const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lParam);
    self = static_cast<CWindowWnd*>(create->lpCreateParams);
    self->m_hWnd = hWnd;
    SetWindowLongPtrW(hWnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
  } else {
    self = reinterpret_cast<CWindowWnd*>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
  }
  if (self == nullptr) return DefWindowProcW(hWnd, uMsg, wParam, lParam);
  if (uMsg == WM_NCDESTROY) {
    const LRESULT result = self->HandleMessage(uMsg, wParam, lParam);
    SetWindowLongPtrW(hWnd, GWLP_USERDATA, 0);
    self->m_hWnd = nullptr;
    self->OnFinalMessage(hWnd);
    return result;
  }
  return self->HandleMessage(uMsg, wParam, lParam);
}

}  // namespace calder
