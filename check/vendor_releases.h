#pragma once

#include <string>
#include <vector>

namespace calder::check {

// A release of one of the vendor's libraries that was tested with
// calder.exe, named by its file and pinned by its SHA-256.
struct VendorRelease {
  std::string file;
  std::string version;
  std::string sha256;  // lower-case hex
};

// The vendor releases this repository vouches for (check/vendor_releases.cpp).
const std::vector<VendorRelease>& TestedVendorReleases();

// The entry for the file of that name (any case) and SHA-256; null when
// none is.
const VendorRelease* FindVendorRelease(const std::vector<VendorRelease>& releases, const std::string& file,
                                       const std::string& sha256);

}  // namespace calder::check
