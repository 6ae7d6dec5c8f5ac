#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace calder {

// MAX_PATH, terminator included: the program's path buffers, which cut a
// longer module path.
constexpr size_t kPathBuffer = 260;

struct LocalTime {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

class ProcessInfo {
 public:
  virtual ~ProcessInfo() = default;
  // The running executable's full path, as GetModuleFileNameA / W give it.
  virtual std::string ModulePathA() = 0;
  virtual std::u16string ModulePathW() = 0;
  virtual LocalTime Now() = 0;
  virtual unsigned long ProcessId() = 0;
};

}  // namespace calder
