#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hid/dev_hid.h"
#include "platform/clock.h"

namespace calder {

// Version and calibration queries over the touch device's HID collections.
// None of them logs; callers log the texts.
class ReadFW {
 public:
  ReadFW();  // on the installed environment's HID host and clock
  ReadFW(HidHost& host, Clock& clock);
  virtual ~ReadFW();
  ReadFW(const ReadFW&) = delete;
  ReadFW& operator=(const ReadFW&) = delete;

  // Opens "col04" and "col05"; the queries test the handles themselves.
  void Init();
  bool ReadTouchVersion(std::string& version, std::string& error);
  bool ReadForceVersion(std::string& version, std::string& error);
  // The seven calibration values as text, or an error text.
  bool ReadCalibrateData(std::string& text);
  // Closes both collection handles that are open; the destructor closes them
  // again, harmlessly.
  void CloseHandles();

  // Steps of ReadCalibrateData.
  bool BeginCalibrateRead();
  bool EndCalibrateRead();
  bool ReadCalibrateRaw(std::vector<uint16_t>& values, double timeoutSeconds);

  // Declared in this order: the force collection is destroyed first.
  DevHid touch;  // "col04": touchpad version
  DevHid force;  // "col05": force version and calibration

 private:
  Clock& clock_;
};

}  // namespace calder
