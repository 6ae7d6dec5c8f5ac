#include "driver/logging.h"

#include <cstdio>
#include <cstring>

#include "driver/folder_trust.h"
#include "base/log.h"
#include "platform/environment.h"
#include "platform/file_system.h"
#include "platform/process_info.h"

namespace calder {

const char kLogFolder[] = "C:\\ProgramData\\KORU\\KoruDeviceService\\log";
const char kTrustRoot[] = "C:\\ProgramData\\KORU";
const char kLogFormat[] = "%datetime{%Y-%M-%d %H:%m:%s.%g} %level %fbase %line: %msg";

namespace {

// A folder at or under the trust root that may not be created in: nothing
// is made through a link or inside a folder an ordinary user controls.
bool RefusedUnderRoot(FileSystem& files, const char* prefix) {
  return IsAtOrUnder(kTrustRoot, prefix) && !CheckFolder(files, prefix).trusted;
}

}  // namespace

TrustVerdict CheckChain(const std::string& folder) {
  if (Env().files == nullptr) return {false, folder, "cannot be inspected"};
  return CheckFolderChain(*Env().files, kTrustRoot, folder);
}

void LogRefusal(const char* what, const TrustVerdict& verdict) {
  LOG(ERROR) << what << " refused: " << verdict.path << " " << verdict.reason;
}

void CreateFolderChain(const std::string& folder) {
  char buffer[kPathBuffer] = {};
  std::strncpy(buffer, folder.c_str(), kPathBuffer - 1);
  FileSystem* files = Env().files;
  if (files == nullptr) return;
  for (char* p = buffer + 1; *p != '\0'; ++p) {
    if (*p != '\\') continue;
    *p = '\0';
    files->MakeFolder(buffer);
    const bool refused = RefusedUnderRoot(*files, buffer);
    *p = '\\';
    if (refused) return;
  }
  files->MakeFolder(buffer);
}

std::string LogFilePath(const std::string& folder, const LocalTime& t, unsigned long pid) {
  char buffer[kPathBuffer];
  std::snprintf(buffer, sizeof buffer, "%s\\Calder_%04d-%02d-%02d_%02d%02d%02d_%lu.log",
                folder.c_str(), t.year, t.month, t.day, t.hour, t.minute, t.second, pid);
  return buffer;
}

void BuildLoggerConfiguration(const std::string& logFile, el::Configurations* config) {
  config->setGlobally(el::ConfigurationType::Format, kLogFormat);
  config->setGlobally(el::ConfigurationType::Filename, logFile);
  config->setGlobally(el::ConfigurationType::ToFile, "true");
  config->setGlobally(el::ConfigurationType::ToStandardOutput, "true");
  config->setGlobally(el::ConfigurationType::LogFlushThreshold, "1");
}

void QuietDefaultLogger(bool enabled) {
  el::Configurations config;
  config.setGlobally(el::ConfigurationType::Enabled, enabled ? "true" : "false");
  config.setGlobally(el::ConfigurationType::ToFile, "false");
  config.setGlobally(el::ConfigurationType::ToStandardOutput, "false");
  el::Loggers::reconfigureLogger(el::Loggers::getLogger("default", true), config);
  el::Loggers::addFlag(el::LoggingFlag::DisableApplicationAbortOnFatalLog);
}

void InitLogging() {
  CreateFolderChain(kLogFolder);
  const TrustVerdict verdict = CheckChain(kLogFolder);
  LocalTime now;
  unsigned long pid = 0;
  if (ProcessInfo* process = Env().process) {
    now = process->Now();
    pid = process->ProcessId();
  }
  el::Configurations config;
  if (verdict.trusted) {
    BuildLoggerConfiguration(LogFilePath(kLogFolder, now, pid), &config);
  } else {
    // The library opens whatever file is named, even with ToFile off: name
    // its default, the null device.
    config.setToDefault();
    BuildLoggerConfiguration(config.get(el::Level::Global, el::ConfigurationType::Filename)->value(),
                             &config);
    config.setGlobally(el::ConfigurationType::ToFile, "false");
  }
  el::Logger* logger = el::Loggers::getLogger("default", true);
  el::Loggers::reconfigureLogger(logger, config);
  el::Loggers::addFlag(el::LoggingFlag::DisableApplicationAbortOnFatalLog);
  if (!verdict.trusted) LogRefusal("log file", verdict);
}

}  // namespace calder
