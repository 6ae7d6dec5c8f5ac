#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "force/firmware_image.h"

namespace calder::check {

// What the force phase will do with one firmware file, measured by running
// the product's loader, writer and read-back against a sensor model.
struct ForceImagePlan {
  ErrType load = ErrOpenFile;
  bool tagged = false;
  int imageSize = 0;
  int blocks = 0;          // Write flash packets of one writer run
  int eraseSectors = 0;    // sectors the erase commands of one run name
  int readbackChunks = 0;  // Read flash packets of one read-back
};

ForceImagePlan PlanForceImage(const std::string& path, const std::string& targetVersion);

// The four bytes a stem names, when it is four dot-separated decimal numbers
// that fit a byte; false otherwise.
bool VersionBytesOf(const std::string& stem, std::array<uint8_t, 4>* bytes);

// The text the program reads back from a sensor that runs this version.
std::string VersionTextOf(const std::array<uint8_t, 4>& bytes);

// True when a sensor could ever report the stem as its version.
bool IsVersionText(const std::string& stem);

}  // namespace calder::check
