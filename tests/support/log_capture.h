#pragma once

#include <string>
#include <vector>

namespace calder::test {

struct LogEntry {
  std::string level;  // "INFO", "ERROR", ...
  std::string file;   // source file base name, e.g. "calder.cpp"
  std::string message;
};

// Captures every line of the default logger while it lives. Only one may be
// alive at a time.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<LogEntry>& entries() const;
  std::vector<std::string> Messages() const;
  // "LEVEL file: message" per line, for compact sequence assertions.
  std::vector<std::string> Lines() const;
  bool Contains(const std::string& message) const;
  void Clear();
};

}  // namespace calder::test
