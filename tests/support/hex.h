#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace calder::test {

// "FF 57 00" <-> bytes, so frames in tests read like the protocol tables.
std::vector<uint8_t> Hex(const std::string& text);
std::string ToHex(const std::vector<uint8_t>& bytes);

}  // namespace calder::test
