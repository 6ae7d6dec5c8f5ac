#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "report/fleet_summary.h"

namespace calder::report {

struct FleetRead {
  FleetSummary summary;
  uint64_t inputsRead = 0;   // log and record files that could be read
  uint64_t inputsFailed = 0;
};

// Reads every log under the paths (files, folders searched for Calder_*.log,
// .ndjson files of earlier --json output) in one pass on two worker threads.
// With json, writes each run's record to out as it goes; problems with a
// path go to err, one line each.
FleetRead ReadFleet(const std::vector<std::string>& paths, bool json, std::FILE* out, std::FILE* err);

// Whether a file found in a folder is one of calder.exe's logs.
bool IsLogName(const std::string& name);

}  // namespace calder::report
