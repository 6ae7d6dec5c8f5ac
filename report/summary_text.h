#pragma once

#include <string>
#include <string_view>

#include "report/fleet_summary.h"

namespace calder::report {

// "94.8" for a percentage; "n/a" without a denominator.
std::string Percent(uint64_t part, uint64_t whole);
// "41.6" for 41 650 ms.
std::string SecondsText(int64_t ms);
// The fleet's success rate as it is banded and gated: "95.0".
std::string RateText(const FleetSummary& summary);
// Text from logs and file names for a terminal: control characters (C0,
// DEL and C1 as UTF-8) become "\x1b" style escapes, all else stays.
std::string ControlsEscaped(std::string_view text);
// The rate of a target version's conclusive runs, as Percent.
std::string VersionRate(const VersionStats& v);

// The plain-text summary, the report's default output.
std::string SummaryText(const FleetSummary& summary);

}  // namespace calder::report
