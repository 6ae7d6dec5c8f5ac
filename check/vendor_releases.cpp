#include "check/vendor_releases.h"

#include "check/package_machine.h"

namespace calder::check {

const std::vector<VendorRelease>& TestedVendorReleases() {
  // One line per tested release: {"btl_upgrade.dll", "VERSION", "SHA-256"}.
  // No release of the vendor's libraries has been tested here yet: until one
  // is, only a signature chaining to a --trust root vouches for them.
  static const std::vector<VendorRelease> releases = {};
  return releases;
}

const VendorRelease* FindVendorRelease(const std::vector<VendorRelease>& releases, const std::string& file,
                                       const std::string& sha256) {
  for (const VendorRelease& release : releases) {
    if (SameNameIgnoringCase(release.file, file) && release.sha256 == sha256) return &release;
  }
  return nullptr;
}

}  // namespace calder::check
