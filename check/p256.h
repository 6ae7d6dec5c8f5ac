#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace calder::check {

// An ECDSA signature on curve P-256 over a SHA-256 digest. The key is the
// uncompressed point (04 X Y); r and s are big-endian integers. False, with
// why, when it does not hold or the key is not a point of the curve.
bool VerifyP256Sha256(const std::vector<uint8_t>& point, const std::array<uint8_t, 32>& digest,
                      const std::vector<uint8_t>& r, const std::vector<uint8_t>& s, std::string* problem);

}  // namespace calder::check
