#include "force/force_update.h"

#include "app/log.h"

namespace calder {

bool UpgradeForceFW() {
  LOG(ERROR) << "UpgradeForceFW is not available in this build";
  return false;
}

}  // namespace calder
