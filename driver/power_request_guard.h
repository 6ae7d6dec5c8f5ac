#pragma once

#include "platform/power.h"

namespace calder {

// Keeps the display and the system awake for the guard's lifetime; without
// power requests it does nothing.
class PowerRequestGuard {
 public:
  explicit PowerRequestGuard(PowerRequests* power);
  ~PowerRequestGuard();
  PowerRequestGuard(const PowerRequestGuard&) = delete;
  PowerRequestGuard& operator=(const PowerRequestGuard&) = delete;

 private:
  PowerRequests* power_;
  PowerRequestHandle handle_ = kInvalidPowerRequest;
};

}  // namespace calder
