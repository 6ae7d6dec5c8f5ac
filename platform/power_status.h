#pragma once

namespace calder {

// The machine's power source as GetSystemPowerStatus reports it.
struct PowerStatus {
  static constexpr int kUnknown = 255;
  static constexpr int kCriticalFlag = 4;
  int acLine = kUnknown;            // 0 on battery, 1 on AC
  int batteryFlags = kUnknown;      // 128 for no battery
  int chargePercent = kUnknown;
};

class PowerStatusSource {
 public:
  virtual ~PowerStatusSource() = default;
  // Unknown fields when the status cannot be read.
  virtual PowerStatus Read() = 0;
};

}  // namespace calder
