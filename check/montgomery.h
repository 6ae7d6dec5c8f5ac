#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace calder::check {

// A number as little-endian 32-bit limbs, as many as its modulus has.
using Limbs = std::vector<uint32_t>;

// Arithmetic modulo an odd number in Montgomery form, enough to verify
// RSA and ECDSA signatures. Not constant time: it only ever sees public data.
class Montgomery {
 public:
  // The modulus as big-endian bytes; it must be odd and above 1 (see Usable).
  explicit Montgomery(const std::vector<uint8_t>& modulus);
  bool Usable() const { return usable_; }
  size_t Size() const { return m_.size(); }

  // Big-endian bytes as limbs; false when the value is not below the modulus.
  bool Read(const uint8_t* bytes, size_t size, Limbs* out) const;
  // Big-endian bytes as wide as the modulus, reduced; the value must be
  // below twice the modulus.
  Limbs ReadReduced(const uint8_t* bytes, size_t size) const;
  // A value in Montgomery form back as `size` big-endian bytes.
  std::vector<uint8_t> Bytes(const Limbs& montgomery, size_t size) const;

  Limbs To(const Limbs& plain) const { return Mul(plain, rr_); }
  Limbs From(const Limbs& montgomery) const;
  Limbs One() const { return From(rr_); }  // R mod m, the Montgomery form of 1
  Limbs Mul(const Limbs& a, const Limbs& b) const;
  Limbs Add(const Limbs& a, const Limbs& b) const;
  Limbs Sub(const Limbs& a, const Limbs& b) const;
  // base^exponent, base in Montgomery form, exponent as big-endian bytes.
  Limbs Pow(const Limbs& base, const std::vector<uint8_t>& exponent) const;

 private:
  void Double(Limbs* a) const;

  Limbs m_;
  Limbs rr_;  // R^2 mod m, R = 2^(32 * limbs)
  uint32_t inverse_ = 0;  // -m^-1 mod 2^32
  bool usable_ = false;
};

bool IsZero(const Limbs& a);

}  // namespace calder::check
