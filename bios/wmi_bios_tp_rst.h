#pragma once

#include <array>
#include <cstdint>

namespace calder {

class WmiConnector;

// The BIOS touchpad reset command, the one thing ever sent as "InData".
constexpr std::array<uint8_t, 32> kTouchpadResetCommand = {0x00, 0xFB, 0x00, 0x0A,
                                                           0x00, 0x00, 0x04, 0x00};

// Asks the BIOS, through its WMI method, to reset the touchpad. COM is
// already initialised on the calling thread.
bool WMIBiosTPReset();
// The same through a given connector.
bool WMIBiosTPReset(WmiConnector& wmi);

}  // namespace calder
