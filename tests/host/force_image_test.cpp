#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "force/firmware_image.h"
#include "tests/support/force_rig.h"

namespace calder {
namespace {

using namespace test;

constexpr uint8_t kEarlier = 0xEE;  // what an earlier load left in the buffer

std::vector<uint8_t> TagAt(size_t size, size_t at) {
  std::vector<uint8_t> file(size, 0x11);
  std::memcpy(file.data() + at, "AW8680", std::min<size_t>(6, size - at));
  return file;
}

struct SizeCase {
  const char* name;
  std::vector<uint8_t> file;
  ErrType result;
  int32_t size;      // on success
  size_t bodyStart;  // where the image starts in the file
};

class FirmwareImageSizes : public testing::TestWithParam<SizeCase> {};

TEST_P(FirmwareImageSizes, LoadsOrRefusesLeavingTheRestOfTheBuffer) {
  const SizeCase& c = GetParam();
  auto image = std::make_unique<FirmwareImage>();
  std::memset(image->buffer, kEarlier, sizeof image->buffer);
  image->size = 77;
  ASSERT_EQ(ParseFirmwareImage(c.file.data(), c.file.size(), image.get()), c.result);
  if (c.result != ErrNone) {
    EXPECT_EQ(image->size, 77);
    EXPECT_EQ(std::count(image->buffer, image->buffer + kImageBufferSize, kEarlier),
              kImageBufferSize);
    return;
  }
  ASSERT_EQ(image->size, c.size);
  const size_t body = c.file.size() - c.bodyStart;
  const uint8_t* at = image->buffer;
  EXPECT_TRUE(std::equal(at, at + body, c.file.begin() + c.bodyStart));
  EXPECT_EQ(std::count(at + body, at + c.size, 0), static_cast<long>(c.size - body));  // padding
  EXPECT_EQ(std::count(at + c.size, at + kImageBufferSize, kEarlier), kImageBufferSize - c.size);
}

INSTANTIATE_TEST_SUITE_P(
    All, FirmwareImageSizes,
    testing::Values(
        // Raw files gain zeros up to the next 64-byte block, a whole one when aligned.
        SizeCase{"raw64", PatternBytes(64), ErrNone, 128, 0},
        SizeCase{"raw1000", PatternBytes(1000), ErrNone, 1024, 0},
        SizeCase{"raw1024", PatternBytes(1024), ErrNone, 1088, 0},
        SizeCase{"rawLargest", PatternBytes(49983), ErrNone, 49984, 0},
        SizeCase{"rawTooBig", PatternBytes(49984), ErrImageSize, 0, 0},
        SizeCase{"huge", PatternBytes(200000), ErrImageSize, 0, 0},
        SizeCase{"empty", {}, ErrNone, 64, 0},
        // Tagged files lose the header and are not padded.
        SizeCase{"tagged30000", TaggedFile(PatternBytes(30000, 9)), ErrNone, 30000, 72},
        SizeCase{"taggedEmpty", TaggedFile({}), ErrNone, 0, 72},
        SizeCase{"taggedLargest", TaggedFile(PatternBytes(kImageBufferSize)), ErrNone,
                 kImageBufferSize, 72},
        SizeCase{"taggedTooBig", TaggedFile(PatternBytes(kImageBufferSize + 1)), ErrImageSize, 0,
                 0},
        SizeCase{"taggedCutShort", TagAt(71, 24), ErrImageSize, 0, 0},
        // The tag counts only whole and at offset 24.
        SizeCase{"tagAt23", TagAt(100, 23), ErrNone, 128, 0},
        SizeCase{"tagCutAt29", TagAt(29, 24), ErrNone, 64, 0}),
    [](const testing::TestParamInfo<SizeCase>& info) { return info.param.name; });

TEST(FirmwareImageChecksum, SumsTheWholeBuffer) {
  auto image = std::make_unique<FirmwareImage>();
  image->buffer[0] = 6;
  image->buffer[kImageBufferSize - 1] = 0xFF;  // beyond any image, still counted
  EXPECT_EQ(ImageChecksum(*image), 261.0);
}

}  // namespace
}  // namespace calder
