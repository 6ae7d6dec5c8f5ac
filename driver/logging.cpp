#include "driver/logging.h"

#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "platform/environment.h"
#include "platform/file_system.h"

namespace calder {

const char kLogFolder[] = "C:\\ProgramData\\KORU\\KoruDeviceService\\log";
const char kMarkerFolder[] = "C:\\ProgramData\\KORU\\KoruDeviceService";
const char kMarkerFileName[] = "Calder_ProcessPath.txt";
const char kLogFormat[] = "%datetime{%Y-%M-%d %H:%m:%s.%g} %level %fbase %line: %msg";

namespace {
constexpr size_t kPathBuffer = 260;  // MAX_PATH, terminator included
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
    *p = '\\';
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

void InitLogging() {
  CreateFolderChain(kLogFolder);
  LocalTime now;
  unsigned long pid = 0;
  if (ProcessInfo* process = Env().process) {
    now = process->Now();
    pid = process->ProcessId();
  }
  el::Configurations config;
  BuildLoggerConfiguration(LogFilePath(kLogFolder, now, pid), &config);
  el::Logger* logger = el::Loggers::getLogger("default", true);
  el::Loggers::reconfigureLogger(logger, config);
  el::Loggers::addFlag(el::LoggingFlag::DisableApplicationAbortOnFatalLog);
}

std::string MarkerFilePath() { return std::string(kMarkerFolder) + "\\" + kMarkerFileName; }

std::string MarkerFileBytes(const std::u16string& modulePath) {
  std::string bytes;
  bytes.reserve(modulePath.size() * 2);
  for (char16_t unit : modulePath) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

void WriteProcessPathMarker() {
  CreateFolderChain(kMarkerFolder);
  if (Env().process == nullptr || Env().files == nullptr) return;
  std::u16string path = Env().process->ModulePathW();
  if (path.size() >= kPathBuffer) path.resize(kPathBuffer - 1);
  const std::string bytes = MarkerFileBytes(path);
  Env().files->WriteNewFile(MarkerFilePath(), bytes.data(), bytes.size());
}

void DeleteProcessPathMarker() {
  if (Env().files != nullptr) Env().files->RemoveFile(MarkerFilePath());
}

}  // namespace calder
