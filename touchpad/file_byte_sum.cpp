#include "touchpad/file_byte_sum.h"

#include <vector>

namespace calder {

FileSum SumFileBytes(std::FILE* file) {
  FileSum result;
  std::fseek(file, 0, SEEK_END);
  const long end = std::ftell(file);
  result.size = static_cast<int32_t>(end);
  if (result.size <= 0) {
    result.status = FileSumStatus::Empty;
    return result;
  }
  std::fseek(file, 0, SEEK_SET);
  std::vector<unsigned char> buffer(static_cast<size_t>(result.size));
  const size_t got = std::fread(buffer.data(), 1, buffer.size(), file);
  if (got != buffer.size()) {
    result.status = FileSumStatus::ShortRead;
    return result;
  }
  for (unsigned char byte : buffer) result.sum += byte;
  return result;
}

}  // namespace calder
