// Runs UpgradeForceFW as calder.exe would after a successful touchpad phase:
// exit code 0 when it returned true, else 1.
#include "base/log.h"
#include "driver/logging.h"
#include "force/force_update.h"
#include "platform/win32/win32_seams.h"

int main() {
  calder::InstallWin32Environment();
  calder::InitLogging();
  const int rc = calder::UpgradeForceFW() ? 0 : 1;
  LOG(INFO) << "force phase returned: " << rc;
  return rc;
}
