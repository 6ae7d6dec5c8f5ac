#pragma once

#include <string>

#include "sim/force_sensor.h"

namespace calder::sim {

// A scenario: "key=value" lines ('#' starts a comment) that set faults and
// the version, e.g. "open_result=7", "version=1.0.2.3" or "version_offset=16"
// (the application reports the flash bytes there). False, with the
// offending line in *error, on an unknown key or a bad value.
bool ApplyScenario(const std::string& text, ForceSensor* sensor, std::string* error);

// The sensor's state as "key=value" lines (mode, version and what it saw),
// for tests to inspect; the flash is kept apart as raw bytes.
std::string FormatState(const ForceSensor& sensor);
// Restores mode and version from FormatState's text; false if unreadable.
bool RestoreState(const std::string& text, ForceSensor* sensor);

}  // namespace calder::sim
