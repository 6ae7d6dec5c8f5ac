#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "trace/trace.h"

namespace calder::replay {

// Reads a HID trace as the touch device does: opens by collection ("col04"
// the touchpad, "col05" the force sensor), output reports by the query they
// belong to (touch and force version, the calibration's commands, status and
// data requests) and input reports by what they answer. It follows the
// exchange, so lines go in in trace order.
class HidTraceDecoder {
 public:
  std::string Decode(const TraceLine& line);

 private:
  enum class Pending { kNone, kTouchVersion, kForceVersion, kStatus, kCalibrationData };
  std::string Device(const TraceLine& line) const;
  std::string DecodeOutput(const TraceLine& line);
  std::string DecodeInput(const TraceLine& line);

  std::map<int64_t, std::string> collections_;  // by dev
  std::map<int64_t, Pending> pending_;
};

}  // namespace calder::replay
