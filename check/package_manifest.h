#pragma once

#include <set>
#include <string>
#include <vector>

#include "check/package_report.h"

namespace calder::check {

extern const char kSumsFile[];
extern const char kSbomFile[];

// The manifests' contents as the package carries them; a manifest that is
// absent has no text.
struct Manifests {
  const std::string* sums = nullptr;
  const std::string* sbom = nullptr;
};

// Compares SHA256SUMS and the CycloneDX SBOM with the shipped files: every
// listed file must be there with the listed SHA-256, and every shipped file
// must be listed by at least one of them. *listedInBoth, when given, gets
// the files both list with the SHA-256 they have.
std::vector<Finding> CheckManifests(const Manifests& manifests, const std::vector<ShippedFile>& files,
                                    std::set<std::string>* listedInBoth = nullptr);

}  // namespace calder::check
