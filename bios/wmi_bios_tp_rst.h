#pragma once

namespace calder {

// Asks the BIOS, through its WMI method, to reset the touchpad.
bool WMIBiosTPReset();

}  // namespace calder
