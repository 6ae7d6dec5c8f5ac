#pragma once

#include <string>
#include <string_view>

#include "report/run_record.h"

namespace calder::report {

constexpr int kRecordSchema = 1;

// One NDJSON line (with its line end) for a run's record.
void AppendRecordJson(const RunRecord& record, std::string_view file, std::string* out);

// Reads back a line of that output (shards triaged elsewhere); false for
// anything that is not such a record.
bool ParseRecordJson(std::string_view line, RunRecord* record, std::string* file);

}  // namespace calder::report
