#include "ui/skin/control.h"

#include "ui/skin/canvas.h"
#include "ui/skin/paint_manager.h"
#include "ui/skin/text.h"

namespace calder {

namespace {

// Lengths beyond any screen are clamped so layout sums stay in range.
constexpr int kMaxLength = 1 << 20;

int ClampLength(int v) { return v < 0 ? 0 : (v > kMaxLength ? kMaxLength : v); }

}  // namespace

CControlUI::CControlUI() = default;

CControlUI::~CControlUI() {
  if (manager_ != nullptr) manager_->ReapObjects(this);
}

std::wstring CControlUI::GetClass() const { return L"ControlUI"; }

void* CControlUI::GetInterface(const wchar_t* pstrName) {
  if (EqualsNoCase(pstrName, L"Control")) return this;
  return nullptr;
}

void CControlUI::SetManager(CPaintManagerUI* manager, CControlUI* parent) {
  if (manager_ != nullptr && manager_ != manager) manager_->ReapObjects(this);
  manager_ = manager;
  parent_ = parent;
}

void CControlUI::SetText(const std::wstring& text) { SetAndRepaint(text_, text); }

void CControlUI::SetPos(const UiRect& rect) {
  if (rect_ == rect) return;
  Invalidate();
  rect_ = rect;
  Invalidate();
}

void CControlUI::SetFixedWidth(int cx) {
  fixed_width_ = ClampLength(cx);
  NeedParentUpdate();
}

void CControlUI::SetFixedHeight(int cy) {
  fixed_height_ = ClampLength(cy);
  NeedParentUpdate();
}

void CControlUI::SetVisible(bool visible) {
  if (visible_ == visible) return;
  Invalidate();  // while the old area still counts
  visible_ = visible;
  NeedParentUpdate();
}

void CControlUI::SetInternVisible(bool visible) { intern_visible_ = visible; }

void CControlUI::SetBkColor(uint32_t argb) { SetAndRepaint(bk_color_, argb); }
void CControlUI::SetForeColor(uint32_t argb) { SetAndRepaint(fore_color_, argb); }
void CControlUI::SetBorderColor(uint32_t argb) { SetAndRepaint(border_color_, argb); }
void CControlUI::SetBorderSize(int size) { SetAndRepaint(border_size_, ClampLength(size)); }

void CControlUI::Invalidate() {
  if (manager_ == nullptr || !IsVisible()) return;
  UiRect area = rect_;
  for (CControlUI* p = parent_; p != nullptr; p = p->parent_) {
    if (!IntersectUiRect(area, p->rect_, &area)) return;
  }
  if (!area.IsEmpty()) manager_->Invalidate(area);
}

void CControlUI::NeedParentUpdate() {
  if (manager_ == nullptr) return;
  Invalidate();
  manager_->NeedUpdate();
}

bool CControlUI::SetTimer(unsigned id, unsigned elapse_ms) {
  if (manager_ == nullptr) return false;
  return manager_->SetTimer(this, id, elapse_ms);
}

bool CControlUI::KillTimer(unsigned id) {
  if (manager_ == nullptr) return false;
  return manager_->KillTimer(this, id);
}

void CControlUI::DoEvent(TEventUI&) {}

void CControlUI::SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) {
  if (EqualsNoCase(pstrName, L"name")) SetName(pstrValue);
  else if (EqualsNoCase(pstrName, L"text")) SetText(pstrValue);
  else if (EqualsNoCase(pstrName, L"width")) SetFixedWidth(ParseInt(pstrValue));
  else if (EqualsNoCase(pstrName, L"height")) SetFixedHeight(ParseInt(pstrValue));
  else if (EqualsNoCase(pstrName, L"visible")) SetVisible(ParseBool(pstrValue));
  else if (EqualsNoCase(pstrName, L"bkcolor")) SetBkColor(ParseColor(pstrValue));
  else if (EqualsNoCase(pstrName, L"forecolor")) SetForeColor(ParseColor(pstrValue));
  else if (EqualsNoCase(pstrName, L"bordercolor")) SetBorderColor(ParseColor(pstrValue));
  else if (EqualsNoCase(pstrName, L"bordersize")) SetBorderSize(ParseInt(pstrValue));
  else AddCustomAttribute(pstrName, pstrValue);
}

void CControlUI::AddCustomAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) {
  if (pstrName == nullptr || pstrValue == nullptr || *pstrName == 0) return;
  custom_attributes_.emplace(pstrName, pstrValue);
}

const wchar_t* CControlUI::GetCustomAttribute(const wchar_t* pstrName) const {
  if (pstrName == nullptr) return nullptr;
  const auto it = custom_attributes_.find(pstrName);
  return it == custom_attributes_.end() ? nullptr : it->second.c_str();
}

CControlUI* CControlUI::FindControl(const std::wstring& name) {
  return !name.empty() && name_ == name ? this : nullptr;
}

void CControlUI::DoPaint(Canvas& canvas, const UiRect& dirty) {
  UiRect overlap;
  if (!IsVisible() || !IntersectUiRect(dirty, rect_, &overlap)) return;
  PaintBkColor(canvas);
  PaintBkImage(canvas);
  PaintStatusImage(canvas);
  PaintForeColor(canvas);
  PaintForeImage(canvas);
  PaintText(canvas);
  PaintBorder(canvas);
}

void CControlUI::PaintBkColor(Canvas& canvas) {
  if (bk_color_ != 0) canvas.FillRect(rect_, bk_color_);
}

// The skin framework carries no image decoder: skins give colours only.
void CControlUI::PaintBkImage(Canvas&) {}
void CControlUI::PaintStatusImage(Canvas&) {}
void CControlUI::PaintForeImage(Canvas&) {}

void CControlUI::PaintForeColor(Canvas& canvas) {
  if (fore_color_ != 0) canvas.FillRect(rect_, fore_color_);
}

void CControlUI::PaintText(Canvas&) {}

void CControlUI::PaintBorder(Canvas& canvas) {
  if (border_size_ > 0 && border_color_ != 0)
    canvas.DrawBorder(rect_, ScaleLength(border_size_), border_color_);
}

int CControlUI::ScaleLength(int length) const {
  return manager_ != nullptr ? manager_->GetDPIObj()->Scale(length) : length;
}

}  // namespace calder
