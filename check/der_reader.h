#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace calder::check {

constexpr uint8_t kDerBoolean = 0x01;
constexpr uint8_t kDerInteger = 0x02;
constexpr uint8_t kDerBitString = 0x03;
constexpr uint8_t kDerOctetString = 0x04;
constexpr uint8_t kDerOid = 0x06;
constexpr uint8_t kDerUtcTime = 0x17;
constexpr uint8_t kDerGeneralizedTime = 0x18;
constexpr uint8_t kDerSequence = 0x30;
constexpr uint8_t kDerSet = 0x31;
constexpr uint8_t kDerExplicit0 = 0xA0;  // [0], constructed
constexpr uint8_t kDerExplicit1 = 0xA1;

// Walks the elements of one DER level in order. Every length is checked
// against what is left, so a forged one ends the walk instead of the buffer;
// BER's forms (a length longer than it needs, an indefinite one, an INTEGER
// with a superfluous leading byte) end it too.
class DerReader {
 public:
  DerReader() = default;
  DerReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  // The next element when its tag is `tag`: its content becomes *inside,
  // and the whole element, tag and length included, *whole.
  bool Enter(uint8_t tag, DerReader* inside, DerReader* whole = nullptr);
  // The next element when its tag is `tag` and its content is `content`.
  bool Expect(uint8_t tag, const std::vector<uint8_t>& content);
  std::vector<uint8_t> Bytes() const { return std::vector<uint8_t>(data_, data_ + size_); }
  const uint8_t* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  friend std::string DerProblem(const uint8_t* data, size_t size);
  // Every element of a level, and within each constructed one.
  static std::string Walk(const uint8_t* data, size_t size, int depth);
  // Tag and content of the next element; consumes it. "" when it is DER,
  // else what is wrong with it.
  std::string Next(uint8_t* tag, const uint8_t** content, size_t* length);

  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

// What keeps the bytes from being exactly one DER element, every
// constructed one within it walked too; "" when they are one.
std::string DerProblem(const uint8_t* data, size_t size);

// An INTEGER's content read as an unsigned number; false when negative.
bool ReadUnsigned(DerReader* reader, std::vector<uint8_t>* value);

}  // namespace calder::check
