#pragma once

namespace calder::check {

// Sends the process's standard output to the null device while it lives:
// the touchpad interpreter prints its banner and progress there, and the
// checker's standard output is its report.
class ConsoleSilencer {
 public:
  ConsoleSilencer();
  ~ConsoleSilencer();
  ConsoleSilencer(const ConsoleSilencer&) = delete;
  ConsoleSilencer& operator=(const ConsoleSilencer&) = delete;

 private:
  int saved_ = -1;
};

}  // namespace calder::check
