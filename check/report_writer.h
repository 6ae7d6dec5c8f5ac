#pragma once

#include <string>

#include "check/package_report.h"

namespace calder::check {

// One JSON object: verdict, findings, files, touchpad, force, prediction; with the
// log, the prediction also carries the run's log lines.
std::string JsonReport(const PackageReport& report, bool withLog);

// A line per finding, then the touchpad file, the force image, the
// prediction and the verdict; with the log, the run's log lines last.
std::string TextReport(const PackageReport& report, bool withLog);

}  // namespace calder::check
