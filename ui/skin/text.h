#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/utf8.h"

// Text helpers of the skin: UTF-8 from the XML and the zip (base/utf8.h),
// wide strings in the controls.
namespace calder {

// ASCII-only case folding: attribute and class names are ASCII.
bool EqualsNoCase(const wchar_t* a, const wchar_t* b);
std::wstring AsciiLower(const std::wstring& text);

// Leading decimal integer after blanks, as _wtoi: "12px" is 12, "x" is 0;
// saturates at the int range.
int ParseInt(const wchar_t* text, const wchar_t** end = nullptr);

// "#AARRGGBB" or "AARRGGBB": one optional '#', then hexadecimal digits up to
// the first other character; nothing readable gives 0, too many digits
// saturate at 0xFFFFFFFF.
uint32_t ParseColor(const wchar_t* text);

bool ParseBool(const wchar_t* text);

}  // namespace calder
