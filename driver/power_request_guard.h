#pragma once

#include "platform/power.h"

namespace calder {

// Keeps the display and the system awake for the guard's lifetime.
class PowerRequestGuard {
 public:
  PowerRequestGuard();
  ~PowerRequestGuard();
  PowerRequestGuard(const PowerRequestGuard&) = delete;
  PowerRequestGuard& operator=(const PowerRequestGuard&) = delete;

 private:
  PowerRequests* power_;
  PowerRequestHandle handle_ = kInvalidPowerRequest;
};

}  // namespace calder
