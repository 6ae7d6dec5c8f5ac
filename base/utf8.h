#pragma once

#include <cstddef>
#include <string>

namespace calder {

// UTF-8 to and from wide text (wchar_t is 16-bit on Windows and 32-bit on
// the host) and UTF-16. What is not well-formed (an unpaired surrogate, an
// overlong or cut sequence) becomes U+FFFD, as Windows converts it.
std::wstring Utf8ToWide(const char* text, size_t length);
std::wstring Utf8ToWide(const std::string& text);
std::u16string Utf8ToUtf16(const std::string& text);
std::string WideToUtf8(const std::wstring& text);
std::string Utf16ToUtf8(const std::u16string& text);

}  // namespace calder
