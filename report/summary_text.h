#pragma once

#include <string>

#include "report/fleet_summary.h"

namespace calder::report {

// "94.8" for a percentage; "n/a" without a denominator.
std::string Percent(uint64_t part, uint64_t whole);
// "41.6" for 41 650 ms.
std::string SecondsText(int64_t ms);
// The rate of a target version's conclusive runs, as Percent.
std::string VersionRate(const VersionStats& v);

// The plain-text summary, the report's default output.
std::string SummaryText(const FleetSummary& summary);

}  // namespace calder::report
