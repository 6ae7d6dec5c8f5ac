#pragma once

#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "sim/protocol_violations.h"

namespace calder::sim {

// Appends what the stand-in's model recorded to the file that
// CALDER_SIM_VIOLATIONS names (standard error without one), so the harness can
// fail a run in which the program broke the protocol. Called after every call
// into the model: a run that is cut short still leaves what it broke.
inline void ReportViolations(const char* standIn) {
  const std::vector<std::string> seen = TakeViolations();
  if (seen.empty()) return;
  wchar_t path[MAX_PATH] = {};
  const DWORD length = GetEnvironmentVariableW(L"CALDER_SIM_VIOLATIONS", path, MAX_PATH);
  std::FILE* file = length > 0 && length < MAX_PATH ? _wfopen(path, L"ab") : nullptr;
  for (const std::string& what : seen) {
    std::fprintf(file != nullptr ? file : stderr, "%s: %s\n", standIn, what.c_str());
  }
  if (file != nullptr) std::fclose(file);
}

}  // namespace calder::sim
