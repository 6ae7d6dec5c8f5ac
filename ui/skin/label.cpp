#include "ui/skin/label.h"

#include "ui/skin/canvas.h"
#include "ui/skin/text.h"

namespace calder {

std::wstring CLabelUI::GetClass() const { return L"LabelUI"; }

void* CLabelUI::GetInterface(const wchar_t* pstrName) {
  if (EqualsNoCase(pstrName, L"Label")) return this;
  return CControlUI::GetInterface(pstrName);
}

void CLabelUI::SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) {
  if (EqualsNoCase(pstrName, L"align")) {
    // Horizontal placement only; the vertical centring stays.
    unsigned horizontal = text_style_ & kTextHorizontalMask;
    if (EqualsNoCase(pstrValue, L"left")) horizontal = kTextLeft;
    else if (EqualsNoCase(pstrValue, L"center")) horizontal = kTextCenter;
    else if (EqualsNoCase(pstrValue, L"right")) horizontal = kTextRight;
    SetTextStyle((text_style_ & ~static_cast<unsigned>(kTextHorizontalMask)) | horizontal);
  } else if (EqualsNoCase(pstrName, L"textcolor")) {
    SetTextColor(ParseColor(pstrValue));
  } else if (EqualsNoCase(pstrName, L"font")) {
    SetFont(ParseInt(pstrValue));
  } else {
    CControlUI::SetAttribute(pstrName, pstrValue);
  }
}

void CLabelUI::SetFont(int id) { SetAndRepaint(font_, id); }
void CLabelUI::SetTextColor(uint32_t argb) { SetAndRepaint(text_color_, argb); }
void CLabelUI::SetTextStyle(unsigned style) { SetAndRepaint(text_style_, style); }

void CLabelUI::PaintText(Canvas& canvas) {
  if (text_.empty()) return;
  canvas.DrawString(rect_, text_, font_, text_color_, text_style_ | kTextNoPrefix);
}

}  // namespace calder
