#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/skin_test_doubles.h"
#include "ui/skin/zip_reader.h"

namespace calder {
namespace {

using test::ReadFile;

// The built skin zip (one deflated entry) and a stored one: "skin.xml", then an empty "b/".
const std::string kDeflated = ReadFile(CALDER_SKIN_ZIP);
const std::string kStored = ReadFile(CALDER_SOURCE_DIR "/tests/fuzz/corpus/skin_zip/skin_stored.zip");

std::string Poke16(std::string zip, size_t at, uint16_t v) {
  zip[at] = static_cast<char>(v & 0xFF);
  zip[at + 1] = static_cast<char>(v >> 8);
  return zip;
}

// Opens zip, then extracts name; the first error on the way, and the content.
ZipError OpenAndExtract(const std::string& zip, const std::string& name, std::string* content = nullptr) {
  ZipReader reader;
  ZipError e = reader.Open(zip.data(), zip.size());
  std::vector<uint8_t> out;
  if (e == ZipError::kNone) e = reader.Extract(name, &out);
  if (content != nullptr) content->assign(out.begin(), out.end());
  return e;
}

TEST(ZipReader, ReadsDeflatedAndStoredEntriesByExactName) {
  std::string text;
  ASSERT_EQ(OpenAndExtract(kDeflated, "skin.xml", &text), ZipError::kNone);
  EXPECT_EQ(text, ReadFile(CALDER_SOURCE_DIR "/ui/skin.xml"));
  ASSERT_EQ(OpenAndExtract(kStored, "skin.xml", &text), ZipError::kNone);
  EXPECT_EQ(text, "<Window size=\"10,10\"><control/></Window>");
  ASSERT_EQ(OpenAndExtract(kStored, "b/", &text), ZipError::kNone);
  EXPECT_EQ(text, "");
  ASSERT_EQ(OpenAndExtract(ReadFile(CALDER_SOURCE_DIR "/tests/fuzz/corpus/skin_zip/skin_one_byte.zip"), "a", &text),
            ZipError::kNone);
  EXPECT_EQ(text, "A");  // deflated
  EXPECT_EQ(OpenAndExtract(kStored, "Skin.xml"), ZipError::kNotFound);
  // A comment may hold a stray end signature; trailing bytes it does not cover are no archive.
  const std::string comment = "PK\x05\x06 a comment";
  EXPECT_EQ(OpenAndExtract(Poke16(kStored, kStored.size() - 2, comment.size()) + comment, "skin.xml"),
            ZipError::kNone);
  EXPECT_EQ(OpenAndExtract(kStored + "x", "skin.xml"), ZipError::kNoArchive);
  ZipReader reader;
  EXPECT_EQ(reader.Open(nullptr, 0), ZipError::kNoArchive);
}

TEST(ZipReader, EveryTruncationIsAnError) {
  for (size_t n = 1; n < kDeflated.size(); ++n) {
    // Own allocations, so ASan sees any read past them.
    const std::vector<char> head(kDeflated.begin(), kDeflated.end() - n);
    const std::vector<char> tail(kDeflated.begin() + n, kDeflated.end());
    EXPECT_NE(OpenAndExtract(std::string(head.begin(), head.end()), "skin.xml"), ZipError::kNone) << n;
    EXPECT_NE(OpenAndExtract(std::string(tail.begin(), tail.end()), "skin.xml"), ZipError::kNone) << n;
  }
}

TEST(ZipReader, CorruptHeadersAndDataAreReported) {
  const size_t central = kDeflated.find("PK\x01\x02");
  const size_t end = kDeflated.rfind("PK\x05\x06");
  const size_t stored_central = kStored.find("PK\x01\x02");
  std::string changed = kStored;
  changed[changed.find("<control")] = '{';
  const std::pair<std::string, ZipError> cases[] = {
      {changed, ZipError::kBadChecksum},
      {Poke16(kDeflated, central + 24, 2817), ZipError::kCorruptData},  // one byte more than inflates
      {Poke16(kDeflated, central + 8, 0x0001), ZipError::kEncrypted},
      {Poke16(kDeflated, central + 10, 12), ZipError::kUnsupported},
      {Poke16(kDeflated, central + 26, 0x4000), ZipError::kTooLarge},
      {Poke16(kStored, stored_central + 20, 39), ZipError::kBadDirectory},  // stored sizes differ
      {Poke16(kDeflated, central + 42, 1), ZipError::kBadDirectory},        // no local header there
      {Poke16(kDeflated, central + 44, 0x7FFF), ZipError::kTruncated},
      {Poke16(kDeflated, central, 0), ZipError::kBadDirectory},
      {Poke16(Poke16(kDeflated, end + 8, 3), end + 10, 3), ZipError::kTruncated},
      {Poke16(kDeflated, end + 8, 2), ZipError::kUnsupported},  // counts disagree
      {Poke16(kDeflated, end + 4, 1), ZipError::kUnsupported},  // a second disk
      {Poke16(kDeflated, end + 6, 1), ZipError::kUnsupported},
      {Poke16(Poke16(kDeflated, end + 8, 0xFFFF), end + 10, 0xFFFF), ZipError::kUnsupported},
      {Poke16(kDeflated, end + 14, 0x7FFF), ZipError::kTruncated},  // directory past the end record
  };
  for (const auto& c : cases) EXPECT_EQ(OpenAndExtract(c.first, "skin.xml"), c.second) << &c - cases;
}

}  // namespace
}  // namespace calder
