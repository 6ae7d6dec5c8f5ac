#include <gtest/gtest.h>

#include <chrono>

#include "platform/clock.h"

namespace calder {
namespace {

// Device pauses may run a little long, never short: the clock finishes its
// sleep by yielding up to the deadline.
TEST(SteadyClock, APauseIsNeverShorterThanAsked) {
  SteadyClock clock;
  for (uint32_t ms : {0u, 1u, 2u, 3u, 10u, 1u, 1u}) {
    const auto start = std::chrono::steady_clock::now();
    clock.Sleep(ms);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(ms)) << ms;
  }
  const uint64_t before = clock.NowMs();
  clock.Sleep(5);
  EXPECT_GE(clock.NowMs() - before, 5u);
}

}  // namespace
}  // namespace calder
