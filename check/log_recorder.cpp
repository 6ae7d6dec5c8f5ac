#include "check/log_recorder.h"

#include "base/log.h"
#include "driver/logging.h"

namespace calder::check {

namespace {

std::vector<std::string> g_lines;
bool g_recording = false;
el::Configurations g_saved;  // the logger's settings before recording
constexpr char kDispatchId[] = "calder-check-recorder";

std::string BaseName(const std::string& path) {
  const size_t slash = path.find_last_of("\\/");
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

class Dispatch : public el::LogDispatchCallback {
 protected:
  void handle(const el::LogDispatchData* data) override {
    if (!g_recording) return;
    const el::LogMessage* m = data->logMessage();
    g_lines.push_back(std::string(el::LevelHelper::convertToString(m->level())) + " " +
                      BaseName(m->file()) + " " + std::to_string(m->line()) + ": " + m->message());
  }
};

}  // namespace

void SilenceProgramLog() { QuietDefaultLogger(false); }

LogRecorder::LogRecorder() {
  g_saved = *el::Loggers::getLogger("default", true)->configurations();
  el::Helpers::installLogDispatchCallback<Dispatch>(kDispatchId);
  g_lines.clear();
  g_recording = true;
  QuietDefaultLogger();
}

LogRecorder::~LogRecorder() {
  g_recording = false;
  el::Loggers::reconfigureLogger(el::Loggers::getLogger("default", true), g_saved);
}

std::vector<std::string> LogRecorder::Lines() const { return g_lines; }

}  // namespace calder::check
