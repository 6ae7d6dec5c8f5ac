#pragma once

#include <string>
#include <vector>

namespace calder::check {

// Turns the program's default logger off: the checker's own output is the
// report, and the runs it makes on device models must not print.
void SilenceProgramLog();

// While it lives, the default logger's lines are kept, each as the program's
// log would show it without the timestamp: "LEVEL file line: message".
// The logger's own settings come back afterwards.
class LogRecorder {
 public:
  LogRecorder();
  ~LogRecorder();
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;

  std::vector<std::string> Lines() const;
};

}  // namespace calder::check
