#include "check/der_reader.h"

#include <algorithm>

namespace calder::check {

namespace {

// Longer length fields would describe more than 4 GiB.
constexpr size_t kMaxLengthBytes = 4;
constexpr uint8_t kConstructed = 0x20;
constexpr uint8_t kHighTagNumber = 0x1F;
// Nesting deeper than any certificate or signature needs.
constexpr int kMaxDepth = 32;

}  // namespace

std::string DerReader::Next(uint8_t* tag, const uint8_t** content, size_t* length) {
  if (size_ < 2) return "an element cut short";
  *tag = data_[0];
  if ((*tag & kHighTagNumber) == kHighTagNumber) return "a tag in the long form";
  size_t header = 2;
  size_t value = data_[1];
  if (value == 0x80) return "an indefinite length";
  if (value & 0x80) {
    const size_t count = value & 0x7F;
    if (count > kMaxLengthBytes || count > size_ - 2) return "a length cut short or beyond 4 GiB";
    if (data_[2] == 0) return "a length with a leading zero byte";
    value = 0;
    for (size_t i = 0; i < count; ++i) value = value << 8 | data_[2 + i];
    if (value < 0x80) return "a length in the long form where the short one fits";
    header += count;
  }
  if (value > size_ - header) return "a length past the end of what holds it";
  const uint8_t* at = data_ + header;
  if (*tag == kDerInteger &&
      (value == 0 || (value > 1 && ((at[0] == 0 && at[1] < 0x80) || (at[0] == 0xFF && at[1] >= 0x80))))) {
    return "an INTEGER with a superfluous leading byte";
  }
  *content = at;
  *length = value;
  data_ += header + value;
  size_ -= header + value;
  return "";
}

bool DerReader::Enter(uint8_t tag, DerReader* inside, DerReader* whole) {
  DerReader rest = *this;
  uint8_t found = 0;
  const uint8_t* content = nullptr;
  size_t length = 0;
  if (!rest.Next(&found, &content, &length).empty() || found != tag) return false;
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

std::string DerReader::Walk(const uint8_t* data, size_t size, int depth) {
  if (depth > kMaxDepth) return "elements nested deeper than " + std::to_string(kMaxDepth);
  for (DerReader reader(data, size); reader.size_ > 0;) {
    uint8_t tag = 0;
    const uint8_t* content = nullptr;
    size_t length = 0;
    std::string problem = reader.Next(&tag, &content, &length);
    if (problem.empty() && (tag == kDerBitString + kConstructed || tag == kDerOctetString + kConstructed)) {
      problem = "a string in BER's constructed form";
    }
    if (problem.empty() && (tag & kConstructed) != 0) problem = Walk(content, length, depth + 1);
    if (!problem.empty()) return problem;
  }
  return "";
}

std::string DerProblem(const uint8_t* data, size_t size) {
  DerReader reader(data, size);
  uint8_t tag = 0;
  const uint8_t* content = nullptr;
  size_t length = 0;
  const std::string problem = reader.Next(&tag, &content, &length);
  if (!problem.empty()) return problem;
  if (reader.size() != 0) return "bytes after the end of the element";
  return DerReader::Walk(data, size, 0);
}

bool ReadUnsigned(DerReader* reader, std::vector<uint8_t>* value) {
  DerReader content;
  if (!reader->Enter(kDerInteger, &content) || (content.data()[0] & 0x80) != 0) return false;
  *value = content.Bytes();
  return true;
}

}  // namespace calder::check
