// The force firmware image loader on arbitrary files: raw and "AW8680"-tagged
// forms, both size limits, and the image left alone when a file is refused.
//
// Input: one control byte, then the file's leading bytes. A control byte
// with the top bit set stretches the file with filler to 49900 + 2 * (low
// bits) bytes, so the size limits (49984 raw, 50072 tagged) are reached
// without multi-kilobyte inputs.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "force/firmware_image.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

constexpr uint8_t kSentinel = 0xC3;
constexpr size_t kStretchBase = 49900;

void Check(bool ok, const char* what) { calder::fuzz::Check(ok, "firmware_image_fuzz", what); }

std::string TempPath() {
  return "/tmp/calder_image_fuzz_" + std::to_string(getpid()) + ".bin";
}

void RemoveTempFile() { std::remove(TempPath().c_str()); }

std::vector<uint8_t> FileFrom(const uint8_t* data, size_t size) {
  if (size == 0) return {};
  std::vector<uint8_t> file(data + 1, data + size);
  if ((data[0] & 0x80) != 0) {
    const size_t target = kStretchBase + 2 * static_cast<size_t>(data[0] & 0x7F);
    for (size_t i = file.size(); i < target; ++i) file.push_back(static_cast<uint8_t>(i * 7));
  }
  return file;
}

bool Tagged(const std::vector<uint8_t>& file) {
  return file.size() >= 30 && std::memcmp(file.data() + 24, "AW8680", 6) == 0;
}

bool All(const uint8_t* bytes, size_t count, uint8_t value) {
  for (size_t i = 0; i < count; ++i) {
    if (bytes[i] != value) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int cleanup = std::atexit(RemoveTempFile);
  (void)cleanup;
  const std::vector<uint8_t> file = FileFrom(data, size);
  {
    std::FILE* out = std::fopen(TempPath().c_str(), "wb");
    Check(out != nullptr, "cannot write the temp file");
    if (!file.empty()) std::fwrite(file.data(), 1, file.size(), out);
    std::fclose(out);
  }

  auto image = std::make_unique<calder::FirmwareImage>();
  std::memset(image->buffer, kSentinel, sizeof image->buffer);
  image->size = -7;
  const calder::ErrType result = calder::LoadFirmwareImage(TempPath(), image.get());

  const long n = static_cast<long>(file.size());
  const bool tagged = Tagged(file);
  const long imageSize = tagged ? n - 72 : n + (64 - n % 64);
  const bool fits = imageSize >= 0 && imageSize <= (tagged ? calder::kImageBufferSize : 49984);

  if (!fits) {
    Check(result == calder::ErrImageSize, "a file that cannot fit was not refused");
    Check(image->size == -7, "a refused file changed the size");
    Check(All(image->buffer, sizeof image->buffer, kSentinel), "a refused file changed the buffer");
    return 0;
  }
  Check(result == calder::ErrNone, "a file that fits was refused");
  Check(image->size == imageSize, "wrong image size");
  const size_t copied = tagged ? static_cast<size_t>(imageSize) : file.size();
  const uint8_t* source = tagged ? file.data() + 72 : file.data();
  Check(copied == 0 || std::memcmp(image->buffer, source, copied) == 0, "image bytes differ");
  const size_t padded = static_cast<size_t>(imageSize);
  Check(All(image->buffer + copied, padded - copied, 0x00), "padding is not zero");
  Check(All(image->buffer + padded, sizeof image->buffer - padded, kSentinel),
        "bytes past the image were touched");

  double sum = 0.0;
  for (uint8_t b : image->buffer) sum += b;
  Check(calder::ImageChecksum(*image) == sum, "checksum is not the buffer's byte sum");
  return 0;
}
