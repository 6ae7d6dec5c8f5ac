#include "check/rsa.h"

#include "check/montgomery.h"

namespace calder::check {

namespace {

constexpr size_t kMinKeyBits = 2048;
constexpr size_t kMaxKeyBits = 4096;

// DigestInfo { sha256, NULL } before the digest itself.
const std::vector<uint8_t> kSha256DigestInfo = {0x30, 0x31, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                                0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};

std::vector<uint8_t> Stripped(const std::vector<uint8_t>& bytes) {
  size_t first = 0;
  while (first < bytes.size() && bytes[first] == 0) ++first;
  return std::vector<uint8_t>(bytes.begin() + static_cast<std::ptrdiff_t>(first), bytes.end());
}

size_t Bits(const std::vector<uint8_t>& stripped) {
  if (stripped.empty()) return 0;
  size_t bits = 8 * stripped.size();
  for (uint8_t top = stripped[0]; (top & 0x80) == 0; top = static_cast<uint8_t>(top << 1)) --bits;
  return bits;
}

}  // namespace

bool VerifyRsaSha256(const std::vector<uint8_t>& modulus, const std::vector<uint8_t>& exponent,
                     const std::array<uint8_t, 32>& digest, const std::vector<uint8_t>& signature,
                     std::string* problem) {
  const std::vector<uint8_t> n = Stripped(modulus);
  const std::vector<uint8_t> e = Stripped(exponent);
  const size_t bits = Bits(n);
  if (bits < kMinKeyBits || bits > kMaxKeyBits) {
    *problem = "its RSA key has " + std::to_string(bits) + " bits, outside 2048 to 4096";
    return false;
  }
  const Montgomery m(n);
  Limbs s;
  // An exponent of 1 would make the signature its own message.
  if (!m.Usable() || e.empty() || (e.back() & 1) == 0 || (e.size() == 1 && e[0] == 1) || e.size() > n.size()) {
    *problem = "its RSA key is malformed";
    return false;
  }
  if (signature.size() != n.size() || !m.Read(signature.data(), signature.size(), &s)) {
    *problem = "its RSA signature does not fit the key";
    return false;
  }
  // 00 01 FF .. FF 00 DigestInfo digest, as long as the modulus.
  std::vector<uint8_t> expected(n.size() - kSha256DigestInfo.size() - digest.size(), 0xFF);
  expected[0] = 0x00;
  expected[1] = 0x01;
  expected.back() = 0x00;
  expected.insert(expected.end(), kSha256DigestInfo.begin(), kSha256DigestInfo.end());
  expected.insert(expected.end(), digest.begin(), digest.end());
  if (m.Bytes(m.Pow(m.To(s), e), n.size()) != expected) {
    *problem = "its RSA signature does not verify with the signing certificate's key";
    return false;
  }
  return true;
}

}  // namespace calder::check
