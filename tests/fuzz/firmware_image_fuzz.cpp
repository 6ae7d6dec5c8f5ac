// The force firmware image loader on arbitrary bytes, in memory. Properties:
// the image stays inside its buffer and nothing past it is written, a refused
// file leaves the image alone, and the same bytes give the same image twice.
//
// Input: one control byte, then the file's leading bytes. A control byte
// with the top bit set stretches the file with filler to 49900 + 2 * (low
// bits) bytes, so both size limits are reached without huge inputs.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "force/firmware_image.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

constexpr uint8_t kSentinel = 0xC3;

void Check(bool ok, const char* what) { calder::fuzz::Check(ok, "firmware_image_fuzz", what); }

std::vector<uint8_t> FileFrom(const uint8_t* data, size_t size) {
  if (size == 0) return {};
  std::vector<uint8_t> file(data + 1, data + size);
  if ((data[0] & 0x80) != 0) file.resize(49900 + 2 * static_cast<size_t>(data[0] & 0x7F), 0x5A);
  return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using calder::FirmwareImage;
  const std::vector<uint8_t> file = FileFrom(data, size);
  static auto first = std::make_unique<FirmwareImage>();
  static auto second = std::make_unique<FirmwareImage>();
  for (FirmwareImage* image : {first.get(), second.get()}) {
    std::memset(image->buffer, kSentinel, sizeof image->buffer);
    image->size = -7;
  }
  const calder::ErrType result = calder::ParseFirmwareImage(file.data(), file.size(), first.get());
  Check(result == calder::ParseFirmwareImage(file.data(), file.size(), second.get()),
        "the same bytes gave two results");
  Check(first->size == second->size &&
            std::memcmp(first->buffer, second->buffer, sizeof first->buffer) == 0,
        "the same bytes gave two images");

  static const std::vector<uint8_t> sentinels(calder::kImageBufferSize, kSentinel);
  const auto untouchedFrom = [&](int32_t from) {
    return std::memcmp(first->buffer + from, sentinels.data(),
                       static_cast<size_t>(calder::kImageBufferSize - from)) == 0;
  };
  if (result != calder::ErrNone) {
    Check(result == calder::ErrImageSize, "an unknown refusal");
    Check(first->size == -7 && untouchedFrom(0), "a refused file changed the image");
    return 0;
  }
  Check(first->size >= 0 && first->size <= calder::kImageBufferSize, "image size out of bounds");
  Check(untouchedFrom(first->size), "bytes past the image were written");
  return 0;
}
