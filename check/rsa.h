#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace calder::check {

// An RSA PKCS#1 v1.5 signature over a SHA-256 digest, checked with the
// public key (modulus and exponent as big-endian bytes). False, with why,
// when it does not hold or the key is outside 2048 to 4096 bits.
bool VerifyRsaSha256(const std::vector<uint8_t>& modulus, const std::vector<uint8_t>& exponent,
                     const std::array<uint8_t, 32>& digest, const std::vector<uint8_t>& signature,
                     std::string* problem);

}  // namespace calder::check
