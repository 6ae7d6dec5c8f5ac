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
constexpr size_t kDataDirectoryEntrySize = 8;

// The names a PE image imports from one library (imports by ordinal are
// not kept: nothing we build makes them).
struct ImportedLibrary {
  std::string name;
  std::vector<std::string> entries;
};

// What the checker needs of a PE image's headers, export and import tables.
struct PeImage {
  bool valid = false;
  std::string problem;  // why it is not a PE image, when it is not
  uint16_t machine = 0;
  uint16_t characteristics = 0;
  uint16_t optionalMagic = 0;
  uint16_t subsystem = 0;
  std::vector<std::string> exportNames;
  std::vector<ImportedLibrary> imports;
  // What an Authenticode hash leaves out: the checksum field, the certificate
  // table's directory entry (0 when the headers have none) and the table,
  // whose place is a file offset as the entry gives it, unchecked.
  size_t checksumOffset = 0;
  size_t certificateEntryOffset = 0;
  uint32_t certificateTableOffset = 0;
  uint32_t certificateTableSize = 0;
};

// Reads a PE file from memory. Every offset and count the file gives is
// checked against its size, so any input yields a result, never a read
// outside the buffer.
PeImage ReadPeImage(const uint8_t* data, size_t size);

bool IsWindows64GuiProgram(const PeImage& image);
bool IsWindows64Dll(const PeImage& image);
bool Exports(const PeImage& image, const std::string& name);

}  // namespace calder::check
