#include "sim/protocol_violations.h"

#include <mutex>
#include <utility>

namespace calder::sim {

namespace {

std::mutex& Lock() {
  static std::mutex lock;
  return lock;
}

std::vector<std::string>& Recorded() {
  static std::vector<std::string> recorded;
  return recorded;
}

}  // namespace

void RecordViolation(const std::string& what) {
  std::lock_guard<std::mutex> hold(Lock());
  Recorded().push_back(what);
}

std::vector<std::string> TakeViolations() {
  std::lock_guard<std::mutex> hold(Lock());
  return std::exchange(Recorded(), {});
}

}  // namespace calder::sim
