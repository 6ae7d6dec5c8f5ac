#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "touchpad/file_byte_sum.h"

namespace calder {
namespace {

// A stream that claims `claimed` bytes at its end but yields only `content`,
// like a file that shrinks between sizing and reading.
struct Shrinking {
  std::string content;
  long claimed = 0;
  long pos = 0;
};

ssize_t ReadShrinking(void* cookie, char* buf, size_t size) {
  auto* s = static_cast<Shrinking*>(cookie);
  const long left = static_cast<long>(s->content.size()) - s->pos;
  const size_t n = left > 0 ? std::min(size, static_cast<size_t>(left)) : 0;
  std::memcpy(buf, s->content.data() + s->pos, n);
  s->pos += static_cast<long>(n);
  return static_cast<ssize_t>(n);
}

int SeekShrinking(void* cookie, off64_t* offset, int whence) {
  auto* s = static_cast<Shrinking*>(cookie);
  s->pos = whence == SEEK_END ? s->claimed + *offset : whence == SEEK_SET ? *offset : s->pos + *offset;
  *offset = s->pos;
  return 0;
}

TEST(FileByteSum, SumsEveryByteWrappingAtThirtyTwoBits) {
  std::string data = "\xFF\xFF\x01";
  std::FILE* f = fmemopen(&data[0], data.size(), "rb");
  const FileSum sum = SumFileBytes(f);
  std::fclose(f);
  EXPECT_EQ(sum.status, FileSumStatus::Ok);
  EXPECT_EQ(sum.size, 3);
  EXPECT_EQ(sum.sum, 0x1FFu);
}

TEST(FileByteSum, ShortReadIsReportedNotSummed) {
  Shrinking shrinking{"\x10\x20", 5, 0};
  cookie_io_functions_t io = {&ReadShrinking, nullptr, &SeekShrinking, nullptr};
  std::FILE* f = fopencookie(&shrinking, "rb", io);
  const FileSum sum = SumFileBytes(f);
  std::fclose(f);
  EXPECT_EQ(sum.status, FileSumStatus::ShortRead);
  EXPECT_EQ(sum.size, 5);
}

}  // namespace
}  // namespace calder
