#include "check/p256.h"

#include "check/montgomery.h"

namespace calder::check {

namespace {

using Bytes = std::vector<uint8_t>;

// The curve y^2 = x^3 - 3x + b over p, its base point G of prime order n.
const Bytes kP = {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                  0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
const Bytes kN = {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                  0xBC, 0xE6, 0xFA, 0xAD, 0xA7, 0x17, 0x9E, 0x84, 0xF3, 0xB9, 0xCA, 0xC2, 0xFC, 0x63, 0x25, 0x51};
const Bytes kB = {0x5A, 0xC6, 0x35, 0xD8, 0xAA, 0x3A, 0x93, 0xE7, 0xB3, 0xEB, 0xBD, 0x55, 0x76, 0x98, 0x86, 0xBC,
                  0x65, 0x1D, 0x06, 0xB0, 0xCC, 0x53, 0xB0, 0xF6, 0x3B, 0xCE, 0x3C, 0x3E, 0x27, 0xD2, 0x60, 0x4B};
const Bytes kGx = {0x6B, 0x17, 0xD1, 0xF2, 0xE1, 0x2C, 0x42, 0x47, 0xF8, 0xBC, 0xE6, 0xE5, 0x63, 0xA4, 0x40, 0xF2,
                   0x77, 0x03, 0x7D, 0x81, 0x2D, 0xEB, 0x33, 0xA0, 0xF4, 0xA1, 0x39, 0x45, 0xD8, 0x98, 0xC2, 0x96};
const Bytes kGy = {0x4F, 0xE3, 0x42, 0xE2, 0xFE, 0x1A, 0x7F, 0x9B, 0x8E, 0xE7, 0xEB, 0x4A, 0x7C, 0x0F, 0x9E, 0x16,
                   0x2B, 0xCE, 0x33, 0x57, 0x6B, 0x31, 0x5E, 0xCE, 0xCB, 0xB6, 0x40, 0x68, 0x37, 0xBF, 0x51, 0xF5};
constexpr size_t kSize = 32;

Bytes MinusTwo(Bytes value) {
  for (size_t i = value.size(); i-- > 0;) {
    const int v = value[i] - (i == value.size() - 1 ? 2 : 1);
    value[i] = static_cast<uint8_t>(v);
    if (v >= 0) break;
  }
  return value;
}

// Jacobian coordinates in Montgomery form: (X / Z^2, Y / Z^3); Z = 0 is the
// point at infinity.
struct Point {
  Limbs x, y, z;
};

class Curve {
 public:
  Curve() : f_(kP) {}

  const Montgomery& Field() const { return f_; }

  // A point from affine coordinates below p, in Montgomery form.
  Point Affine(const Limbs& x, const Limbs& y) const { return {f_.To(x), f_.To(y), f_.One()}; }

  bool OnCurve(const Point& p) const {
    Limbs b;
    f_.Read(kB.data(), kB.size(), &b);
    const Limbs x3 = f_.Mul(f_.Mul(p.x, p.x), p.x);
    const Limbs threeX = f_.Add(f_.Add(p.x, p.x), p.x);
    return f_.Mul(p.y, p.y) == f_.Add(f_.Sub(x3, threeX), f_.To(b));
  }

  Point Double(const Point& p) const {
    if (IsZero(p.z) || IsZero(p.y)) return Infinity();
    const Limbs delta = f_.Mul(p.z, p.z);
    const Limbs gamma = f_.Mul(p.y, p.y);
    const Limbs beta = f_.Mul(p.x, gamma);
    const Limbs t = f_.Mul(f_.Sub(p.x, delta), f_.Add(p.x, delta));
    const Limbs alpha = f_.Add(f_.Add(t, t), t);
    const Limbs fourBeta = Times(beta, 4);
    Point out;
    out.x = f_.Sub(f_.Mul(alpha, alpha), f_.Add(fourBeta, fourBeta));
    const Limbs yz = f_.Add(p.y, p.z);
    out.z = f_.Sub(f_.Sub(f_.Mul(yz, yz), gamma), delta);
    out.y = f_.Sub(f_.Mul(alpha, f_.Sub(fourBeta, out.x)), Times(f_.Mul(gamma, gamma), 8));
    return out;
  }

  Point Add(const Point& p, const Point& q) const {
    if (IsZero(p.z)) return q;
    if (IsZero(q.z)) return p;
    const Limbs pz2 = f_.Mul(p.z, p.z), qz2 = f_.Mul(q.z, q.z);
    const Limbs u1 = f_.Mul(p.x, qz2), u2 = f_.Mul(q.x, pz2);
    const Limbs s1 = f_.Mul(p.y, f_.Mul(qz2, q.z)), s2 = f_.Mul(q.y, f_.Mul(pz2, p.z));
    const Limbs h = f_.Sub(u2, u1), r = f_.Sub(s2, s1);
    if (IsZero(h)) return IsZero(r) ? Double(p) : Infinity();
    const Limbs h2 = f_.Mul(h, h), h3 = f_.Mul(h2, h), u1h2 = f_.Mul(u1, h2);
    Point out;
    out.x = f_.Sub(f_.Sub(f_.Mul(r, r), h3), f_.Add(u1h2, u1h2));
    out.y = f_.Sub(f_.Mul(r, f_.Sub(u1h2, out.x)), f_.Mul(s1, h3));
    out.z = f_.Mul(f_.Mul(p.z, q.z), h);
    return out;
  }

  // a * P + b * Q, both scalars as big-endian bytes, one doubling per bit.
  Point Combine(const Bytes& a, const Point& p, const Bytes& b, const Point& q) const {
    const Point both = Add(p, q);
    Point out = Infinity();
    for (size_t i = 0; i < 8 * kSize; ++i) {
      out = Double(out);
      const bool inA = (a[i / 8] >> (7 - i % 8)) & 1, inB = (b[i / 8] >> (7 - i % 8)) & 1;
      if (inA || inB) out = Add(out, inA && inB ? both : inA ? p : q);
    }
    return out;
  }

  // The affine x as plain big-endian bytes.
  Bytes AffineX(const Point& p) const {
    const Limbs zInverse = f_.Pow(p.z, MinusTwo(kP));
    return f_.Bytes(f_.Mul(p.x, f_.Mul(zInverse, zInverse)), kSize);
  }

 private:
  Point Infinity() const { return {f_.One(), f_.One(), Limbs(f_.Size(), 0)}; }
  Limbs Times(const Limbs& a, int k) const {
    Limbs out = a;
    for (int i = 1; i < k; i *= 2) out = f_.Add(out, out);
    return out;
  }

  Montgomery f_;
};

}  // namespace

bool VerifyP256Sha256(const Bytes& point, const std::array<uint8_t, 32>& digest, const Bytes& r, const Bytes& s,
                      std::string* problem) {
  const Curve curve;
  const Montgomery& field = curve.Field();
  const Montgomery order(kN);
  Limbs x, y, rl, sl;
  if (point.size() != 1 + 2 * kSize || point[0] != 0x04 || !field.Read(point.data() + 1, kSize, &x) ||
      !field.Read(point.data() + 1 + kSize, kSize, &y) || !curve.OnCurve(curve.Affine(x, y))) {
    *problem = "its key is not an uncompressed point of P-256";
    return false;
  }
  if (!order.Read(r.data(), r.size(), &rl) || !order.Read(s.data(), s.size(), &sl) || IsZero(rl) || IsZero(sl)) {
    *problem = "its ECDSA signature lies outside the curve's order";
    return false;
  }
  // The digest and x are as wide as n, so below 2n: reducing them takes one subtraction.
  const Limbs e = order.ReadReduced(digest.data(), digest.size());
  // u1 = e / s, u2 = r / s mod n.
  const Limbs sInverse = order.Pow(order.To(sl), MinusTwo(kN));
  const Bytes u1 = order.Bytes(order.Mul(order.To(e), sInverse), kSize);
  const Bytes u2 = order.Bytes(order.Mul(order.To(rl), sInverse), kSize);
  Limbs gx, gy;
  field.Read(kGx.data(), kSize, &gx);
  field.Read(kGy.data(), kSize, &gy);
  const Point sum = curve.Combine(u1, curve.Affine(gx, gy), u2, curve.Affine(x, y));
  if (IsZero(sum.z) || order.ReadReduced(curve.AffineX(sum).data(), kSize) != rl) {
    *problem = "its ECDSA signature does not verify with the signing certificate's key";
    return false;
  }
  return true;
}

}  // namespace calder::check
