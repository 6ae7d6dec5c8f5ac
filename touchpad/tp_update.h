#pragma once

#include <cstdint>

namespace calder {

// The touchpad upgrade command interpreter: 0 for success, 1 for failure.
// Entry 0 is the program name, entry 1 the command, then options and file.
int TPMain(int argc, char* argv[]);

// Passed to btl_upgrade as the record's callbacks.
void TPProgressCallback(int32_t percent, const char* message);
void TPLogCallback(int32_t level, const char* message);

void TPPrintUsage(const char* programName);

}  // namespace calder
