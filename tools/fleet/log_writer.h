#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/process_info.h"

namespace calder::fleet {

// A moment of local time with milliseconds.
struct Stamp {
  LocalTime time;
  int millis = 0;
};
// start moved on by ms, across days, months and years.
Stamp After(const LocalTime& start, uint64_t ms);

// One line as the program's logger writes it: kLogFormat expanded.
std::string FormatLogLine(const Stamp& stamp, const std::string& level, const std::string& file, int line,
                          const std::string& message);

// While it lives, every line of the default logger becomes a log file line
// stamped with start + the clock's time. Only one may live at a time.
class LogWriter {
 public:
  LogWriter(Clock& clock, const LocalTime& start);
  ~LogWriter();
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  const std::vector<std::string>& lines() const;
};

}  // namespace calder::fleet
