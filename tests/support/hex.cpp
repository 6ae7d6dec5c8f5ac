#include "tests/support/hex.h"

#include <cstdio>
#include <sstream>

namespace calder::test {

std::vector<uint8_t> Hex(const std::string& text) {
  std::vector<uint8_t> out;
  std::istringstream in(text);
  std::string token;
  while (in >> token) out.push_back(static_cast<uint8_t>(std::stoul(token, nullptr, 16)));
  return out;
}

std::string ToHex(const std::vector<uint8_t>& bytes) {
  std::string out;
  char cell[4];
  for (size_t i = 0; i < bytes.size(); ++i) {
    std::snprintf(cell, sizeof cell, "%02X", bytes[i]);
    if (i != 0) out += ' ';
    out += cell;
  }
  return out;
}

}  // namespace calder::test
