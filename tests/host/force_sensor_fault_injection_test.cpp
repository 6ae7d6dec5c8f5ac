#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "force/firmware_image.h"
#include "force/force_update.h"
#include "sim/force_sensor_files.h"
#include "sim/touch_device.h"
#include "tests/support/force_rig.h"
#include "tests/support/temp_file.h"

namespace calder {
namespace {

using test::PatternBytes;
using test::TaggedFile;
using test::WriteTempFile;

// The bridge faults the end-to-end fault matrix drives through the stand-in's
// scenario file, checked against the real force phase on virtual time.
class SensorFaultTest : public testing::Test {
 protected:
  SensorFaultTest() : touch(rig.clock) {
    WriterImage() = FirmwareImage();
    ReaderImage() = FirmwareImage();
    rig.env.hid = &touch;
    rig.scope.reset();
    rig.scope = std::make_unique<ScopedEnvironment>(rig.env);
  }
  void Apply(const std::string& scenario) {
    std::string bad;
    ASSERT_TRUE(sim::ApplyScenario(scenario, &rig.sensor, &bad)) << bad;
  }

  test::ForceRig rig;
  sim::TouchDevice touch;
  const std::vector<uint8_t> image = PatternBytes(640);
  const std::string path = WriteTempFile("1.0.2.3.bin", TaggedFile(image));
};

// The channel retries failed writes, so the image lands whole; a failed read
// leaves the previous chunk in the reply buffer, which the read-back sums
// again, so the calibration read has to judge the write.
TEST_F(SensorFaultTest, EveryThirdBridgeCallFailingWritesTheImageAndLeavesTheVerdictToCalibration) {
  Apply("fail_every=3\n");
  EXPECT_TRUE(UpdateForce("1.0.2.3", path));
  EXPECT_EQ(rig.sensor.ReadFlash(sim::ForceSensor::kFlashBase, image.size()), image);
  EXPECT_EQ(rig.sensor.badPackets, 0);
  const std::vector<std::string> lines = rig.LinesFrom("force_update.cpp");
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "INFO force_update.cpp: calidata: 258 772 -1 -32768 12 0 7"),
            lines.end());
  // A third of the data calls failed, so the channel retried.
  EXPECT_GT(rig.sensor.writeCalls + rig.sensor.readCalls,
            static_cast<int>(rig.sensor.frames.size()) * 3 / 2);
  EXPECT_TRUE(rig.sensor.touchEnabled);
}

TEST_F(SensorFaultTest, ASensorThatFallsSilentMidWriteFailsEveryRunAndKeepsWhatItTook) {
  Apply("silent_after_blocks=4\n");
  EXPECT_FALSE(UpdateForce("1.0.2.3", path));
  EXPECT_TRUE(rig.sensor.silent());
  EXPECT_EQ(rig.sensor.writtenBlocks.size(), 4u);
  EXPECT_EQ(rig.sensor.ReadFlash(sim::ForceSensor::kFlashBase, 256),
            std::vector<uint8_t>(image.begin(), image.begin() + 256));
  // The first run loses the fifth block's reply; later runs get no Connect reply.
  const std::vector<std::string> lines = rig.log.Lines();
  auto count = [&lines](const std::string& line) {
    return std::count(lines.begin(), lines.end(), line);
  };
  EXPECT_EQ(count("INFO update_fw.cpp: write flash data Error 5"), 1);
  EXPECT_EQ(count("INFO update_fw.cpp: jump Uboot connect error : 4"), 2);
  EXPECT_EQ(count("INFO force_update.cpp: update failed:3"), 1);
  // Touch frames go to the touch controller, which still answers.
  EXPECT_TRUE(rig.sensor.touchEnabled);
}

TEST_F(SensorFaultTest, ScenarioKeysOfTheFaultMatrix) {
  Apply("fail_every=7\nsilent_after_blocks=2\nversion_offset=0x10\n");
  EXPECT_EQ(rig.sensor.faults.failEvery, 7);
  EXPECT_EQ(rig.sensor.faults.silentAfterBlocks, 2);
  EXPECT_EQ(rig.sensor.versionOffset, 0x10u);
  std::string bad;
  EXPECT_FALSE(sim::ApplyScenario("version_offset=0xEFFD\n", &rig.sensor, &bad));
}

}  // namespace
}  // namespace calder
