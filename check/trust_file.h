#pragma once

#include <filesystem>
#include <vector>

#include "check/crypto.h"

namespace calder::check {

// The certificates a file given to --trust holds: one or more PEM
// certificates or one DER certificate. False when the file cannot be read
// or any certificate in it cannot be parsed: trust is never guessed.
bool ReadTrustFile(const std::filesystem::path& path, std::vector<Certificate>* certificates);

}  // namespace calder::check
