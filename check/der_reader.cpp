#include "check/der_reader.h"

#include <algorithm>

namespace calder::check {

namespace {

// Longer length fields would describe more than 4 GiB.
constexpr size_t kMaxLengthBytes = 4;

}  // namespace

bool DerReader::Next(uint8_t* tag, const uint8_t** content, size_t* length) {
  if (size_ < 2) return false;
  *tag = data_[0];
  size_t header = 2;
  size_t value = data_[1];
  if (value & 0x80) {
    const size_t count = value & 0x7F;
    // Zero would be BER's indefinite length, which DER does not allow.
    if (count == 0 || count > kMaxLengthBytes || count > size_ - 2) return false;
    value = 0;
    for (size_t i = 0; i < count; ++i) value = value << 8 | data_[2 + i];
    header += count;
  }
  if (value > size_ - header) return false;
  *content = data_ + header;
  *length = value;
  data_ += header + value;
  size_ -= header + value;
  return true;
}

bool DerReader::Enter(uint8_t tag, DerReader* inside, DerReader* whole) {
  DerReader rest = *this;
  uint8_t found = 0;
  const uint8_t* content = nullptr;
  size_t length = 0;
  if (!rest.Next(&found, &content, &length) || found != tag) return false;
  *inside = DerReader(content, length);
  if (whole != nullptr) *whole = DerReader(data_, static_cast<size_t>(rest.data_ - data_));
  *this = rest;
  return true;
}

bool DerReader::Expect(uint8_t tag, const std::vector<uint8_t>& expected) {
  DerReader rest = *this;
  DerReader inside;
  if (!rest.Enter(tag, &inside) || inside.size_ != expected.size() ||
      !std::equal(expected.begin(), expected.end(), inside.data_)) {
    return false;
  }
  *this = rest;
  return true;
}

bool DerReader::Skip() {
  uint8_t tag = 0;
  const uint8_t* content = nullptr;
  size_t length = 0;
  return Next(&tag, &content, &length);
}

}  // namespace calder::check
