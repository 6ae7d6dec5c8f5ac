#pragma once

#include <string>

#include "driver/folder_trust.h"
#include "platform/process_info.h"

namespace el {
class Configurations;
}

namespace calder {

extern const char kLogFolder[];
extern const char kLogFormat[];
// Everything the program writes lies under this folder; it and every folder
// below it are checked before a write or delete goes through them.
extern const char kTrustRoot[];

// Creates every folder along a backslash-separated path, ignoring failures,
// but stops at a folder under the trust root that may not be created in.
void CreateFolderChain(const std::string& folder);
// The chain from the trust root down to folder, or why it is refused.
TrustVerdict CheckChain(const std::string& folder);
// One ERROR line per refusal, shown as logging.cpp's: what, the refused path
// and why.
void LogRefusal(const char* what, const TrustVerdict& verdict);

// "<folder>\Calder_YYYY-MM-DD_hhmmss_<pid>.log", cut to 259 characters.
std::string LogFilePath(const std::string& folder, const LocalTime& time, unsigned long pid);

// The default logger's settings for one run, applied to every level.
void BuildLoggerConfiguration(const std::string& logFile, el::Configurations* config);

// The default logger with neither file nor standard output: its lines reach
// only the dispatch callbacks (a recorder, a test's capture), or nobody when
// it is disabled. For the programs and tests that run the core off the laptop.
void QuietDefaultLogger(bool enabled = true);

// Logs to standard output only when the log folder's chain is refused, with
// one line saying which folder and why.
void InitLogging();

}  // namespace calder
