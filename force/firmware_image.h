#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace calder {

// Results of the force firmware classes; printed as numbers in the log.
enum ErrType : int {
  ErrNone = 0,
  ErrOpenFile = 2,
  ErrConnect = 4,
  ErrIncomplete = 5,
  ErrImageSize = 6,  // image would not fit the buffer, or a tagged file is cut short
};

constexpr int kImageBufferSize = 50000;

// A loaded firmware image. Bytes past `size` keep what earlier loads left.
struct FirmwareImage {
  uint8_t buffer[kImageBufferSize] = {};
  int32_t size = 0;
};

// The writer's and the reader's own images.
// Kept as the field sees it: two process-wide buffers, so bytes past a shorter
// image keep what an earlier load left and enter the reader's file checksum.
FirmwareImage& WriterImage();
FirmwareImage& ReaderImage();

// True when the file's content is the tagged form; anything else is raw.
bool IsTaggedFirmwareFile(const uint8_t* bytes, size_t size);

// Loads a raw or "AW8680"-tagged file. On any error the image is unchanged.
ErrType LoadFirmwareImage(const std::string& path, FirmwareImage* image);

// The same for a file's bytes already in memory; LoadFirmwareImage ends here.
ErrType ParseFirmwareImage(const uint8_t* bytes, size_t size, FirmwareImage* image);

// Sum of all buffer bytes, not just the image's.
double ImageChecksum(const FirmwareImage& image);

}  // namespace calder
