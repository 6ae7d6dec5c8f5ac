#pragma once

#include <vector>

#include "ui/skin/control.h"

namespace calder {

// A control that owns children, paints them clipped to itself after its own
// steps, and hands visibility down.
class CContainerUI : public CControlUI {
 public:
  ~CContainerUI() override;

  std::wstring GetClass() const override;
  void* GetInterface(const wchar_t* pstrName) override;

  // Takes ownership; false for null.
  bool Add(CControlUI* control);
  // Deletes the child; false when it is not one.
  bool Remove(CControlUI* control);
  int GetCount() const { return static_cast<int>(items_.size()); }
  CControlUI* GetItemAt(int index) const;

  void SetManager(CPaintManagerUI* manager, CControlUI* parent) override;
  void SetVisible(bool visible) override;
  void SetInternVisible(bool visible) override;
  CControlUI* FindControl(const std::wstring& name) override;
  void DoPaint(Canvas& canvas, const UiRect& dirty) override;

 protected:
  std::vector<CControlUI*> items_;
};

// Stacks children top to bottom: fixed heights first, the rest shared
// equally; each child spans the width unless it has a fixed one.
class CVerticalLayoutUI : public CContainerUI {
 public:
  std::wstring GetClass() const override;
  void* GetInterface(const wchar_t* pstrName) override;
  void SetPos(const UiRect& rect) override;
};

// The same across: fixed widths first, the rest shared; children sit at the
// top of the row.
class CHorizontalLayoutUI : public CContainerUI {
 public:
  std::wstring GetClass() const override;
  void* GetInterface(const wchar_t* pstrName) override;
  void SetPos(const UiRect& rect) override;
};

}  // namespace calder
