#include "hid/dev_hid.h"

#include "platform/environment.h"

namespace calder {
namespace {

// Stands in when no HID host is installed: a machine without HID devices.
class NoHidHost : public HidHost {
 public:
  std::vector<std::u16string> InterfacePaths() override { return {}; }
  bool ProbeAttributes(const std::u16string&, HidAttributes*) override { return false; }
  HidHandle OpenReadWrite(const std::u16string&) override { return InvalidHidHandle(); }
  bool Close(HidHandle) override { return false; }
  bool SetOutputReport(HidHandle, const uint8_t*, size_t) override { return false; }
  bool GetInputReport(HidHandle, uint8_t*, size_t) override { return false; }
};

HidHost& InstalledHidHost() {
  static NoHidHost none;
  return Env().hid != nullptr ? *Env().hid : none;
}

}  // namespace

DevHid::DevHid() : DevHid(InstalledHidHost()) {}

DevHid::DevHid(HidHost& host) : host_(host) {}

DevHid::~DevHid() {
  if (handle != InvalidHidHandle()) host_.Close(handle);
}

std::vector<std::u16string> DevHid::GetDevicePaths() {
  for (std::u16string& path : host_.InterfacePaths()) paths.push_back(std::move(path));
  return paths;
}

bool DevHid::Open(uint16_t vendor, uint16_t product, std::u16string collectionTag) {
  vendorId = vendor;
  productId = product;
  tag = std::move(collectionTag);
  const std::u16string* chosen = nullptr;
  for (const std::u16string& path : paths) {
    HidAttributes attributes;
    if (!host_.ProbeAttributes(path, &attributes)) continue;
    if (attributes.vendorId == vendorId && attributes.productId == productId &&
        path.find(tag) != std::u16string::npos) {
      chosen = &path;
      break;
    }
  }
  if (chosen == nullptr) {
    handle = InvalidHidHandle();
    return false;
  }
  handle = host_.OpenReadWrite(*chosen);
  return handle != InvalidHidHandle();
}

}  // namespace calder
