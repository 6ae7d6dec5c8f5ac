#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "check/der_reader.h"

namespace calder::check {

enum class KeyKind { kUnsupported, kRsa, kP256 };

struct PublicKey {
  KeyKind kind = KeyKind::kUnsupported;
  std::vector<uint8_t> modulus, exponent;  // RSA
  std::vector<uint8_t> point;              // P-256, uncompressed
};

// An X.509 certificate as far as checking signatures and chains needs it.
// Names and serial numbers stay DER and compare as bytes.
struct Certificate {
  std::vector<uint8_t> der;  // the whole certificate
  std::vector<uint8_t> tbs;  // TBSCertificate, what its issuer signed
  std::vector<uint8_t> serial, issuer, subject;
  PublicKey key;
  bool isCa = false;  // basicConstraints says it may issue certificates
  std::vector<uint8_t> signatureAlgorithm;  // OID content
  std::vector<uint8_t> signature;
};

// False when the bytes are not one certificate, DER from end to end.
bool ReadCertificate(DerReader der, Certificate* certificate);

// The signature over a SHA-256 digest under the algorithm named by its OID
// (RSA PKCS#1 v1.5 or ECDSA, with SHA-256), with the key. False, with why,
// for anything else or when it does not hold.
bool VerifySha256Signature(const PublicKey& key, const std::vector<uint8_t>& algorithm,
                           const std::array<uint8_t, 32>& digest, const std::vector<uint8_t>& signature,
                           std::string* problem);

// An INTEGER's content read as an unsigned number; false when negative.
bool ReadUnsigned(DerReader* reader, std::vector<uint8_t>* value);

}  // namespace calder::check
