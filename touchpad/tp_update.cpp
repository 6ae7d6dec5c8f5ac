#include "touchpad/tp_update.h"

#include "app/log.h"

namespace calder {

int TPMain(int, char*[]) {
  LOG(ERROR) << "TPMain is not available in this build";
  return 1;
}

}  // namespace calder
