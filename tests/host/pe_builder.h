#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace calder::test {

using Bytes = std::vector<uint8_t>;

// A PE image as the tests need it: the headers, an empty first section and a
// data section (at RVA 0x2000, file offset 0x400, right after the first
// section's span) that holds the export directory and the imports.
struct PeSpec {
  uint16_t machine = 0x8664;
  uint16_t characteristics = 0x0022;  // executable, large-address aware
  uint16_t subsystem = 2;
  uint16_t magic = 0x20B;
  uint16_t optionalSize = 240;
  uint32_t directories = 16;
  std::vector<std::string> exports;
  // Library and entries; "#N" imports ordinal N.
  std::vector<std::pair<std::string, std::vector<std::string>>> imports;
  size_t zeroPadding = 0;      // zero bytes closing the data section
  uint32_t exportRva = 0;      // where the export directory entry points, when not 0
  uint32_t virtualExtra = 0;   // virtual size beyond the raw data
};

constexpr uint32_t kPeDataRva = 0x2000;
constexpr uint16_t kPeDll = 0x2022;

Bytes BuildPe(const PeSpec& spec);
void PutLe(Bytes& b, size_t at, uint32_t value, int width);

// Authenticode-signs with osslsigncode and a throwaway key made once per
// process; empty when the tools fail.
Bytes SignPe(const Bytes& image, const char* hash = "sha256");
// OpenSSL's SHA-256, the reference for calder-check's own.
std::string ReferenceSha256(const Bytes& bytes);

}  // namespace calder::test
