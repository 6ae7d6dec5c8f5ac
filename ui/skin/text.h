#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Text helpers of the skin: UTF-8 from the XML and the zip, wide strings in
// the controls (wchar_t is 16-bit on Windows and 32-bit on the host).
namespace calder {

std::wstring Utf8ToWide(const char* text, size_t length);
std::wstring Utf8ToWide(const std::string& text);
std::string WideToUtf8(const std::wstring& text);
std::string Utf16ToUtf8(const std::u16string& text);

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
