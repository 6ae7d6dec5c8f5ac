#include "touchpad/btl_upgrade_config.h"

#include <cstring>

namespace calder {

btl_upgrade_config BuildUpgradeConfig(const char* hwId, uint8_t chipId, int32_t haveBoot,
                                      btl_progress_callback progress, btl_log_callback log) {
  btl_upgrade_config config;
  std::memset(&config, 0, sizeof config);
  config.hwId = hwId;
  config.chipId = chipId;
  config.haveBoot = haveBoot;
  config.option1 = kUpgradeOptionWords[0];
  config.option2 = kUpgradeOptionWords[1];
  config.option3 = kUpgradeOptionWords[2];
  config.progress = progress;
  config.log = log;
  return config;
}

}  // namespace calder
