#pragma once

#include <cstdint>
#include <string>

namespace calder {

// Extra attempts of each bridge write and read on the force phase's channel.
constexpr int32_t kBridgeRetryCount = 5;

// The force sensor's firmware upgrade from the "\Force" package.
bool UpgradeForceFW();

// One complete use of the HID bridge: install, open, touch off, up to three
// writes with a read-back check, touch on, close, uninstall, and the
// calibration read as the judge when the read-back differs.
bool UpdateForce(std::string targetVersion, std::string path);

}  // namespace calder
