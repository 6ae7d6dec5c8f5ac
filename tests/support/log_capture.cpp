#include "tests/support/log_capture.h"

#include <algorithm>
#include <mutex>

#include "base/log.h"

namespace calder::test {
namespace {

std::mutex g_mutex;
std::vector<LogEntry> g_entries;
bool g_capturing = false;

class Dispatch : public el::LogDispatchCallback {
 protected:
  void handle(const el::LogDispatchData* data) override {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_capturing) return;
    const el::LogMessage* msg = data->logMessage();
    const std::string& file = msg->file();
    g_entries.push_back({el::LevelHelper::convertToString(msg->level()),
                         file.substr(file.find_last_of("\\/") + 1), msg->message()});
  }
};

void Capture(bool on) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_entries.clear();
  g_capturing = on;
}

}  // namespace

LogCapture::LogCapture() {
  el::Helpers::installLogDispatchCallback<Dispatch>("calder-test-capture");
  Capture(true);
}

LogCapture::~LogCapture() { Capture(false); }

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

void LogCapture::Clear() { Capture(true); }

}  // namespace calder::test
