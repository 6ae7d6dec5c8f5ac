#include "platform/clock.h"

#include <chrono>
#include <numeric>
#include <thread>

namespace calder {

void VirtualClock::Sleep(uint32_t ms) {
  sleeps_.push_back(ms);
  now_ += ms;
}

uint64_t VirtualClock::TotalSleptMs() const {
  return std::accumulate(sleeps_.begin(), sleeps_.end(), uint64_t{0});
}

void SteadyClock::Sleep(uint32_t ms) {
  // The kernel wakes a sleeper late by up to a few hundred microseconds, which
  // on thousands of 1-3 ms device pauses adds a few percent: sleep to just
  // short of the deadline, then yield until it has passed. Never shorter.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  constexpr auto kWakeMargin = std::chrono::microseconds(300);
  if (ms > 0) std::this_thread::sleep_until(deadline - kWakeMargin);
  while (std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
}

uint64_t SteadyClock::NowMs() {
  using namespace std::chrono;
  return static_cast<uint64_t>(
      duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace calder
