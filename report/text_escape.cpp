#include "report/text_escape.h"

#include <cstdint>
#include <cstdio>

namespace calder::report {

namespace {

// Length of the valid UTF-8 sequence at text[i], or 0.
size_t Utf8Length(std::string_view text, size_t i) {
  const unsigned char c = static_cast<unsigned char>(text[i]);
  size_t length;
  uint32_t min;
  if (c < 0x80) return 1;
  if ((c & 0xE0) == 0xC0) {
    length = 2;
    min = 0x80;
  } else if ((c & 0xF0) == 0xE0) {
    length = 3;
    min = 0x800;
  } else if ((c & 0xF8) == 0xF0) {
    length = 4;
    min = 0x10000;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  uint32_t code = c & (0x7F >> length);
  for (size_t k = 1; k < length; ++k) {
    const unsigned char next = static_cast<unsigned char>(text[i + k]);
    if ((next & 0xC0) != 0x80) return 0;
    code = (code << 6) | (next & 0x3F);
  }
  if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  return length;
}

void AppendLatin1(unsigned char c, std::string* out) {
  out->push_back(static_cast<char>(0xC0 | (c >> 6)));
  out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
}

// Calls plain(i, n) for valid runs and odd(byte) for each invalid byte.
template <typename Plain, typename Odd>
void Walk(std::string_view text, Plain plain, Odd odd) {
  for (size_t i = 0; i < text.size();) {
    const size_t n = Utf8Length(text, i);
    if (n == 0) {
      odd(static_cast<unsigned char>(text[i]));
      ++i;
    } else {
      plain(i, n);
      i += n;
    }
  }
}

}  // namespace

std::string ToUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  Walk(
      text, [&](size_t i, size_t n) { out.append(text.data() + i, n); },
      [&](unsigned char c) { AppendLatin1(c, &out); });
  return out;
}

void AppendHtmlText(std::string_view text, std::string* out) {
  Walk(
      text,
      [&](size_t i, size_t n) {
        const char c = text[i];
        if (n > 1) {
          out->append(text.data() + i, n);
        } else if (c == '<') {
          out->append("&lt;");
        } else if (c == '>') {
          out->append("&gt;");
        } else if (c == '&') {
          out->append("&amp;");
        } else if (c == '"') {
          out->append("&quot;");
        } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
          out->push_back(' ');
        } else {
          out->push_back(c);
        }
      },
      [&](unsigned char c) { AppendLatin1(c, out); });
}

}  // namespace calder::report
