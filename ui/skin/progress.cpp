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

void CProgressUI::SetHorizontal(bool horizontal) { SetAndRepaint(horizontal_, horizontal); }
void CProgressUI::SetMinValue(int min) { SetAndRepaint(min_, min); }
void CProgressUI::SetMaxValue(int max) { SetAndRepaint(max_, max); }

void CProgressUI::SetValue(int value) {
  // Not std::clamp: a skin may give min above max.
  SetAndRepaint(value_, std::max(min_, std::min(max_, value)));
}

void CProgressUI::SetStretchForeImage(bool stretch) { SetAndRepaint(stretch_fore_image_, stretch); }

}  // namespace calder
