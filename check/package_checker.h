#pragma once

#include <filesystem>

#include "check/package_report.h"

namespace calder::check {

// Every check of a package folder that exists, and the prediction.
PackageReport CheckPackage(const std::filesystem::path& packageDir);

}  // namespace calder::check
