#include "base/utf8.h"

namespace calder {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

template <typename Text>
void AppendCodePoint(char32_t cp, Text* out) {
  using Unit = typename Text::value_type;
  if constexpr (sizeof(Unit) == 2) {
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out->push_back(static_cast<Unit>(0xD800 + (cp >> 10)));
      out->push_back(static_cast<Unit>(0xDC00 + (cp & 0x3FF)));
      return;
    }
  }
  out->push_back(static_cast<Unit>(cp));
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

template <typename Text>
Text DecodeUtf8(const char* text, size_t length) {
  static constexpr char32_t kMinimum[5] = {0, 0, 0x80, 0x800, 0x10000};
  Text out;
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

std::wstring Utf8ToWide(const char* text, size_t length) { return DecodeUtf8<std::wstring>(text, length); }
std::wstring Utf8ToWide(const std::string& text) { return Utf8ToWide(text.data(), text.size()); }
std::u16string Utf8ToUtf16(const std::string& text) {
  return DecodeUtf8<std::u16string>(text.data(), text.size());
}
std::string WideToUtf8(const std::wstring& text) { return EncodeUtf8(text); }
std::string Utf16ToUtf8(const std::u16string& text) { return EncodeUtf8(text); }

}  // namespace calder
