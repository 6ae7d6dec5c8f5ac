#include "force/firmware_image.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace calder {

namespace {

constexpr char kTag[] = "AW8680";
constexpr long kTagOffset = 24;
constexpr long kTagLength = 6;
constexpr long kTaggedHeaderLength = 72;
constexpr long kPadding = 64;
// Anything larger cannot fit in either form; refused before reading.
constexpr long kLargestUsefulFile = kImageBufferSize + kTaggedHeaderLength;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

bool IsTaggedFirmwareFile(const uint8_t* bytes, size_t size) {
  return size >= static_cast<size_t>(kTagOffset + kTagLength) &&
         std::memcmp(bytes + kTagOffset, kTag, kTagLength) == 0;
}

FirmwareImage& WriterImage() {
  static FirmwareImage image;
  return image;
}

FirmwareImage& ReaderImage() {
  static FirmwareImage image;
  return image;
}

ErrType LoadFirmwareImage(const std::string& path, FirmwareImage* image) {
  std::FILE* raw = std::fopen(path.c_str(), "rb");
  if (raw == nullptr) return ErrOpenFile;
  std::unique_ptr<std::FILE, FileCloser> file(raw);
  // One read into our own buffer: a stream buffer would only add a copy.
  std::setvbuf(raw, nullptr, _IONBF, 0);

  std::fseek(raw, 0, SEEK_END);
  const long fileSize = std::ftell(raw);
  if (fileSize < 0) return ErrOpenFile;
  if (fileSize > kLargestUsefulFile) return ErrImageSize;
  std::fseek(raw, 0, SEEK_SET);
  std::vector<uint8_t> content(static_cast<size_t>(fileSize));
  // A short read keeps the zeros it did not fill.
  if (fileSize > 0) (void)std::fread(content.data(), 1, content.size(), raw);
  return ParseFirmwareImage(content.data(), content.size(), image);
}

ErrType ParseFirmwareImage(const uint8_t* bytes, size_t size, FirmwareImage* image) {
  if (size > static_cast<size_t>(kLargestUsefulFile)) return ErrImageSize;
  const long fileSize = static_cast<long>(size);

  if (IsTaggedFirmwareFile(bytes, size)) {
    const long imageSize = fileSize - kTaggedHeaderLength;
    if (imageSize < 0 || imageSize > kImageBufferSize) return ErrImageSize;
    if (imageSize > 0) {
      std::memcpy(image->buffer, bytes + kTaggedHeaderLength, static_cast<size_t>(imageSize));
    }
    image->size = static_cast<int32_t>(imageSize);
    return ErrNone;
  }

  // Raw: padded to whole 64-byte blocks.
  // Kept as the field sees it: a whole block of zeros even when already aligned.
  const long padded = fileSize + (kPadding - fileSize % kPadding);
  if (padded > kImageBufferSize) return ErrImageSize;
  if (fileSize > 0) std::memcpy(image->buffer, bytes, size);
  std::memset(image->buffer + fileSize, 0, static_cast<size_t>(padded - fileSize));
  image->size = static_cast<int32_t>(padded);
  return ErrNone;
}

double ImageChecksum(const FirmwareImage& image) {
  // Exact in 32 bits (at most 50000 * 255), and a far cheaper loop than one on doubles.
  uint32_t sum = 0;
  for (uint8_t byte : image.buffer) sum += byte;
  return static_cast<double>(sum);
}

}  // namespace calder
