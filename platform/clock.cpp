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
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

uint64_t SteadyClock::NowMs() {
  using namespace std::chrono;
  return static_cast<uint64_t>(
      duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace calder
