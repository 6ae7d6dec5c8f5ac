#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace calder::check {

// SHA-256 of bytes given in pieces. Our own because calder-check.exe has no
// crypto library built for mingw, and both builds must hash alike.
class Sha256 {
 public:
  Sha256();
  void Update(const uint8_t* data, size_t size);
  std::array<uint8_t, 32> Finish();

 private:
  void Block(const uint8_t* block);

  std::array<uint32_t, 8> state_;
  std::array<uint8_t, 64> pending_{};
  size_t pendingSize_ = 0;
  uint64_t totalSize_ = 0;
};

std::string HexOf(const uint8_t* data, size_t size);
std::string Sha256Hex(const uint8_t* data, size_t size);
// A file's SHA-256 as lowercase hex; none when it cannot be read.
std::optional<std::string> FileSha256(const std::string& path);

}  // namespace calder::check
