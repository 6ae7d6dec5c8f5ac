#include "tests/support/temp_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>

namespace calder::test {

std::string WriteTempFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  const std::string path = testing::TempDir() + name;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

std::vector<uint8_t> PatternBytes(size_t size, uint8_t seed) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>((i * 7 + seed) % 251 + 1);
  return bytes;
}

std::vector<uint8_t> TaggedFile(const std::vector<uint8_t>& image) {
  std::vector<uint8_t> file(72 + image.size(), 0x5A);
  std::memcpy(file.data() + 24, "AW8680", 6);
  std::copy(image.begin(), image.end(), file.begin() + 72);
  return file;
}

}  // namespace calder::test
