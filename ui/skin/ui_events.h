#pragma once

#include <cstdint>
#include <string>

// Events, notifications and the callback interfaces of the skin framework.
// Parameters are WPARAM/LPARAM-sized so Win32 overrides match exactly.
namespace calder {

class CControlUI;

enum UiEventType {
  UIEVENT__FIRST = 1,
  UIEVENT_TIMER,
  UIEVENT__LAST,
};

struct TEventUI {
  int Type = 0;
  CControlUI* pSender = nullptr;
  uint64_t dwTimestamp = 0;
  uintptr_t wParam = 0;  // UIEVENT_TIMER: the control's own timer id
  intptr_t lParam = 0;
};

struct TNotifyUI {
  std::wstring sType;
  CControlUI* pSender = nullptr;
  uint64_t dwTimestamp = 0;
  uintptr_t wParam = 0;
  intptr_t lParam = 0;
};

class INotifyUI {
 public:
  virtual ~INotifyUI() = default;
  virtual void Notify(TNotifyUI& msg) = 0;
};

// Offered every message for the window before it is translated and dispatched.
class IMessageFilterUI {
 public:
  virtual ~IMessageFilterUI() = default;
  virtual intptr_t MessageHandler(unsigned uMsg, uintptr_t wParam, intptr_t lParam,
                                  bool& bHandled) = 0;
};

// The builder's hook for tags the framework does not know.
class IDialogBuilderCallback {
 public:
  virtual ~IDialogBuilderCallback() = default;
  virtual CControlUI* CreateControl(const wchar_t* pstrClass) = 0;
};

// Text look-up for localised skins; the progress window keeps the base answer.
class IQueryControlText {
 public:
  virtual ~IQueryControlText() = default;
  virtual const wchar_t* QueryControlText(const wchar_t* lpstrId, const wchar_t* lpstrType) = 0;
};

// Base of windows that receive notifications. Nothing is routed through it:
// the progress window takes no input.
class CNotifyPump {
 public:
  virtual ~CNotifyPump() = default;
};

}  // namespace calder
