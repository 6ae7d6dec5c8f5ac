#include "check/montgomery.h"

namespace calder::check {

namespace {

// a < b, both of one length.
bool Less(const Limbs& a, const Limbs& b) {
  for (size_t i = a.size(); i-- > 0;) {
    if (a[i] != b[i]) return a[i] < b[i];
  }
  return false;
}

// a -= b over a's length; the borrow out.
uint32_t SubtractInPlace(uint32_t* a, const Limbs& b) {
  uint64_t borrow = 0;
  for (size_t i = 0; i < b.size(); ++i) {
    const uint64_t d = uint64_t{a[i]} - b[i] - borrow;
    a[i] = static_cast<uint32_t>(d);
    borrow = d >> 63;
  }
  return static_cast<uint32_t>(borrow);
}

Limbs FromBytes(const uint8_t* bytes, size_t size) {
  Limbs out((size + 3) / 4, 0);
  for (size_t i = 0; i < size; ++i) out[i / 4] |= uint32_t{bytes[size - 1 - i]} << (8 * (i % 4));
  return out;
}

}  // namespace

bool IsZero(const Limbs& a) {
  for (const uint32_t limb : a) {
    if (limb != 0) return false;
  }
  return true;
}

Montgomery::Montgomery(const std::vector<uint8_t>& modulus) : m_(FromBytes(modulus.data(), modulus.size())) {
  while (!m_.empty() && m_.back() == 0) m_.pop_back();
  usable_ = !m_.empty() && (m_[0] & 1) != 0 && !(m_.size() == 1 && m_[0] == 1);
  if (!usable_) return;
  // Newton's iteration doubles the correct low bits each step: 5 steps give 32.
  uint32_t inverse = 1;
  for (int i = 0; i < 5; ++i) inverse *= 2 - m_[0] * inverse;
  inverse_ = 0 - inverse;
  // R mod m from m's top bit doubled up to R; times 2^limbs by doubling; then
  // five Montgomery squarings, each doubling the exponent: R * 2^(32 * limbs) = R^2.
  rr_.assign(m_.size(), 0);
  size_t top = 32 * m_.size() - 1;
  while (((m_.back() >> (top % 32)) & 1) == 0) --top;
  rr_.back() = uint32_t{1} << (top % 32);
  for (size_t bit = top; bit < 32 * m_.size() + m_.size(); ++bit) Double(&rr_);
  for (int i = 0; i < 5; ++i) rr_ = Mul(rr_, rr_);
}

void Montgomery::Double(Limbs* a) const {
  uint32_t carry = 0;
  for (uint32_t& limb : *a) {
    const uint32_t top = limb >> 31;
    limb = limb << 1 | carry;
    carry = top;
  }
  if (carry != 0 || !Less(*a, m_)) SubtractInPlace(a->data(), m_);
}

bool Montgomery::Read(const uint8_t* bytes, size_t size, Limbs* out) const {
  while (size > 0 && bytes[0] == 0) ++bytes, --size;
  if (size > 4 * m_.size()) return false;
  *out = FromBytes(bytes, size);
  out->resize(m_.size(), 0);
  return Less(*out, m_);
}

Limbs Montgomery::ReadReduced(const uint8_t* bytes, size_t size) const {
  Limbs out;
  if (!Read(bytes, size, &out) && out.size() == m_.size()) SubtractInPlace(out.data(), m_);
  out.resize(m_.size(), 0);
  return out;
}

std::vector<uint8_t> Montgomery::Bytes(const Limbs& montgomery, size_t size) const {
  const Limbs plain = From(montgomery);
  std::vector<uint8_t> out(size, 0);
  for (size_t i = 0; i < size && i / 4 < plain.size(); ++i) {
    out[size - 1 - i] = static_cast<uint8_t>(plain[i / 4] >> (8 * (i % 4)));
  }
  return out;
}

Limbs Montgomery::From(const Limbs& montgomery) const {
  Limbs one(m_.size(), 0);
  one[0] = 1;
  return Mul(montgomery, one);
}

// Coarsely integrated operand scanning: a * b / R mod m, one limb of b at a time.
Limbs Montgomery::Mul(const Limbs& a, const Limbs& b) const {
  const size_t n = m_.size();
  std::vector<uint32_t> t(n + 2, 0);
  for (size_t i = 0; i < n; ++i) {
    uint64_t carry = 0;
    for (size_t j = 0; j < n; ++j) {
      const uint64_t sum = t[j] + uint64_t{a[j]} * b[i] + carry;
      t[j] = static_cast<uint32_t>(sum);
      carry = sum >> 32;
    }
    uint64_t sum = t[n] + carry;
    t[n] = static_cast<uint32_t>(sum);
    t[n + 1] = static_cast<uint32_t>(sum >> 32);
    const uint32_t factor = t[0] * inverse_;
    carry = (t[0] + uint64_t{factor} * m_[0]) >> 32;
    for (size_t j = 1; j < n; ++j) {
      sum = t[j] + uint64_t{factor} * m_[j] + carry;
      t[j - 1] = static_cast<uint32_t>(sum);
      carry = sum >> 32;
    }
    sum = t[n] + carry;
    t[n - 1] = static_cast<uint32_t>(sum);
    t[n] = t[n + 1] + static_cast<uint32_t>(sum >> 32);
  }
  Limbs out(t.begin(), t.begin() + static_cast<std::ptrdiff_t>(n));
  if (t[n] != 0 || !Less(out, m_)) SubtractInPlace(out.data(), m_);
  return out;
}

Limbs Montgomery::Add(const Limbs& a, const Limbs& b) const {
  Limbs out(m_.size());
  uint64_t carry = 0;
  for (size_t i = 0; i < out.size(); ++i) {
    const uint64_t sum = uint64_t{a[i]} + b[i] + carry;
    out[i] = static_cast<uint32_t>(sum);
    carry = sum >> 32;
  }
  if (carry != 0 || !Less(out, m_)) SubtractInPlace(out.data(), m_);
  return out;
}

Limbs Montgomery::Sub(const Limbs& a, const Limbs& b) const {
  Limbs out = a;
  if (SubtractInPlace(out.data(), b) != 0) {
    // Wrapped below zero: adding m back carries out of the top limb.
    uint64_t carry = 0;
    for (size_t i = 0; i < out.size(); ++i) {
      const uint64_t sum = uint64_t{out[i]} + m_[i] + carry;
      out[i] = static_cast<uint32_t>(sum);
      carry = sum >> 32;
    }
  }
  return out;
}

Limbs Montgomery::Pow(const Limbs& base, const std::vector<uint8_t>& exponent) const {
  Limbs result = One();
  for (const uint8_t byte : exponent) {
    for (int bit = 7; bit >= 0; --bit) {
      result = Mul(result, result);
      if ((byte >> bit) & 1) result = Mul(result, base);
    }
  }
  return result;
}

}  // namespace calder::check
