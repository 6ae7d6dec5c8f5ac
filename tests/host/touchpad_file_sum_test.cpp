#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "touchpad/file_byte_sum.h"

namespace calder {
namespace {

// A file that claims five bytes at its end but yields two, as one that
// shrinks between sizing and reading.
struct Shrinking {
  std::string content = "\x10\x20";
  long pos = 0;
};

TEST(FileByteSum, AShortReadIsReportedNotSummed) {
  Shrinking file;
  cookie_io_functions_t io{};
  io.read = [](void* cookie, char* buf, size_t size) -> ssize_t {
    auto* s = static_cast<Shrinking*>(cookie);
    const size_t n = std::min(size, s->content.size() - std::min<size_t>(s->pos, s->content.size()));
    std::memcpy(buf, s->content.data() + s->pos, n);
    s->pos += static_cast<long>(n);
    return static_cast<ssize_t>(n);
  };
  io.seek = [](void* cookie, off64_t* offset, int whence) {
    auto* s = static_cast<Shrinking*>(cookie);
    s->pos = static_cast<long>(*offset) + (whence == SEEK_END ? 5 : whence == SEEK_CUR ? s->pos : 0);
    *offset = s->pos;
    return 0;
  };
  std::FILE* f = fopencookie(&file, "rb", io);
  const FileSum sum = SumFileBytes(f);
  std::fclose(f);
  EXPECT_EQ(sum.status, FileSumStatus::ShortRead);
  EXPECT_EQ(sum.size, 5);
}

}  // namespace
}  // namespace calder
