#include "tools/fleet/log_writer.h"

#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "driver/logging.h"

namespace calder::fleet {

namespace {

Clock* g_clock = nullptr;
LocalTime g_start;
std::vector<std::string> g_lines;
constexpr char kDispatchId[] = "calder-fleet-writer";

int64_t DaysFromCivil(int64_t y, int m, int d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void CivilFromDays(int64_t z, int* y, int* m, int* d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  *d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  *m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  *y = static_cast<int>(yoe + era * 400 + (*m <= 2));
}

std::string Two(int v, int width) {
  char text[16];
  std::snprintf(text, sizeof text, "%0*d", width, v);
  return text;
}

std::string ExpandDate(const std::string& format, const Stamp& s) {
  std::string out;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%' || i + 1 == format.size()) {
      out.push_back(format[i]);
      continue;
    }
    switch (format[++i]) {
      case 'Y': out += Two(s.time.year, 4); break;
      case 'M': out += Two(s.time.month, 2); break;
      case 'd': out += Two(s.time.day, 2); break;
      case 'H': out += Two(s.time.hour, 2); break;
      case 'm': out += Two(s.time.minute, 2); break;
      case 's': out += Two(s.time.second, 2); break;
      case 'g': out += Two(s.millis, 3); break;
      default: out.push_back('%'), out.push_back(format[i]);
    }
  }
  return out;
}

class Dispatch : public el::LogDispatchCallback {
 protected:
  void handle(const el::LogDispatchData* data) override {
    if (g_clock == nullptr) return;
    const el::LogMessage* m = data->logMessage();
    const std::string& file = m->file();
    g_lines.push_back(FormatLogLine(After(g_start, g_clock->NowMs()),
                                    el::LevelHelper::convertToString(m->level()),
                                    file.substr(file.find_last_of("\\/") + 1), static_cast<int>(m->line()),
                                    m->message()));
  }
};

}  // namespace

Stamp After(const LocalTime& start, uint64_t ms) {
  const int64_t startSeconds =
      DaysFromCivil(start.year, start.month, start.day) * 86400 + start.hour * 3600 + start.minute * 60 + start.second;
  const int64_t seconds = startSeconds + static_cast<int64_t>(ms / 1000);
  Stamp s;
  CivilFromDays(seconds / 86400, &s.time.year, &s.time.month, &s.time.day);
  s.time.hour = static_cast<int>(seconds % 86400 / 3600);
  s.time.minute = static_cast<int>(seconds % 3600 / 60);
  s.time.second = static_cast<int>(seconds % 60);
  s.millis = static_cast<int>(ms % 1000);
  return s;
}

std::string FormatLogLine(const Stamp& stamp, const std::string& level, const std::string& file, int line,
                          const std::string& message) {
  const std::string format = kLogFormat;
  std::string out;
  for (size_t i = 0; i < format.size();) {
    const auto at = [&](const char* token) { return format.compare(i, std::strlen(token), token) == 0; };
    if (at("%datetime{")) {
      const size_t close = format.find('}', i);
      out += ExpandDate(format.substr(i + 10, close - i - 10), stamp);
      i = close + 1;
    } else if (at("%level")) {
      out += level;
      i += 6;
    } else if (at("%fbase")) {
      out += file;
      i += 6;
    } else if (at("%line")) {
      out += std::to_string(line);
      i += 5;
    } else if (at("%msg")) {
      out += message;
      i += 4;
    } else {
      out.push_back(format[i++]);
    }
  }
  return out;
}

LogWriter::LogWriter(Clock& clock, const LocalTime& start) {
  el::Helpers::installLogDispatchCallback<Dispatch>(kDispatchId);
  g_lines.clear();
  g_start = start;
  g_clock = &clock;
}

LogWriter::~LogWriter() { g_clock = nullptr; }

const std::vector<std::string>& LogWriter::lines() const { return g_lines; }

}  // namespace calder::fleet
