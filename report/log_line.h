#pragma once

#include <cstdint>
#include <string_view>

namespace calder::report {

// One line of calder.exe's log, as its logger writes it:
// "2026-04-22 09:30:15.123 INFO calder.cpp 87: Current version: 20260422-01".
// The views point into the text that was parsed.
struct LogLine {
  std::string_view stamp;    // "2026-04-22 09:30:15.123", the machine's local time
  int64_t millis = 0;        // the stamp as milliseconds since 1970-01-01
  std::string_view level;    // "INFO", "ERROR", ...
  std::string_view file;     // the source file's base name
  std::string_view message;  // without the line end
};

// False for anything else: junk, a line cut off before its message, another
// program's text. A trailing CR (a CR LF file) is not part of the message.
bool ParseLogLine(std::string_view text, LogLine* line);

// "2026-04-22T09:30:15.123" for a parsed stamp.
void IsoStamp(std::string_view stamp, char out[24]);

}  // namespace calder::report
