#pragma once

#include <cstdint>
#include <string>

#include "force/boot_loader_packets.h"
#include "force/firmware_image.h"

namespace calder {

class IICWriteRead;

// Writes one firmware image into the force sensor through its boot loader
// and checks the version the sensor then reports. One Run is one attempt.
class UpdateFw {
 public:
  using ErrType = calder::ErrType;

  // The image defaults to the writer's process-wide one.
  UpdateFw(std::string targetVersion, IICWriteRead* channel,
           FirmwareImage* image = &WriterImage());
  virtual ~UpdateFw();
  UpdateFw(const UpdateFw&) = delete;
  UpdateFw& operator=(const UpdateFw&) = delete;

  bool Run(std::string path);
  ErrType LoadFile(const std::string& path);
  ErrType ConnectCmd();
  void EraseChip();
  ErrType WriteFw();
  bool UpgradeCheck(const std::string& version);

  int32_t pageSize = kPageSize;
  // The write loop itself uses kWriteBlockSize, as its packet does.
  int32_t blockSize = kWriteBlockSize;
  int32_t lastProgress = 0;
  IICWriteRead* channel;
  std::string targetVersion;

 private:
  FirmwareImage* image_;
};

}  // namespace calder
