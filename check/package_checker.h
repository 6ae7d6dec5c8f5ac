#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <vector>

#include "check/crypto.h"
#include "check/package_report.h"
#include "check/vendor_releases.h"

namespace calder::check {

struct CheckOptions {
  // A release's rules are errors: our programs signed, the vendor's
  // libraries signed by a trusted signer or on the list of tested vendor
  // releases, the manifests and the notices present.
  bool release = false;
  // When any, every signer must chain to one of them.
  std::vector<Certificate> trusted;
  // A timestamp's signer may chain to these as well.
  std::vector<Certificate> trustedTsa;
  // The check's time, seconds since 1970 (UTC): a signature without a
  // timestamp is judged at it. Tests set their own.
  int64_t now = static_cast<int64_t>(std::time(nullptr));
  // The vendor library releases that are vouched for without a signature.
  std::vector<VendorRelease> vendorReleases = TestedVendorReleases();
};

// Every check of a package folder that exists, and the prediction.
PackageReport CheckPackage(const std::filesystem::path& packageDir, const CheckOptions& options = {});

}  // namespace calder::check
