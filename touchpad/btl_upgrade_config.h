#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "trace/trace.h"

namespace calder {

// The vendor library's callbacks; either text may be null.
using btl_progress_callback = void (*)(int32_t percent, const char* message);
using btl_log_callback = void (*)(int32_t level, const char* message);

// btl_upgrade.dll reads this record by layout: little-endian, 64-bit
// pointers, 56 bytes, every byte not named here zero.
struct btl_upgrade_config {
  const char* hwId;
  uint8_t chipId;
  uint8_t zero9[3];
  int32_t haveBoot;
  int32_t option1;
  int32_t option2;
  int32_t option3;
  uint32_t zero28;
  btl_progress_callback progress;
  btl_log_callback log;
  void* last;
};

static_assert(sizeof(void*) == 8, "the vendor record is laid out for 64-bit pointers");
static_assert(sizeof(btl_upgrade_config) == 56, "vendor record size");
static_assert(offsetof(btl_upgrade_config, chipId) == 8, "vendor record layout");
static_assert(offsetof(btl_upgrade_config, haveBoot) == 12, "vendor record layout");
static_assert(offsetof(btl_upgrade_config, option1) == 16, "vendor record layout");
static_assert(offsetof(btl_upgrade_config, progress) == 32, "vendor record layout");
static_assert(offsetof(btl_upgrade_config, log) == 40, "vendor record layout");
static_assert(offsetof(btl_upgrade_config, last) == 48, "vendor record layout");

// The option words are fixed for this product; their meaning is the vendor's.
constexpr int32_t kUpgradeOptionWords[3] = {0, 1, 0};

// A zeroed record with the given settings, the fixed option words and the
// callbacks. The record keeps `hwId` by pointer.
btl_upgrade_config BuildUpgradeConfig(const char* hwId, uint8_t chipId, int32_t haveBoot,
                                      btl_progress_callback progress, btl_log_callback log);

// The record as a trace records it: none for a null record.
std::optional<TraceConfig> RecordedConfig(const btl_upgrade_config* config);

}  // namespace calder
