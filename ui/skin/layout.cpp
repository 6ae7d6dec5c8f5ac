#include "ui/skin/layout.h"

#include <algorithm>
#include <climits>

#include "ui/skin/canvas.h"
#include "ui/skin/paint_manager.h"
#include "ui/skin/text.h"

namespace calder {

namespace {

// Lays children out along one axis. `along` picks the fixed length on that
// axis, `across` the one on the other; a fixed cross length is capped at the
// available one and starts at the leading edge (left, or top of a row).
// Flexible children share what the fixed ones leave, the last one taking the
// remainder of the division, so together they fill the container.
template <typename Place>
void Stack(const std::vector<CControlUI*>& items, int start, int length, int cross_length,
           int (CControlUI::*along)() const, int (CControlUI::*across)() const,
           const CDPI* dpi, Place place) {
  auto scale = [dpi](int x) { return dpi != nullptr ? dpi->Scale(x) : x; };
  int64_t fixed_total = 0;
  int flexible = 0;
  for (CControlUI* c : items) {
    if (!c->IsVisible()) continue;
    if ((c->*along)() > 0) fixed_total += scale((c->*along)());
    else ++flexible;
  }
  const int64_t free_space = std::max<int64_t>(0, length - fixed_total);
  const int64_t share = flexible > 0 ? free_space / flexible : 0;
  const int64_t remainder = free_space - share * flexible;
  int64_t at = start;
  int flexible_seen = 0;
  for (CControlUI* c : items) {
    if (!c->IsVisible()) continue;
    int64_t size;
    if ((c->*along)() > 0) {
      size = scale((c->*along)());
    } else {
      size = share + (++flexible_seen == flexible ? remainder : 0);
    }
    int cross = cross_length;
    if ((c->*across)() > 0) cross = std::min(scale((c->*across)()), cross_length);
    const int64_t end = std::min<int64_t>(at + size, INT_MAX);
    place(c, static_cast<int>(at), static_cast<int>(end), std::max(0, cross));
    at = end;
  }
}

int ClampedAdd(int a, int b) {
  return static_cast<int>(std::min<int64_t>(static_cast<int64_t>(a) + b, INT_MAX));
}

const CDPI* DpiOf(const CControlUI* control) {
  return control->GetManager() != nullptr ? control->GetManager()->GetDPIObj() : nullptr;
}

}  // namespace

CContainerUI::~CContainerUI() {
  for (CControlUI* c : items_) delete c;
}

std::wstring CContainerUI::GetClass() const { return L"ContainerUI"; }

void* CContainerUI::GetInterface(const wchar_t* pstrName) {
  if (EqualsNoCase(pstrName, L"IContainer") || EqualsNoCase(pstrName, L"Container")) return this;
  return CControlUI::GetInterface(pstrName);
}

bool CContainerUI::Add(CControlUI* control) {
  if (control == nullptr) return false;
  control->SetManager(manager_, this);
  control->SetInternVisible(IsVisible());
  items_.push_back(control);
  NeedParentUpdate();
  return true;
}

bool CContainerUI::Remove(CControlUI* control) {
  const auto it = std::find(items_.begin(), items_.end(), control);
  if (it == items_.end()) return false;
  items_.erase(it);
  delete control;
  NeedParentUpdate();
  return true;
}

CControlUI* CContainerUI::GetItemAt(int index) const {
  if (index < 0 || index >= GetCount()) return nullptr;
  return items_[index];
}

void CContainerUI::SetManager(CPaintManagerUI* manager, CControlUI* parent) {
  for (CControlUI* c : items_) c->SetManager(manager, this);
  CControlUI::SetManager(manager, parent);
}

void CContainerUI::SetVisible(bool visible) {
  if (visible_ == visible) return;
  CControlUI::SetVisible(visible);
  for (CControlUI* c : items_) c->SetInternVisible(IsVisible());
}

void CContainerUI::SetInternVisible(bool visible) {
  CControlUI::SetInternVisible(visible);
  for (CControlUI* c : items_) c->SetInternVisible(IsVisible());
}

CControlUI* CContainerUI::FindControl(const std::wstring& name) {
  if (CControlUI* self = CControlUI::FindControl(name)) return self;
  for (CControlUI* c : items_) {
    if (CControlUI* found = c->FindControl(name)) return found;
  }
  return nullptr;
}

void CContainerUI::DoPaint(Canvas& canvas, const UiRect& dirty) {
  UiRect area;
  if (!IsVisible() || !IntersectUiRect(dirty, rect_, &area)) return;
  CControlUI::DoPaint(canvas, dirty);
  canvas.PushClip(area);
  for (CControlUI* c : items_) c->DoPaint(canvas, area);
  canvas.PopClip();
}

std::wstring CVerticalLayoutUI::GetClass() const { return L"VerticalLayoutUI"; }

void* CVerticalLayoutUI::GetInterface(const wchar_t* pstrName) {
  if (EqualsNoCase(pstrName, L"VerticalLayout")) return this;
  return CContainerUI::GetInterface(pstrName);
}

void CVerticalLayoutUI::SetPos(const UiRect& rect) {
  CControlUI::SetPos(rect);
  const int left = rect.left;
  Stack(items_, rect.top, rect.Height(), std::max(0, rect.Width()), &CControlUI::GetFixedHeight,
        &CControlUI::GetFixedWidth, DpiOf(this), [left](CControlUI* c, int top, int bottom, int width) {
          c->SetPos(UiRect{left, top, ClampedAdd(left, width), bottom});
        });
}

std::wstring CHorizontalLayoutUI::GetClass() const { return L"HorizontalLayoutUI"; }

void* CHorizontalLayoutUI::GetInterface(const wchar_t* pstrName) {
  if (EqualsNoCase(pstrName, L"HorizontalLayout")) return this;
  return CContainerUI::GetInterface(pstrName);
}

void CHorizontalLayoutUI::SetPos(const UiRect& rect) {
  CControlUI::SetPos(rect);
  const int top = rect.top;
  Stack(items_, rect.left, rect.Width(), std::max(0, rect.Height()), &CControlUI::GetFixedWidth,
        &CControlUI::GetFixedHeight, DpiOf(this), [top](CControlUI* c, int left, int right, int height) {
          c->SetPos(UiRect{left, top, right, ClampedAdd(top, height)});
        });
}

}  // namespace calder
