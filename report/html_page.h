#pragma once

#include <string>

#include "report/fleet_summary.h"

namespace calder::report {

// The summary as one page that needs nothing but itself: styles inline,
// charts as inline SVG, no scripts, no links out.
std::string HtmlPage(const FleetSummary& summary);

}  // namespace calder::report
