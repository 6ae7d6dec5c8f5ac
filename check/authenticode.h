#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "check/crypto.h"

namespace calder::check {

// kUntrusted: the signature holds but its signer (or its timestamp's
// signer) is not trusted: no chain to a trusted certificate, a certificate
// not valid at the signature's time, or one not made for the use.
enum class SignatureState { kUnsigned, kValid, kInvalid, kUntrusted };

// Who signed, with what, and when the signature was judged.
struct SignatureDetails {
  std::string signer;                // the signing certificate's subject
  std::vector<std::string> issuers;  // upward, as far as the chain was built
  std::string algorithm;             // "RSA-3072 with SHA-384"
  int64_t judgedAt = 0;              // seconds since 1970, UTC
  bool timestamped = false;          // judgedAt is a timestamp's, not the check's time
};

struct Signature {
  SignatureState state = SignatureState::kUnsigned;
  std::string problem;  // why it is invalid or untrusted, when it is
  std::optional<SignatureDetails> details;  // once the signer's signature verified
};

// What a signature is judged against. Without `trusted` any signer is
// accepted; a timestamp's signer must chain to `trusted` or `trustedTsa`
// when either holds any.
struct TrustSettings {
  std::vector<Certificate> trusted;
  std::vector<Certificate> trustedTsa;
  int64_t now = 0;  // the check's time, for a signature without a timestamp
};

// The Authenticode signature of a PE file: present or not; whether the
// digest it records is still the file's own, the signed attributes' digest
// that of the signed content, and the signer's signature over them verifies
// with the signing certificate's key; whether a timestamp it carries holds;
// and whether its signer holds at the timestamp's time (or `now`).
Signature CheckSignature(const uint8_t* data, size_t size, const TrustSettings& trust);

}  // namespace calder::check
