#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/hid_host.h"

namespace calder {

// One top-level collection of the touch device, found among the machine's
// HID interfaces by vendor, product and the collection tag in its path.
class DevHid {
 public:
  DevHid();  // on the installed environment's HID host
  explicit DevHid(HidHost& host);
  virtual ~DevHid();
  DevHid(const DevHid&) = delete;
  DevHid& operator=(const DevHid&) = delete;

  // Appends every present interface's path to the list (never clearing it)
  // and returns a copy of the whole list.
  std::vector<std::u16string> GetDevicePaths();

  // Opens the first listed path of that vendor and product whose path holds
  // the tag (case-sensitive) for reading and writing.
  bool Open(uint16_t vendor, uint16_t product, std::u16string collectionTag);

  bool IsOpen() const { return handle != InvalidHidHandle(); }
  HidHost& host() { return host_; }

  uint16_t vendorId = 0;
  uint16_t productId = 0;
  std::u16string tag;
  // Owners send reports through it and may close it themselves; the field
  // keeps its value, so the destructor's close then fails harmlessly.
  HidHandle handle = InvalidHidHandle();
  std::vector<std::u16string> paths;

 private:
  HidHost& host_;
};

}  // namespace calder
