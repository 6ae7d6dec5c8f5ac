#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "force/firmware_image.h"
#include "tests/support/temp_file.h"

namespace calder {
namespace {

using test::PatternBytes;
using test::TaggedFile;
using test::WriteTempFile;

class FirmwareImageTest : public testing::Test {
 protected:
  ErrType Load(const std::vector<uint8_t>& file) {
    return LoadFirmwareImage(WriteTempFile("force_image.bin", file), image.get());
  }
  std::vector<uint8_t> Bytes(size_t from, size_t to) const {
    return std::vector<uint8_t>(image->buffer + from, image->buffer + to);
  }
  std::unique_ptr<FirmwareImage> image = std::make_unique<FirmwareImage>();
};

TEST_F(FirmwareImageTest, RawFilesArePaddedToTheNextWhole64ByteBlock) {
  const struct {
    size_t fileSize;
    int32_t imageSize;
  } cases[] = {{1, 64}, {64, 128}, {1000, 1024}, {1024, 1088}, {49983, 49984}};
  for (const auto& c : cases) {
    std::memset(image->buffer, 0xEE, sizeof image->buffer);
    const std::vector<uint8_t> file = PatternBytes(c.fileSize);
    ASSERT_EQ(Load(file), ErrNone) << c.fileSize;
    EXPECT_EQ(image->size, c.imageSize) << c.fileSize;
    EXPECT_EQ(Bytes(0, c.fileSize), file);
    EXPECT_EQ(Bytes(c.fileSize, c.imageSize), std::vector<uint8_t>(c.imageSize - c.fileSize, 0));
    // Past the padding the buffer keeps what was there.
    EXPECT_EQ(image->buffer[c.imageSize], 0xEE);
  }
}

TEST_F(FirmwareImageTest, TaggedFilesDropTheHeaderAndAreNotPadded) {
  const std::vector<uint8_t> payload = PatternBytes(30000, 9);
  ASSERT_EQ(Load(TaggedFile(payload)), ErrNone);
  EXPECT_EQ(image->size, 30000);
  EXPECT_EQ(Bytes(0, 30000), payload);

  ASSERT_EQ(Load(TaggedFile({})), ErrNone);
  EXPECT_EQ(image->size, 0);

  ASSERT_EQ(Load(TaggedFile(PatternBytes(kImageBufferSize))), ErrNone);
  EXPECT_EQ(image->size, kImageBufferSize);
}

TEST_F(FirmwareImageTest, TheTagCountsOnlyAtOffset24) {
  std::vector<uint8_t> file(100, 0x11);
  std::memcpy(file.data() + 23, "AW8680", 6);
  ASSERT_EQ(Load(file), ErrNone);
  EXPECT_EQ(image->size, 128);
  // 29 bytes holding the start of the tag: too short to carry it.
  std::vector<uint8_t> shortFile(29, 0);
  std::memcpy(shortFile.data() + 24, "AW868", 5);
  ASSERT_EQ(Load(shortFile), ErrNone);
  EXPECT_EQ(image->size, 64);
}

TEST_F(FirmwareImageTest, ImagesThatWouldOverrunOrGoNegativeAreRefusedUntouched) {
  ASSERT_EQ(Load(PatternBytes(100, 3)), ErrNone);
  const std::vector<uint8_t> before = Bytes(0, kImageBufferSize);

  EXPECT_EQ(Load(PatternBytes(49984)), ErrImageSize);  // padding would reach 50048
  EXPECT_EQ(Load(TaggedFile(PatternBytes(kImageBufferSize + 1))), ErrImageSize);
  std::vector<uint8_t> cutShort = TaggedFile({});
  cutShort.resize(71);
  EXPECT_EQ(Load(cutShort), ErrImageSize);
  EXPECT_EQ(Load(PatternBytes(200000)), ErrImageSize);
  EXPECT_EQ(LoadFirmwareImage(testing::TempDir() + "no_such_firmware.bin", image.get()),
            ErrOpenFile);

  EXPECT_EQ(image->size, 128);
  EXPECT_EQ(Bytes(0, kImageBufferSize), before);
}

TEST_F(FirmwareImageTest, ChecksumSumsTheWholeBuffer) {
  ASSERT_EQ(Load({1, 2, 3}), ErrNone);
  EXPECT_EQ(ImageChecksum(*image), 6.0);
  image->buffer[kImageBufferSize - 1] = 0xFF;  // beyond the image, still counted
  EXPECT_EQ(ImageChecksum(*image), 261.0);
}

}  // namespace
}  // namespace calder
