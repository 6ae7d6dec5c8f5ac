#include <gtest/gtest.h>

#include "sim/touchpad_controller.h"
#include "touchpad/btl_upgrade_config.h"

namespace calder::sim {
namespace {

void Progress(int32_t, const char*) {}
void Log(int32_t, const char*) {}

// The model refuses records a real library would misread, so the record
// tests through TPMain can fail.
TEST(TouchpadControllerRecord, RefusesAnyStrayByteOrOptionWord) {
  const btl_upgrade_config good = BuildUpgradeConfig("ACPI\\BLTP7853", 0x41, 1, &Progress, &Log);
  TouchpadController chip;
  btl_upgrade_config config = good;
  EXPECT_EQ(chip.Init(&config), kTpOk);

  const std::vector<void (*)(btl_upgrade_config*)> spoilers = {
      [](btl_upgrade_config* c) { c->zero9[1] = 1; },
      [](btl_upgrade_config* c) { c->zero28 = 1; },
      [](btl_upgrade_config* c) { c->option2 = 0; },
      [](btl_upgrade_config* c) { c->last = c; },
      [](btl_upgrade_config* c) { c->progress = nullptr; },
  };
  for (auto spoil : spoilers) {
    config = good;
    spoil(&config);
    TouchpadController other;
    EXPECT_EQ(other.Init(&config), kTpErrBadConfig);
    EXPECT_FALSE(other.open);
  }
  config = good;
  config.chipId = 0x42;
  TouchpadController wrongChip;
  EXPECT_EQ(wrongChip.Init(&config), kTpErrNoDevice);
}

TEST(TouchpadControllerRecord, EntryPointsBeforeInitFail) {
  TouchpadController chip;
  uint32_t sum = 7;
  EXPECT_EQ(chip.GetChecksum(&sum), kTpErrNotInitialized);
  EXPECT_EQ(sum, 7u);
  EXPECT_EQ(chip.UpgradeFromFile("x"), kTpErrNotInitialized);
}

}  // namespace
}  // namespace calder::sim
