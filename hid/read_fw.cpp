#include "hid/read_fw.h"

namespace calder {

// Placeholder until the HID host lands: every query fails with its reason.
namespace {
const char kUnavailable[] = "err: HID queries are not available in this build";
}

ReadFW::ReadFW() = default;
ReadFW::~ReadFW() = default;

void ReadFW::Init() {}

bool ReadFW::ReadTouchVersion(std::string& version, std::string& error) {
  version.clear();
  error = kUnavailable;
  return false;
}

bool ReadFW::ReadForceVersion(std::string& version, std::string& error) {
  version.clear();
  error = kUnavailable;
  return false;
}

bool ReadFW::ReadCalibrateData(std::string& text) {
  text = kUnavailable;
  return false;
}

void ReadFW::CloseHandles() {}

}  // namespace calder
