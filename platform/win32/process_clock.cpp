#include "platform/win32/process_clock.h"

#include <windows.h>

#include <atomic>

namespace calder {
namespace {

int64_t Ticks(const FILETIME& time) {  // 100 ns since 1601
  return static_cast<int64_t>(static_cast<uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
}

int64_t CreationTicks() {
  FILETIME created{}, exited{}, kernel{}, user{};
  if (!GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user)) return -1;
  return Ticks(created);
}

}  // namespace

int64_t MicrosecondsSinceProcessStart() {
  static const int64_t created = CreationTicks();
  static std::atomic<int64_t> last{0};
  FILETIME now{};
  GetSystemTimePreciseAsFileTime(&now);
  // Without the creation time every reading is 0: an order, no durations.
  const int64_t since = created < 0 ? 0 : (Ticks(now) - created) / 10;
  int64_t seen = last.load();
  while (since > seen && !last.compare_exchange_weak(seen, since)) {
  }
  return since > seen ? since : seen;
}

}  // namespace calder
