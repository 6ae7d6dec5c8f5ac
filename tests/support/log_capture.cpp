#include "tests/support/log_capture.h"

#include <algorithm>
#include <mutex>

#include "base/log.h"

namespace calder::test {
namespace {

std::mutex g_mutex;
std::vector<LogEntry> g_entries;
bool g_capturing = false;

std::string BaseName(const std::string& path) {
  const size_t slash = path.find_last_of("\\/");
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

class Dispatch : public el::LogDispatchCallback {
 protected:
  void handle(const el::LogDispatchData* data) override {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_capturing) return;
    const el::LogMessage* msg = data->logMessage();
    g_entries.push_back({el::LevelHelper::convertToString(msg->level()), BaseName(msg->file()),
                         msg->message()});
  }
};

constexpr char kDispatchId[] = "calder-test-capture";

}  // namespace

LogCapture::LogCapture() {
  el::Helpers::installLogDispatchCallback<Dispatch>(kDispatchId);
  std::lock_guard<std::mutex> lock(g_mutex);
  g_entries.clear();
  g_capturing = true;
}

LogCapture::~LogCapture() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_capturing = false;
  g_entries.clear();
}

const std::vector<LogEntry>& LogCapture::entries() const { return g_entries; }

std::vector<std::string> LogCapture::Messages() const {
  std::vector<std::string> out;
  for (const LogEntry& e : g_entries) out.push_back(e.message);
  return out;
}

std::vector<std::string> LogCapture::Lines() const {
  std::vector<std::string> out;
  for (const LogEntry& e : g_entries) out.push_back(e.level + " " + e.file + ": " + e.message);
  return out;
}

bool LogCapture::Contains(const std::string& message) const {
  const std::vector<std::string> all = Messages();
  return std::find(all.begin(), all.end(), message) != all.end();
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_entries.clear();
}

void QuietDefaultLogger() {
  el::Configurations config;
  config.setGlobally(el::ConfigurationType::ToFile, "false");
  config.setGlobally(el::ConfigurationType::ToStandardOutput, "false");
  el::Loggers::reconfigureLogger(el::Loggers::getLogger("default", true), config);
  el::Loggers::addFlag(el::LoggingFlag::DisableApplicationAbortOnFatalLog);
}

}  // namespace calder::test
