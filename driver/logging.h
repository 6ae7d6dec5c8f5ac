#pragma once

#include <string>

#include "platform/process_info.h"

namespace el {
class Configurations;
}

namespace calder {

extern const char kLogFolder[];
extern const char kMarkerFolder[];
extern const char kMarkerFileName[];
extern const char kLogFormat[];

// Creates every folder along a backslash-separated path, ignoring failures.
void CreateFolderChain(const std::string& folder);

// "<folder>\Calder_YYYY-MM-DD_hhmmss_<pid>.log", cut to 259 characters.
std::string LogFilePath(const std::string& folder, const LocalTime& time, unsigned long pid);

// The default logger's settings for one run, applied to every level.
void BuildLoggerConfiguration(const std::string& logFile, el::Configurations* config);

void InitLogging();

std::string MarkerFilePath();
// The executable's path as raw UTF-16LE code units, no BOM, no terminator.
std::string MarkerFileBytes(const std::u16string& modulePath);
void WriteProcessPathMarker();
void DeleteProcessPathMarker();

}  // namespace calder
