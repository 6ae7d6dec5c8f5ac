#include <gtest/gtest.h>

#include <string>

#include "platform/clock.h"
#include "sim/force_sensor_files.h"

namespace calder::sim {
namespace {

TEST(ForceSensorScenario, SetsFaultsAndVersionFromKeyValueLines) {
  VirtualClock clock;
  ForceSensor sensor(clock);
  std::string bad;
  ASSERT_TRUE(ApplyScenario("# open failure\r\nopen_result = 7\nerased_value=0xFF\n"
                            "writes_fail=1\nrejected_block=12  # mid image\nversion=2.0.10.255\n",
                            &sensor, &bad))
      << bad;
  EXPECT_EQ(sensor.faults.openResult, 7);
  EXPECT_EQ(sensor.faults.erasedValue, 0xFF);
  EXPECT_TRUE(sensor.faults.writesFail);
  EXPECT_EQ(sensor.faults.rejectedBlock, 12);
  EXPECT_EQ(sensor.version, (std::array<uint8_t, 4>{2, 0, 10, 255}));

  EXPECT_FALSE(ApplyScenario("open_result=7\nopen_reslt=1\n", &sensor, &bad));
  EXPECT_EQ(bad, "open_reslt=1");
  EXPECT_FALSE(ApplyScenario("version=1.2.3\n", &sensor, &bad));
  EXPECT_FALSE(ApplyScenario("erased_value=256\n", &sensor, &bad));
  EXPECT_FALSE(ApplyScenario("init_result=x\n", &sensor, &bad));
}

TEST(ForceSensorState, RecordsWhatTheSensorSawAndRestoresModeAndVersion) {
  VirtualClock clock;
  ForceSensor sensor(clock);
  sensor.btl_init_driver_7853();
  sensor.btl_open_device();
  sensor.mode = ForceSensor::Mode::kBootLoader;
  sensor.version = {4, 3, 2, 1};
  const std::string state = FormatState(sensor);
  EXPECT_NE(state.find("mode=bootloader\nversion=4.3.2.1\n"), std::string::npos) << state;
  EXPECT_NE(state.find("calls=btl_init_driver_7853,btl_open_device\n"), std::string::npos);

  ForceSensor resumed(clock);
  ASSERT_TRUE(RestoreState(state, &resumed));
  EXPECT_EQ(resumed.mode, ForceSensor::Mode::kBootLoader);
  EXPECT_EQ(resumed.version, sensor.version);
  EXPECT_FALSE(RestoreState("mode=asleep\n", &resumed));
  EXPECT_EQ(resumed.mode, ForceSensor::Mode::kBootLoader);
}

}  // namespace
}  // namespace calder::sim
