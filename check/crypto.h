#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// calder-check's one door to mbedTLS: digests, certificates, signatures and
// chains. The PE walk and the Authenticode structure stay outside it.
namespace calder::check {

using Bytes = std::vector<uint8_t>;

enum class DigestKind { kUnsupported, kSha256, kSha384, kSha512 };

// By its OID's content bytes; kUnsupported for anything else.
DigestKind DigestNamed(const Bytes& oid);
const char* DigestName(DigestKind kind);  // "SHA-256"

class Digest {
 public:
  explicit Digest(DigestKind kind);
  ~Digest();
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;
  void Update(const uint8_t* data, size_t size);
  Bytes Finish();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

Bytes DigestOf(DigestKind kind, const Bytes& bytes);

// An X.509 certificate as mbedTLS reads it, DER from end to end. Names and
// serial numbers stay DER and compare as bytes.
struct Certificate {
  Bytes der;
  Bytes serial;           // the INTEGER's content
  Bytes issuer, subject;  // the whole Name elements
  std::string subjectText;
  std::string keyText;  // "RSA-3072", "ECDSA P-384"
  int64_t notBefore = 0, notAfter = 0;  // seconds since 1970, UTC
};

// False, with why, when the bytes are not one certificate mbedTLS reads.
bool ReadCertificate(const uint8_t* der, size_t size, Certificate* certificate, std::string* problem = nullptr);

// A signature by the certificate's key over `hash` (made with `digest`),
// under the algorithm its OID names: RSA PKCS#1 v1.5 of 2048 to 4096 bits,
// or ECDSA on P-256 or P-384, either named as the key's algorithm or as the
// signature's with its digest. False, with why, otherwise.
bool VerifySignature(const Certificate& certificate, const Bytes& algorithm, DigestKind digest, const Bytes& hash,
                     const Bytes& signature, std::string* problem);

// What a chain showed: the subjects above the signer, in order, as far as
// it was built.
struct ChainResult {
  bool trusted = false;
  std::string problem;
  std::vector<std::string> issuers;
};

// The extended key usages a signer may need.
enum class KeyUse { kCodeSigning, kTimeStamping };

// Whether `signer` holds at `time`: its usage (when it names usages) and
// validity; and, when `trusted` holds any, whether it chains to one of them
// through certificates of `pool` that may issue (CA, path length, key usage),
// each valid at `time` and verifying the one below.
ChainResult VerifyChain(const Certificate& signer, const std::vector<Certificate>& pool,
                        const std::vector<Certificate>& trusted, KeyUse usage, int64_t time);

// "2026-04-22 10:15:00 UTC"
std::string TimeText(int64_t time);
// Days since 1970-01-01 of a civil date; with the time of day, seconds.
int64_t SecondsOf(int year, int month, int day, int hour, int minute, int second);

}  // namespace calder::check
