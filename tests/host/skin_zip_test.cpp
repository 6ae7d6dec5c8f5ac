#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/host/skin_zip_fixture.h"
#include "ui/skin/zip_reader.h"

namespace calder {
namespace {

using test::ZipWriter;

std::string AsString(const std::vector<uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void Poke16(std::string* zip, size_t at, uint16_t v) {
  (*zip)[at] = static_cast<char>(v & 0xFF);
  (*zip)[at + 1] = static_cast<char>(v >> 8);
}

// Offset of the first central directory header.
size_t CentralOffset(const std::string& zip) { return zip.find("PK\x01\x02"); }

const std::string kText = "<Window size=\"1920,1200\">\xE5\xBE\xAE\xE8\xBD\xAF</Window>\n";

TEST(ZipReader, ReadsDeflatedAndStoredEntriesByExactName) {
  ZipWriter w;
  w.Add("skin.xml", kText);
  w.Add("dir/raw.bin", std::string("\0\x01\x02stored", 9), false);
  w.Add("empty", "");
  const std::string zip = w.Finish("a comment PK\x05\x06 with a stray signature");

  ZipReader reader;
  ASSERT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kNone);
  ASSERT_EQ(reader.Entries().size(), 3u);
  EXPECT_EQ(reader.Entries()[0].method, 8);
  EXPECT_EQ(reader.Entries()[1].method, 0);

  std::vector<uint8_t> out;
  ASSERT_EQ(reader.Extract("skin.xml", &out), ZipError::kNone);
  EXPECT_EQ(AsString(out), kText);
  ASSERT_EQ(reader.Extract("dir/raw.bin", &out), ZipError::kNone);
  EXPECT_EQ(AsString(out), std::string("\0\x01\x02stored", 9));
  ASSERT_EQ(reader.Extract("empty", &out), ZipError::kNone);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(reader.Extract("Skin.xml", &out), ZipError::kNotFound);
  EXPECT_EQ(reader.Extract("raw.bin", &out), ZipError::kNotFound);
}

TEST(ZipReader, TheBuiltSkinZipHoldsTheSkinDocumentDeflated) {
  const std::string zip = ReadFile(CALDER_SKIN_ZIP);
  ASSERT_FALSE(zip.empty());
  ZipReader reader;
  ASSERT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kNone);
  ASSERT_EQ(reader.Entries().size(), 1u);
  EXPECT_EQ(reader.Entries()[0].name, "skin.xml");
  EXPECT_EQ(reader.Entries()[0].method, 8);
  std::vector<uint8_t> out;
  ASSERT_EQ(reader.Extract("skin.xml", &out), ZipError::kNone);
  EXPECT_EQ(AsString(out), ReadFile(CALDER_SOURCE_DIR "/ui/skin.xml"));
}

TEST(ZipReader, RejectsBuffersThatAreNoArchive) {
  ZipReader reader;
  EXPECT_EQ(reader.Open(nullptr, 0), ZipError::kNoArchive);
  EXPECT_EQ(reader.Open("", 0), ZipError::kNoArchive);
  const std::string xml = "<Window/>";
  EXPECT_EQ(reader.Open(xml.data(), xml.size()), ZipError::kNoArchive);
  EXPECT_FALSE(reader.IsOpen());
  // An end record whose comment length does not reach the end of the buffer.
  ZipWriter w;
  w.Add("a", "x");
  std::string zip = w.Finish() + "trailing";
  EXPECT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kNoArchive);
}

TEST(ZipReader, EveryTruncationIsAnErrorNeverACrash) {
  ZipWriter w;
  w.Add("skin.xml", kText + kText + kText);
  w.Add("b", "second");
  const std::string zip = w.Finish();
  for (size_t n = 1; n < zip.size(); ++n) {
    // Own allocations, so ASan sees any read past them.
    const std::vector<char> head(zip.begin(), zip.end() - n);
    const std::vector<char> tail(zip.begin() + n, zip.end());
    ZipReader reader;
    EXPECT_NE(reader.Open(head.data(), head.size()), ZipError::kNone) << "cut " << n;
    std::vector<uint8_t> out;
    if (reader.Open(tail.data(), tail.size()) == ZipError::kNone) {
      EXPECT_NE(reader.Extract("skin.xml", &out), ZipError::kNone) << "dropped " << n;
    }
  }
}

TEST(ZipReader, CorruptDataAndHeadersAreReportedPerEntry) {
  ZipWriter w;
  w.Add("skin.xml", kText);
  w.Add("stored", "plain", false);
  const std::string good = w.Finish();
  std::vector<uint8_t> out;

  {  // a flipped byte in the deflated stream
    std::string zip = good;
    zip[30 + 8 + 3] ^= 0x55;
    ZipReader reader;
    ASSERT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kNone);
    const ZipError e = reader.Extract("skin.xml", &out);
    EXPECT_TRUE(e == ZipError::kCorruptData || e == ZipError::kBadChecksum) << ZipErrorText(e);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(reader.Extract("stored", &out), ZipError::kNone);
  }
  {  // stored content changed: only the checksum can tell
    std::string zip = good;
    zip[zip.find("plain")] = 'P';
    ZipReader reader;
    ASSERT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kNone);
    EXPECT_EQ(reader.Extract("stored", &out), ZipError::kBadChecksum);
  }
  const size_t central = CentralOffset(good);
  {  // declared size one more than the stream holds
    std::string zip = good;
    Poke16(&zip, central + 24, static_cast<uint16_t>(kText.size() + 1));
    ZipReader reader;
    ASSERT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kNone);
    EXPECT_EQ(reader.Extract("skin.xml", &out), ZipError::kCorruptData);
  }
  {  // encrypted, unknown method, huge size, wrong local signature, bad offset
    struct Case {
      size_t at;
      uint16_t value;
      ZipError expected;
    } cases[] = {
        {central + 8, 0x0001, ZipError::kEncrypted},
        {central + 10, 12, ZipError::kUnsupported},
        {central + 26, 0x4000, ZipError::kTooLarge},
        {central + 42, 1, ZipError::kBadDirectory},
        {central + 44, 0x7FFF, ZipError::kTruncated},
    };
    for (const Case& c : cases) {
      std::string zip = good;
      Poke16(&zip, c.at, c.value);
      ZipReader reader;
      ASSERT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kNone);
      EXPECT_EQ(reader.Extract("skin.xml", &out), c.expected) << "offset " << c.at - central;
    }
  }
  {  // directory entry count larger than the directory
    std::string zip = good;
    const size_t end = zip.rfind("PK\x05\x06");
    Poke16(&zip, end + 8, 3);
    Poke16(&zip, end + 10, 3);
    ZipReader reader;
    EXPECT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kTruncated);
    Poke16(&zip, end + 4, 1);  // a second disk
    EXPECT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kUnsupported);
  }
  {  // a directory header without its signature
    std::string zip = good;
    zip[central + 1] = 'X';
    ZipReader reader;
    EXPECT_EQ(reader.Open(zip.data(), zip.size()), ZipError::kBadDirectory);
  }
}

}  // namespace
}  // namespace calder
