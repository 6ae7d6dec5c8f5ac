#pragma once

#include <string>

namespace calder {

// Version and calibration queries over the touch device's HID collections.
class ReadFW {
 public:
  ReadFW();
  virtual ~ReadFW();

  void Init();
  bool ReadTouchVersion(std::string& version, std::string& error);
  bool ReadForceVersion(std::string& version, std::string& error);
  bool ReadCalibrateData(std::string& text);
  // Closes both collection handles that are open; the destructor closes them
  // again, harmlessly.
  void CloseHandles();
};

}  // namespace calder
