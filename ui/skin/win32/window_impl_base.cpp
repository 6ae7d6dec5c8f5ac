#include "ui/skin/win32/window_impl_base.h"

#include <cstring>
#include <memory>

#include "ui/skin/builder.h"
#include "ui/skin/control.h"

namespace calder {

namespace {

// "加载资源文件失败：" (failed to load the resource file)
constexpr wchar_t kLoadFailedText[] = L"\u52A0\u8F7D\u8D44\u6E90\u6587\u4EF6\u5931\u8D25\uFF1A";

void ShowSkinFailureAndExit(const std::wstring& skin_file) {
  const std::wstring text = kLoadFailedText + skin_file;
  MessageBoxW(nullptr, text.c_str(), L"Error", MB_OK | MB_ICONERROR);
  ExitProcess(1);
}

WindowImplBase::SkinFailureHandler g_skin_failure = &ShowSkinFailureAndExit;

// The process-wide copy of the skin zip; the resource itself is freed.
std::unique_ptr<uint8_t[]>& ZipBuffer() {
  static std::unique_ptr<uint8_t[]> buffer;
  return buffer;
}

// Copies the "ZIPRES" resource into the process buffer; false when it is
// missing, cannot be loaded or is empty.
bool LoadZipResource(LPCWSTR id) {
  HMODULE module = static_cast<HMODULE>(CPaintManagerUI::GetInstance());
  if (module == nullptr) module = GetModuleHandleW(nullptr);
  HRSRC found = FindResourceW(module, id, L"ZIPRES");
  if (found == nullptr) return false;
  HGLOBAL loaded = LoadResource(module, found);
  if (loaded == nullptr) return false;
  const DWORD size = SizeofResource(module, found);
  const void* bytes = LockResource(loaded);
  if (size == 0 || bytes == nullptr) {
    FreeResource(loaded);
    return false;
  }
  ZipBuffer().reset(new uint8_t[size]);
  std::memcpy(ZipBuffer().get(), bytes, size);
  FreeResource(loaded);
  CPaintManagerUI::SetResourceZip(ZipBuffer().get(), size);
  return true;
}

}  // namespace

void WindowImplBase::SetSkinFailureHandler(SkinFailureHandler handler) {
  g_skin_failure = handler != nullptr ? handler : &ShowSkinFailureAndExit;
}

WindowImplBase::WindowImplBase() : m_paintWindow(&m_pm) {}

WindowImplBase::~WindowImplBase() {
  // A window that outlives its object falls back to the default procedure.
  if (m_hWnd != nullptr && IsWindow(m_hWnd)) SetWindowLongPtrW(m_hWnd, GWLP_USERDATA, 0);
}

LRESULT WindowImplBase::HandleMessage(UINT uMsg, WPARAM wParam, LPARAM lParam) {
  switch (uMsg) {
    case WM_CREATE: {
      BOOL handled = TRUE;
      const LRESULT result = OnCreate(uMsg, wParam, lParam, handled);
      if (handled) return result;
      break;
    }
    case WM_NCCALCSIZE:
      return 0;  // the whole window is client area: the skin draws any frame
    case WM_NCPAINT:
      return 0;
    case WM_NCACTIVATE:
      if (IsIconic(m_hWnd)) break;
      return wParam == 0 ? TRUE : FALSE;
    default:
      break;
  }
  LRESULT result = 0;
  if (m_paintWindow.HandleMessage(uMsg, wParam, lParam, &result)) return result;
  return CWindowWnd::HandleMessage(uMsg, wParam, lParam);
}

LRESULT WindowImplBase::OnCreate(UINT, WPARAM, LPARAM, BOOL& bHandled) {
  bHandled = TRUE;
  const LONG_PTR style = GetWindowLongPtrW(m_hWnd, GWL_STYLE);
  SetWindowLongPtrW(m_hWnd, GWL_STYLE, (style & ~static_cast<LONG_PTR>(WS_CAPTION)) | WS_CLIPSIBLINGS | WS_CLIPCHILDREN);
  // Style changes reach the frame only through a frame-changed move.
  SetWindowPos(m_hWnd, nullptr, 0, 0, 0, 0,
               SWP_FRAMECHANGED | SWP_NOMOVE | SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);

  m_paintWindow.Attach(m_hWnd);
  m_pm.Init(&m_paintWindow);
  m_pm.AddPreMessageFilter(this);

  if (CPaintManagerUI::GetResourceType() == UILIB_ZIPRESOURCE && !CPaintManagerUI::IsResourceZipHeld()) {
    if (!LoadZipResource(GetResourceID())) return 0;  // an empty window, by design
  }

  const std::wstring skin_file = GetSkinFile();
  CDialogBuilder builder;
  CControlUI* root = builder.Create(skin_file, GetSkinType(), this, &m_pm);
  if (root == nullptr) {
    g_skin_failure(skin_file);
    return -1;  // reached only when a test's handler returns
  }
  m_pm.AttachDialog(root);
  m_pm.AddNotifier(this);

  const UiSize size = m_pm.GetInitSize();
  if (size.cx > 0 && size.cy > 0) {
    SetWindowPos(m_hWnd, nullptr, 0, 0, size.cx, size.cy, SWP_NOZORDER | SWP_NOMOVE | SWP_NOACTIVATE);
  }
  InitWindow();
  return 0;
}

void WindowImplBase::OnFinalMessage(HWND) {
  m_pm.RemovePreMessageFilter(this);
  m_pm.RemoveNotifier(this);
  m_pm.DropRegistrations();
}

void WindowImplBase::Notify(TNotifyUI&) {}

intptr_t WindowImplBase::MessageHandler(unsigned, uintptr_t, intptr_t, bool& bHandled) {
  bHandled = false;
  return 0;
}

CControlUI* WindowImplBase::CreateControl(const wchar_t*) { return nullptr; }

const wchar_t* WindowImplBase::QueryControlText(const wchar_t*, const wchar_t*) { return nullptr; }

}  // namespace calder
