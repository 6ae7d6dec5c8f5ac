#pragma once

#include <cstdint>
#include <vector>

namespace calder {

// Device pacing goes through this seam so tests can run every pause on
// virtual time and assert the exact sequence.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual void Sleep(uint32_t ms) = 0;
  virtual uint64_t NowMs() = 0;
};

// Sleeps advance time at once and are recorded in order.
class VirtualClock : public Clock {
 public:
  void Sleep(uint32_t ms) override;
  uint64_t NowMs() override { return now_; }

  void Advance(uint64_t ms) { now_ += ms; }
  const std::vector<uint32_t>& sleeps() const { return sleeps_; }
  uint64_t TotalSleptMs() const;
  void ClearSleeps() { sleeps_.clear(); }

 private:
  uint64_t now_ = 0;
  std::vector<uint32_t> sleeps_;
};

// Real time on whichever platform the core is built for.
class SteadyClock : public Clock {
 public:
  void Sleep(uint32_t ms) override;
  uint64_t NowMs() override;
};

}  // namespace calder
