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

std::optional<TraceConfig> RecordedConfig(const btl_upgrade_config* config) {
  if (config == nullptr) return std::nullopt;
  TraceConfig c;
  c.hwId = TextOf(config->hwId);
  c.chipId = config->chipId;
  c.haveBoot = config->haveBoot;
  c.options = {config->option1, config->option2, config->option3};
  c.progress = config->progress != nullptr;
  c.log = config->log != nullptr;
  return c;
}

}  // namespace calder
