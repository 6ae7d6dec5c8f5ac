#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace calder::check {

constexpr uint16_t kMachineAmd64 = 0x8664;
constexpr uint16_t kPe32PlusMagic = 0x20B;
constexpr uint16_t kSubsystemWindowsGui = 2;
constexpr uint16_t kFileExecutableImage = 0x0002;
constexpr uint16_t kFileDll = 0x2000;

// What the checker needs of a PE image's headers and export table.
struct PeImage {
  bool valid = false;
  std::string problem;  // why it is not a PE image, when it is not
  uint16_t machine = 0;
  uint16_t characteristics = 0;
  uint16_t optionalMagic = 0;
  uint16_t subsystem = 0;
  std::vector<std::string> exportNames;
};

// Reads a PE file from memory. Every offset and count the file gives is
// checked against its size, so any input yields a result, never a read
// outside the buffer.
PeImage ReadPeImage(const uint8_t* data, size_t size);

bool IsWindows64GuiProgram(const PeImage& image);
bool IsWindows64Dll(const PeImage& image);
bool Exports(const PeImage& image, const std::string& name);

}  // namespace calder::check
