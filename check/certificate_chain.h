#pragma once

#include <string>
#include <vector>

#include "check/certificate.h"

namespace calder::check {

// Whether `signer` is one of the trusted certificates or was issued, over at
// most five links, by one: each link a certificate from `pool` or `trusted`
// whose subject is the issuer's name, that may issue certificates and whose
// key verifies the signature. False, with why, otherwise.
bool ChainsToTrusted(const Certificate& signer, const std::vector<Certificate>& pool,
                     const std::vector<Certificate>& trusted, std::string* problem);

}  // namespace calder::check
