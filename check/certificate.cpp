#include "check/certificate.h"

#include <algorithm>
#include <iterator>

#include "check/p256.h"
#include "check/rsa.h"

namespace calder::check {

namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kOidRsaKey = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
const Bytes kOidEcKey = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01};
const Bytes kOidP256 = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
const Bytes kOidBasicConstraints = {0x55, 0x1D, 0x13};

// Signature algorithms by OID, and the key each needs. Signers name either
// the key's algorithm or the signature's.
struct SignatureAlgorithm {
  Bytes oid;
  KeyKind key;
};
const SignatureAlgorithm kSignatureAlgorithms[] = {
    {kOidRsaKey, KeyKind::kRsa},
    {{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B}, KeyKind::kRsa},  // sha256WithRSAEncryption
    {kOidEcKey, KeyKind::kP256},
    {{0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02}, KeyKind::kP256},  // ecdsa-with-SHA256
};

// A BIT STRING's bytes; only whole bytes are used here.
bool ReadBits(DerReader* reader, Bytes* bits) {
  DerReader content;
  if (!reader->Enter(kDerBitString, &content) || content.size() == 0 || content.data()[0] != 0) return false;
  bits->assign(content.data() + 1, content.data() + content.size());
  return true;
}

// SubjectPublicKeyInfo: RSA or P-256; any other key reads as unsupported.
bool ReadKey(DerReader info, PublicKey* key) {
  DerReader algorithm, oid, parameters;
  Bytes bits;
  if (!info.Enter(kDerSequence, &algorithm) || !algorithm.Enter(kDerOid, &oid) || !ReadBits(&info, &bits)) {
    return false;
  }
  if (oid.Bytes() == kOidRsaKey) {
    DerReader bitsReader(bits.data(), bits.size()), rsa;
    if (!bitsReader.Enter(kDerSequence, &rsa) || !ReadUnsigned(&rsa, &key->modulus) ||
        !ReadUnsigned(&rsa, &key->exponent)) {
      return false;
    }
    key->kind = KeyKind::kRsa;
  } else if (oid.Bytes() == kOidEcKey && algorithm.Expect(kDerOid, kOidP256)) {
    key->point = bits;
    key->kind = KeyKind::kP256;
  }
  return true;
}

// basicConstraints' cA, false when the extension is absent.
bool ReadIsCa(DerReader tbs) {
  DerReader wrapper, extensions, extension, oid, value, constraints;
  while (tbs.size() > 0 && !tbs.NextIs(kDerExplicit3)) {
    if (!tbs.Skip()) return false;
  }
  if (!tbs.Enter(kDerExplicit3, &wrapper) || !wrapper.Enter(kDerSequence, &extensions)) return false;
  while (extensions.Enter(kDerSequence, &extension)) {
    if (!extension.Enter(kDerOid, &oid) || oid.Bytes() != kOidBasicConstraints) continue;
    extension.Enter(kDerBoolean, &value);  // critical, when given
    if (!extension.Enter(kDerOctetString, &value) || !value.Enter(kDerSequence, &constraints)) return false;
    return constraints.Expect(kDerBoolean, {0xFF});
  }
  return false;
}

}  // namespace

bool ReadUnsigned(DerReader* reader, Bytes* value) {
  DerReader content;
  if (!reader->Enter(kDerInteger, &content) || content.size() == 0 || (content.data()[0] & 0x80) != 0) return false;
  *value = content.Bytes();
  return true;
}

bool ReadCertificate(DerReader der, Certificate* certificate) {
  DerReader outer, whole, tbs, tbsWhole, algorithm, oid, name, skipped, info;
  if (!der.Enter(kDerSequence, &outer, &whole) || der.size() != 0 ||
      !outer.Enter(kDerSequence, &tbs, &tbsWhole) || !outer.Enter(kDerSequence, &algorithm) ||
      !algorithm.Enter(kDerOid, &oid) || !ReadBits(&outer, &certificate->signature) || outer.size() != 0) {
    return false;
  }
  certificate->der = whole.Bytes();
  certificate->tbs = tbsWhole.Bytes();
  certificate->signatureAlgorithm = oid.Bytes();
  tbs.Enter(kDerExplicit0, &skipped);  // the version, when not 1
  if (!ReadUnsigned(&tbs, &certificate->serial) || !tbs.Enter(kDerSequence, &skipped) ||
      !tbs.Enter(kDerSequence, &skipped, &name)) {
    return false;
  }
  certificate->issuer = name.Bytes();
  if (!tbs.Enter(kDerSequence, &skipped) || !tbs.Enter(kDerSequence, &skipped, &name) ||
      !tbs.Enter(kDerSequence, &info) || !ReadKey(info, &certificate->key)) {
    return false;
  }
  certificate->subject = name.Bytes();
  certificate->isCa = ReadIsCa(tbs);
  return true;
}

bool VerifySha256Signature(const PublicKey& key, const Bytes& algorithm, const std::array<uint8_t, 32>& digest,
                           const Bytes& signature, std::string* problem) {
  const bool known = std::any_of(std::begin(kSignatureAlgorithms), std::end(kSignatureAlgorithms),
                                 [&](const SignatureAlgorithm& entry) {
                                   return entry.oid == algorithm && entry.key == key.kind;
                                 });
  if (!known) {
    *problem = key.kind == KeyKind::kUnsupported
                   ? "its key is neither RSA nor ECDSA P-256"
                   : "its signature algorithm is not RSA or ECDSA with SHA-256 for its key";
    return false;
  }
  if (key.kind == KeyKind::kRsa) return VerifyRsaSha256(key.modulus, key.exponent, digest, signature, problem);
  DerReader der(signature.data(), signature.size()), pair;
  Bytes r, s;
  if (!der.Enter(kDerSequence, &pair) || !ReadUnsigned(&pair, &r) || !ReadUnsigned(&pair, &s) || pair.size() != 0) {
    *problem = "its ECDSA signature cannot be read";
    return false;
  }
  return VerifyP256Sha256(key.point, digest, r, s, problem);
}

}  // namespace calder::check
