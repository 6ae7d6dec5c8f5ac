#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "ui/skin/ui_events.h"
#include "ui/skin/ui_types.h"

namespace calder {

class Canvas;
class CPaintManagerUI;

// The base of every skin control: rectangle, fixed size, visibility, colours,
// text, custom attributes, per-control timers and the seven paint steps.
class CControlUI {
 public:
  CControlUI();
  virtual ~CControlUI();
  CControlUI(const CControlUI&) = delete;
  CControlUI& operator=(const CControlUI&) = delete;

  virtual std::wstring GetClass() const;
  virtual void* GetInterface(const wchar_t* pstrName);

  const std::wstring& GetName() const { return name_; }
  void SetName(const std::wstring& name) { name_ = name; }

  CPaintManagerUI* GetManager() const { return manager_; }
  CControlUI* GetParent() const { return parent_; }
  virtual void SetManager(CPaintManagerUI* manager, CControlUI* parent);

  const std::wstring& GetText() const { return text_; }
  virtual void SetText(const std::wstring& text);

  const UiRect& GetPos() const { return rect_; }
  virtual void SetPos(const UiRect& rect);
  int GetWidth() const { return rect_.Width(); }
  int GetHeight() const { return rect_.Height(); }

  // Unscaled skin lengths; 0 means "not fixed".
  int GetFixedWidth() const { return fixed_width_; }
  int GetFixedHeight() const { return fixed_height_; }
  void SetFixedWidth(int cx);
  void SetFixedHeight(int cy);

  // Visible only when the control and every container above it are.
  bool IsVisible() const { return visible_ && intern_visible_; }
  virtual void SetVisible(bool visible);
  virtual void SetInternVisible(bool visible);

  uint32_t GetBkColor() const { return bk_color_; }
  void SetBkColor(uint32_t argb);
  uint32_t GetForeColor() const { return fore_color_; }
  void SetForeColor(uint32_t argb);
  uint32_t GetBorderColor() const { return border_color_; }
  void SetBorderColor(uint32_t argb);
  int GetBorderSize() const { return border_size_; }
  void SetBorderSize(int size);

  // Repaints the control's rectangle (as far as its containers show it).
  void Invalidate();
  // Asks for a new layout of the control's container.
  void NeedParentUpdate();

  // Per-control timers; false when the control has no manager.
  bool SetTimer(unsigned id, unsigned elapse_ms);
  bool KillTimer(unsigned id);

  void Event(TEventUI& event) { DoEvent(event); }
  virtual void DoEvent(TEventUI& event);

  virtual void SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue);
  // The first value stored for a name stays.
  void AddCustomAttribute(const wchar_t* pstrName, const wchar_t* pstrValue);
  const wchar_t* GetCustomAttribute(const wchar_t* pstrName) const;

  // The control itself or, for containers, the first one below it by name.
  virtual CControlUI* FindControl(const std::wstring& name);

  // Paints the seven steps in order when the control is visible and meets
  // the dirty rectangle.
  virtual void DoPaint(Canvas& canvas, const UiRect& dirty);
  virtual void PaintBkColor(Canvas& canvas);
  virtual void PaintBkImage(Canvas& canvas);
  virtual void PaintStatusImage(Canvas& canvas);
  virtual void PaintForeColor(Canvas& canvas);
  virtual void PaintForeImage(Canvas& canvas);
  virtual void PaintText(Canvas& canvas);
  virtual void PaintBorder(Canvas& canvas);

 protected:
  // A fixed length scaled by the manager's DPI.
  int ScaleLength(int length) const;
  // Stores a drawn property and repaints when it changes.
  template <typename T>
  void SetAndRepaint(T& field, const T& value) {
    if (field == value) return;
    field = value;
    Invalidate();
  }

  CPaintManagerUI* manager_ = nullptr;
  CControlUI* parent_ = nullptr;
  std::wstring name_;
  std::wstring text_;
  UiRect rect_;
  int fixed_width_ = 0;
  int fixed_height_ = 0;
  bool visible_ = true;
  bool intern_visible_ = true;
  uint32_t bk_color_ = 0;
  uint32_t fore_color_ = 0;
  uint32_t border_color_ = 0;
  int border_size_ = 0;
  std::map<std::wstring, std::wstring> custom_attributes_;
};

}  // namespace calder
