#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ui/skin/dpi.h"
#include "ui/skin/ui_events.h"
#include "ui/skin/ui_types.h"
#include "ui/skin/zip_reader.h"

namespace calder {

class Canvas;
class CControlUI;
class PaintWindow;

// Resource types of the framework; skins here always come from a zip held
// in a resource.
enum UiResourceType {
  UILIB_FILE = 1,
  UILIB_ZIP = 2,
  UILIB_RESOURCE = 3,
  UILIB_ZIPRESOURCE = 4,
};

// An entry of the font table; size is the unscaled character height in pixels.
struct UiFont {
  std::wstring face;
  int size = 0;
  bool bold = false;
  bool underline = false;
  bool italic = false;
};

// Plug-in control makers, asked after the built-in factory.
using UiPluginCreate = CControlUI* (*)(const wchar_t* pstrClass);

// One per window: the control tree, fonts, timers and the DPI object.
// The static side holds the module, the resource path and type, and the
// process-wide skin zip.
class CPaintManagerUI {
 public:
  CPaintManagerUI();
  ~CPaintManagerUI();
  CPaintManagerUI(const CPaintManagerUI&) = delete;
  CPaintManagerUI& operator=(const CPaintManagerUI&) = delete;

  void Init(PaintWindow* window);
  PaintWindow* GetPaintWindow() const { return window_; }

  // Takes ownership of the tree; a previous root is deleted.
  bool AttachDialog(CControlUI* root);
  CControlUI* GetRoot() const { return root_; }
  CControlUI* FindControl(const std::wstring& name) const;
  // Drops what the manager holds for a control that goes away (its timers).
  void ReapObjects(CControlUI* control);
  // The window is gone: forget every control's timers without stopping them.
  void DropRegistrations();

  void SetInitSize(int cx, int cy) { init_size_ = UiSize{cx, cy}; }
  UiSize GetInitSize() const { return init_size_; }

  // Font table. A font added as default answers for id -1 and unknown ids.
  void AddFont(int id, const UiFont& font, bool is_default);
  const UiFont* GetFont(int id) const;
  // The font's character height scaled by the DPI object.
  int GetFontHeight(int id) const;

  bool SetTimer(CControlUI* control, unsigned id, unsigned elapse_ms);
  bool KillTimer(CControlUI* control, unsigned id);
  // A native timer fired: the owning control gets UIEVENT_TIMER with its own
  // id. False when the timer is not one of the controls'.
  bool OnNativeTimer(unsigned native_id, uint64_t timestamp);

  CDPI* GetDPIObj() { return &dpi_; }
  const CDPI* GetDPIObj() const { return &dpi_; }
  // Stores the scale of dpi, resets DPI-dependent assets, resizes an
  // unmaximised window (an empty rect rescales the current one), marks the
  // tree for layout and posts kUiMsgSetDpi.
  void SetDPI(int dpi, const UiRect& rect);

  // Layout happens at the next paint, or now through UpdateLayout.
  void NeedUpdate();
  bool IsUpdateNeeded() const { return update_needed_; }
  void UpdateLayout(const UiRect& client);
  void Invalidate(const UiRect& rect);
  // Lays out when needed, then paints the tree over the dirty rectangle.
  void Paint(Canvas& canvas, const UiRect& client, const UiRect& dirty);

  bool AddPreMessageFilter(IMessageFilterUI* filter);
  bool RemovePreMessageFilter(IMessageFilterUI* filter);
  bool AddNotifier(INotifyUI* notifier);
  bool RemoveNotifier(INotifyUI* notifier);
  // Offers a message to the pre-message filters; true when one consumed it.
  bool PreMessageHandler(unsigned msg, uintptr_t wparam, intptr_t lparam, intptr_t& result);

  // Every manager that has a window, for the message loop's pre-translation.
  static const std::vector<CPaintManagerUI*>& GetPaintManagers();

  static void SetInstance(void* instance) { instance_ = instance; }
  static void* GetInstance() { return instance_; }
  // The module's folder with a trailing backslash (Win32 shell only).
  static std::wstring GetInstancePath();
  static void SetResourcePath(const std::wstring& path);
  static const std::wstring& GetResourcePath();
  static void SetResourceType(int type) { resource_type_ = type; }
  static int GetResourceType() { return resource_type_; }
  // Borrows the buffer for the rest of the process; null releases the zip.
  static ZipError SetResourceZip(const void* data, size_t size);
  static bool IsResourceZipHeld() { return zip_data_ != nullptr; }
  static const ZipReader& GetResourceZip() { return zip_; }

  static void AddPlugin(UiPluginCreate create);
  static void ClearPlugins();
  static const std::vector<UiPluginCreate>& GetPlugins();

  // GetMessageW until WM_QUIT, with pre-translation (Win32 shell only).
  static void MessageLoop();

 private:
  struct Timer {
    CControlUI* control;
    unsigned id;
    unsigned native_id;
  };

  PaintWindow* window_ = nullptr;
  CControlUI* root_ = nullptr;
  bool update_needed_ = false;
  UiSize init_size_;
  CDPI dpi_;
  std::map<int, UiFont> fonts_;
  int default_font_ = -1;
  std::vector<Timer> timers_;
  unsigned next_native_timer_ = 0x100;
  std::vector<IMessageFilterUI*> pre_filters_;
  std::vector<INotifyUI*> notifiers_;

  static void* instance_;
  static int resource_type_;
  static const void* zip_data_;
  static ZipReader zip_;
};

}  // namespace calder
