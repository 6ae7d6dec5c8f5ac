#pragma once

#include <filesystem>
#include <vector>

#include "check/certificate.h"
#include "check/package_report.h"

namespace calder::check {

struct CheckOptions {
  // A release's rules are errors: our programs signed, the vendor's
  // libraries signed by a trusted signer or vouched for by both manifests,
  // the manifests and the notices present.
  bool release = false;
  // When any, every signer must chain to one of them.
  std::vector<Certificate> trusted;
};

// Every check of a package folder that exists, and the prediction.
PackageReport CheckPackage(const std::filesystem::path& packageDir, const CheckOptions& options = {});

}  // namespace calder::check
