#include "ui/skin/text.h"

#include <climits>
#include <cwctype>

namespace calder {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendCodePoint(char32_t cp, std::wstring* out) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out->push_back(static_cast<wchar_t>(0xD800 + (cp >> 10)));
      out->push_back(static_cast<wchar_t>(0xDC00 + (cp & 0x3FF)));
      return;
    }
  }
  out->push_back(static_cast<wchar_t>(cp));
}

// Length of the UTF-8 sequence led by b and the bits it carries, 0 if b
// cannot lead one.
int SequenceLength(unsigned char b, char32_t* bits) {
  if (b < 0x80) { *bits = b; return 1; }
  if ((b & 0xE0) == 0xC0) { *bits = b & 0x1F; return 2; }
  if ((b & 0xF0) == 0xE0) { *bits = b & 0x0F; return 3; }
  if ((b & 0xF8) == 0xF0) { *bits = b & 0x07; return 4; }
  return 0;
}

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

}  // namespace

std::wstring Utf8ToWide(const char* text, size_t length) {
  static constexpr char32_t kMinimum[5] = {0, 0, 0x80, 0x800, 0x10000};
  std::wstring out;
  out.reserve(length);
  size_t i = 0;
  while (i < length) {
    char32_t cp = 0;
    const int n = SequenceLength(static_cast<unsigned char>(text[i]), &cp);
    bool ok = n > 0 && i + n <= length;
    for (int k = 1; ok && k < n; ++k) {
      const unsigned char c = static_cast<unsigned char>(text[i + k]);
      ok = (c & 0xC0) == 0x80;
      cp = (cp << 6) | (c & 0x3F);
    }
    // Overlong forms, surrogates and values past Unicode are not text.
    if (ok && (cp < kMinimum[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))) ok = false;
    if (!ok) {
      AppendCodePoint(kReplacement, &out);
      ++i;
      continue;
    }
    AppendCodePoint(cp, &out);
    i += n;
  }
  return out;
}

std::wstring Utf8ToWide(const std::string& text) { return Utf8ToWide(text.data(), text.size()); }

namespace {

// UTF-16 (or, on the host, UTF-32 wide) code units to UTF-8; an unpaired
// surrogate becomes U+FFFD, as Windows converts it.
template <typename Unit>
std::string EncodeUtf8(const std::basic_string<Unit>& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t cp = static_cast<char32_t>(text[i]);
    if constexpr (sizeof(Unit) == 2) {
      if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size()) {
        const char32_t low = static_cast<char32_t>(text[i + 1]);
        if (low >= 0xDC00 && low <= 0xDFFF) {
          cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
          ++i;
        }
      }
    }
    if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) cp = kReplacement;
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }
  return out;
}

}  // namespace

std::string WideToUtf8(const std::wstring& text) { return EncodeUtf8(text); }
std::string Utf16ToUtf8(const std::u16string& text) { return EncodeUtf8(text); }

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
