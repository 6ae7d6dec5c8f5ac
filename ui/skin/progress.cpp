#include "ui/skin/progress.h"

#include <algorithm>

#include "ui/skin/text.h"

namespace calder {

std::wstring CProgressUI::GetClass() const { return L"ProgressUI"; }

void* CProgressUI::GetInterface(const wchar_t* pstrName) {
  if (EqualsNoCase(pstrName, L"Progress")) return this;
  return CLabelUI::GetInterface(pstrName);
}

void CProgressUI::SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) {
  if (EqualsNoCase(pstrName, L"hor")) SetHorizontal(ParseBool(pstrValue));
  else if (EqualsNoCase(pstrName, L"min")) SetMinValue(ParseInt(pstrValue));
  else if (EqualsNoCase(pstrName, L"max")) SetMaxValue(ParseInt(pstrValue));
  else if (EqualsNoCase(pstrName, L"value")) SetValue(ParseInt(pstrValue));
  else if (EqualsNoCase(pstrName, L"isstretchfore")) SetStretchForeImage(ParseBool(pstrValue));
  else CLabelUI::SetAttribute(pstrName, pstrValue);
}

void CProgressUI::SetHorizontal(bool horizontal) {
  if (horizontal_ == horizontal) return;
  horizontal_ = horizontal;
  Invalidate();
}

void CProgressUI::SetMinValue(int min) {
  min_ = min;
  Invalidate();
}

void CProgressUI::SetMaxValue(int max) {
  max_ = max;
  Invalidate();
}

void CProgressUI::SetValue(int value) {
  // Not std::clamp: a skin may give min above max.
  value = std::max(min_, std::min(max_, value));
  if (value_ == value) return;
  value_ = value;
  Invalidate();
}

void CProgressUI::SetStretchForeImage(bool stretch) {
  if (stretch_fore_image_ == stretch) return;
  stretch_fore_image_ = stretch;
  Invalidate();
}

}  // namespace calder
