#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "check/certificate.h"

namespace calder::check {

// kUntrusted: the signature holds but its signer chains to no trusted certificate.
enum class SignatureState { kUnsigned, kValid, kInvalid, kUntrusted };

struct Signature {
  SignatureState state = SignatureState::kUnsigned;
  std::string problem;  // why it is invalid or untrusted, when it is
};

// The Authenticode signature of a PE file: present or not; whether the
// digest it records is still the file's own, the signed attributes' digest
// that of the signed content, and the signer's signature over them verifies
// with the signing certificate's key; and, when `trusted` holds any,
// whether that certificate chains to one of them.
Signature CheckSignature(const uint8_t* data, size_t size, const std::vector<Certificate>& trusted = {});

}  // namespace calder::check
