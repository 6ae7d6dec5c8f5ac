#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace calder::check {

enum class SignatureState { kUnsigned, kValid, kInvalid };

struct Signature {
  SignatureState state = SignatureState::kUnsigned;
  std::string problem;  // why it is invalid, when it is
};

// The Authenticode signature of a PE file: present or not, and whether the
// digest it records is still the file's own. Whom the certificate names and
// whether anyone trusts it are not judged.
Signature CheckSignature(const uint8_t* data, size_t size);

}  // namespace calder::check
