#include "bios/wmi_bios_tp_rst.h"

#include "app/log.h"

namespace calder {

bool WMIBiosTPReset() {
  LOG(ERROR) << "WMIBiosTPReset is not available in this build";
  return false;
}

}  // namespace calder
