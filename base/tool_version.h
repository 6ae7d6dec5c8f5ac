#pragma once

// The tool version. The log line, calder-check, calder-report and the version
// resources of calder.exe and calder-check.exe take it from here; the build
// derives the resources' numeric form (2026.4.22.1) from this string.
#define CALDER_TOOL_VERSION "20260422-01"

#ifndef RC_INVOKED
namespace calder {
inline constexpr char kToolVersion[] = CALDER_TOOL_VERSION;
}  // namespace calder
#endif
