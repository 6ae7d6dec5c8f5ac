#pragma once

#include <cstdint>
#include <string>

#include "force/boot_loader_packets.h"
#include "force/firmware_image.h"

namespace calder {

class IICWriteRead;

// Reads the sensor's application flash back and sums it, beside the sum of
// the firmware file. Deciding pass or fail is the caller's business.
class ReadFirmwareContent {
 public:
  using ErrType = calder::ErrType;

  // The image defaults to the reader's process-wide one.
  explicit ReadFirmwareContent(FirmwareImage* image = &ReaderImage());
  virtual ~ReadFirmwareContent();
  ReadFirmwareContent(const ReadFirmwareContent&) = delete;
  ReadFirmwareContent& operator=(const ReadFirmwareContent&) = delete;

  double Run(std::string path, IICWriteRead* channel);
  // Adds the file checksum to fileChecksum when the file loads.
  // Kept as the field sees it: adds rather than sets, so a second Run would
  // double it; the program runs each reader once.
  ErrType LoadFile(const std::string& path);
  ErrType ConnectCmd();
  ErrType ReadChecksum();

  std::string firmwarePath;
  int32_t pageSize = kPageSize;
  // The read-back itself uses kReadChunkSize, as its request does.
  int32_t readSize = kReadChunkSize;
  IICWriteRead* channel = nullptr;
  double chipChecksum = 0.0;
  double fileChecksum = 0.0;

 private:
  FirmwareImage* image_;
};

}  // namespace calder
