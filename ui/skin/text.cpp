#include "ui/skin/text.h"

#include <climits>
#include <cwctype>

namespace calder {

namespace {

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

}  // namespace

static wchar_t FoldAscii(wchar_t c) { return (c >= L'A' && c <= L'Z') ? c - L'A' + L'a' : c; }

bool EqualsNoCase(const wchar_t* a, const wchar_t* b) {
  if (a == nullptr || b == nullptr) return a == b;
  for (; *a != 0 && *b != 0; ++a, ++b) {
    if (FoldAscii(*a) != FoldAscii(*b)) return false;
  }
  return *a == *b;
}

std::wstring AsciiLower(const std::wstring& text) {
  std::wstring out(text);
  for (wchar_t& c : out) c = FoldAscii(c);
  return out;
}

int ParseInt(const wchar_t* text, const wchar_t** end) {
  const wchar_t* p = text;
  while (p != nullptr && IsBlank(*p)) ++p;
  long long value = 0;
  bool negative = false;
  if (p != nullptr && (*p == L'-' || *p == L'+')) negative = *p++ == L'-';
  while (p != nullptr && *p >= L'0' && *p <= L'9') {
    if (value <= INT_MAX) value = value * 10 + (*p - L'0');
    ++p;
  }
  if (end != nullptr) *end = p;
  if (negative) value = -value;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

uint32_t ParseColor(const wchar_t* text) {
  if (text == nullptr) return 0;
  const wchar_t* p = text;
  if (*p == L'#') ++p;
  while (IsBlank(*p)) ++p;
  uint64_t value = 0;
  for (;; ++p) {
    int digit;
    if (*p >= L'0' && *p <= L'9') digit = *p - L'0';
    else if (*p >= L'a' && *p <= L'f') digit = *p - L'a' + 10;
    else if (*p >= L'A' && *p <= L'F') digit = *p - L'A' + 10;
    else break;
    value = value * 16 + digit;
    if (value > 0xFFFFFFFFull) value = 0x1FFFFFFFFull;  // keep saturated, no wrap
  }
  return value > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(value);
}

bool ParseBool(const wchar_t* text) { return EqualsNoCase(text, L"true"); }

}  // namespace calder
