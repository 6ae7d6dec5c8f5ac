#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>

#include "ui/skin/text.h"

namespace calder {
namespace {

// UTF-8 and the code points it holds, at the edges of each sequence length.
const std::pair<std::string, std::wstring> kValidUtf8[] = {
    {std::string("a\0b", 3), std::wstring(L"a\0b", 3)}, {"\x7F", L"\x7F"}, {"\xC2\x80", L"\x80"},
    {"\xDF\xBF", L"\x7FF"}, {"\xE0\xA0\x80", L"\x800"}, {"\xE5\xBE\xAE\xE8\xBD\xAF", L"\u5FAE\u8F6F"},
    {"\xED\x9F\xBF", L"\xD7FF"}, {"\xEE\x80\x80", L"\xE000"}, {"\xEF\xBF\xBF", L"\xFFFF"}, {"\xF0\x90\x80\x80", L"\U00010000"}, {"\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
};

TEST(SkinText, Utf8AndWideConvertBothWays) {
  for (const auto& [utf8, wide] : kValidUtf8) {
    EXPECT_EQ(Utf8ToWide(utf8), wide) << utf8;
    EXPECT_EQ(WideToUtf8(wide), utf8) << utf8;
  }
}

TEST(SkinText, EachBadUtf8ByteBecomesOneReplacement) {
  const std::pair<std::string, std::wstring> cases[] = {
      // A stray continuation, a five-byte lead, overlong two, three and four bytes.
      {"\x80", L"\uFFFD"}, {"\xF8\x88\x80\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"}, {"\xC1\xBF", L"\uFFFD\uFFFD"},
      {"\xE0\x9F\xBF", L"\uFFFD\uFFFD\uFFFD"}, {"\xF0\x8F\xBF\xBF", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
      // A surrogate, past Unicode, a broken continuation, cut at the end.
      {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"}, {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xE5\x41\xAE", L"\uFFFDA\uFFFD"}, {"x\xE5\xBE", L"x\uFFFD\uFFFD"},
  };
  for (const auto& [utf8, wide] : cases) EXPECT_EQ(Utf8ToWide(utf8), wide) << utf8.size();
  // Only the given length is read.
  EXPECT_EQ(Utf8ToWide("\xE5\xBE\xAE", 2), L"\uFFFD\uFFFD");
  // Wide values no UTF-8 can hold are replaced too.
  for (const uint32_t c : {0xD800u, 0xDFFFu, 0x110000u}) {
    EXPECT_EQ(WideToUtf8(std::wstring(1, static_cast<wchar_t>(c))), "\xEF\xBF\xBD") << c;
  }
}

TEST(SkinText, AsciiNamesCompareWithoutCase) {
  const std::tuple<const wchar_t*, const wchar_t*, bool> cases[] = {
      {L"VerticalLayout", L"verticallayout", true}, {L"AZ", L"az", true},
      {L"@[", L"`{", false},  // the neighbours of the letter ranges do not fold
      {L"name", L"names", false}, {L"names", L"name", false},  {L"", L"", true},
      {nullptr, nullptr, true},   {nullptr, L"", false},        {L"\u00C9", L"\u00E9", false},
  };
  for (const auto& [a, b, equal] : cases) EXPECT_EQ(EqualsNoCase(a, b), equal) << (a ? a : L"null");
  EXPECT_EQ(AsciiLower(L"CAZ@[`{\u00C9"), L"caz@[`{\u00C9");
}

TEST(SkinText, NumbersReadTheLeadingDecimalAndSaturate) {
  const std::tuple<const wchar_t*, int, size_t> cases[] = {
      {L"650", 650, 3},          {L" \t\r\n-7px", -7, 6},        {L"+5", 5, 2},
      {L"x1", 0, 0},             {L"", 0, 0},                   {L"-", 0, 1},
      {L"09", 9, 2},             {L"2147483647", INT_MAX, 10},  {L"2147483648", INT_MAX, 10},
      {L"99999999999", INT_MAX, 11}, {L"-2147483648", INT_MIN, 11}, {L"-99999999999", INT_MIN, 12},
      {L"1920,1200", 1920, 4},
  };
  for (const auto& [text, value, used] : cases) {
    const wchar_t* end = nullptr;
    EXPECT_EQ(ParseInt(text, &end), value) << text;
    EXPECT_EQ(static_cast<size_t>(end - text), used) << text;
  }
  EXPECT_EQ(ParseInt(nullptr), 0);
}

TEST(SkinText, ColoursAreOneOptionalHashThenHexDigits) {
  const std::pair<const wchar_t*, uint32_t> cases[] = {
      {L"#FF3482FF", 0xFF3482FF}, {L"FF3482FF", 0xFF3482FF},  {L"#09afAF", 0x09AFAF},
      {L"#", 0},                  {L"", 0},                   {L"##1", 0},
      {L"# 12", 0x12},            {L"#80ffffffG", 0x80FFFFFF}, {L"1/", 1},
      {L"1:", 1},                 {L"1@", 1},                  {L"1G", 1},
      {L"1`", 1},                 {L"1g", 1},                  {L"#FFFFFFFF", 0xFFFFFFFF},
      {L"#100000000", 0xFFFFFFFF}, {L"#10000000000000001", 0xFFFFFFFF},
  };
  for (const auto& [text, argb] : cases) EXPECT_EQ(ParseColor(text), argb) << text;
  EXPECT_EQ(ParseColor(nullptr), 0u);
}

TEST(SkinText, OnlyTrueInAnyCaseIsTrue) {
  std::wstring seen;
  for (const wchar_t* t : {L"true", L"TRUE", L"1", L"yes", L"truex", L"tru", L"", static_cast<const wchar_t*>(nullptr)}) {
    seen += ParseBool(t) ? L"y" : L"n";
  }
  EXPECT_EQ(seen, L"yynnnnnn");
}

}  // namespace
}  // namespace calder
