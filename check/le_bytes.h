#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace calder::check {

// Little-endian reads that fail instead of leaving the buffer.
class LeBytes {
 public:
  LeBytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool Has(size_t offset, size_t count) const { return offset <= size_ && count <= size_ - offset; }
  bool U16(size_t offset, uint16_t* out) const {
    if (!Has(offset, 2)) return false;
    *out = static_cast<uint16_t>(data_[offset] | data_[offset + 1] << 8);
    return true;
  }
  bool U32(size_t offset, uint32_t* out) const {
    if (!Has(offset, 4)) return false;
    *out = 0;
    for (int i = 3; i >= 0; --i) *out = *out << 8 | data_[offset + static_cast<size_t>(i)];
    return true;
  }
  // A NUL-terminated name that ends inside the buffer and within a length
  // no real name reaches.
  bool Name(size_t offset, std::string* out) const {
    if (offset >= size_) return false;
    const size_t limit = std::min(size_ - offset, kMaxNameLength);
    const uint8_t* begin = data_ + offset;
    const uint8_t* end = std::find(begin, begin + limit, uint8_t{0});
    if (end == begin + limit) return false;
    out->assign(begin, end);
    return true;
  }

 private:
  static constexpr size_t kMaxNameLength = 1024;
  const uint8_t* data_;
  size_t size_;
};

}  // namespace calder::check
