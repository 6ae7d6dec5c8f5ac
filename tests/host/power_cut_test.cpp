// Power-cut sweep: the process dies after every bridge call of the force
// phase in turn, the sensor keeps what it had (flash, mode), and the next run
// must leave it with the file's image and the target version.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include "force/firmware_image.h"
#include "force/force_update.h"
#include "platform/bridge_library.h"
#include "platform/environment.h"
#include "sim/force_sensor.h"
#include "sim/touch_device.h"
#include "tests/support/force_rig.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

// The process dies here; nothing of the tool's own code runs after it.
struct PowerCut {};

// Forwards to the sensor and cuts the power once call number cutAt (from 1)
// has reached it. 0 never cuts.
class CuttingBridge : public BridgeLibrary {
 public:
  CuttingBridge(sim::ForceSensor& sensor, int cutAt) : sensor_(sensor), cutAt_(cutAt) {}

  int btl_init_driver_7853() override { return After(sensor_.btl_init_driver_7853()); }
  int btl_open_device() override { return After(sensor_.btl_open_device()); }
  int btl_write_data(unsigned char* b, int n) override {
    return After(sensor_.btl_write_data(b, n));
  }
  int btl_read_data(unsigned char* b, int n) override { return After(sensor_.btl_read_data(b, n)); }
  int btl_close_device() override { return After(sensor_.btl_close_device()); }
  int btl_uninstall_driver() override { return After(sensor_.btl_uninstall_driver()); }

  int calls = 0;

 private:
  int After(int result) {
    if (++calls == cutAt_) throw PowerCut();
    return result;
  }

  sim::ForceSensor& sensor_;
  int cutAt_;
};

void PrintSweep(const char* phase, int covered, int total) {
  std::printf("power-cut sweep %s: covered %d / %d\n", phase, covered, total);
  std::fflush(stdout);
}

constexpr uint32_t kVersionOffset = 16;
const char kTargetVersion[] = "2.1.0.7";

// A 200-byte raw image (256 once padded) that carries its version.
std::vector<uint8_t> SmallForceFile() {
  std::vector<uint8_t> file = test::PatternBytes(200);
  const uint8_t version[] = {2, 1, 0, 7};
  std::copy(std::begin(version), std::end(version), file.begin() + kVersionOffset);
  return file;
}

// One sensor, two processes: the first cut at bridge call k (or not at all),
// the second run to its end.
struct ForceSweepCase {
  explicit ForceSweepCase(const std::string& path) : path(path), touch(clock) {
    sensor.versionOffset = kVersionOffset;
    env.clock = &clock;
    env.progress = &progress;
    env.hid = &touch;  // for the calibration judge, should it be needed
  }

  // Returns the number of bridge calls the run made; cut says whether the
  // power went before it ended.
  int Run(int cutAt, bool* cut, bool* result) {
    // Every run is a new process: fresh image buffers.
    WriterImage() = FirmwareImage();
    ReaderImage() = FirmwareImage();
    CuttingBridge bridge(sensor, cutAt);
    env.bridge = &bridge;
    ScopedEnvironment scope(env);
    *cut = false;
    try {
      *result = UpdateForce(kTargetVersion, path);
    } catch (const PowerCut&) {
      *cut = true;
    }
    return bridge.calls;
  }

  std::string path;
  VirtualClock clock;
  sim::ForceSensor sensor{clock};
  sim::TouchDevice touch;
  test::RecordingPoster progress;
  Environment env;
  test::LogCapture log;
};

TEST(PowerCutSweep, ForcePhaseRecoversFromACutAfterEveryBridgeCall) {
  const std::vector<uint8_t> file = SmallForceFile();
  std::vector<uint8_t> image = file;
  image.resize(256, 0x00);
  const std::string path = test::WriteTempFile(std::string(kTargetVersion) + ".bin", file);

  bool cut = false;
  bool result = false;
  int total = 0;
  {
    ForceSweepCase clean(path);
    ASSERT_NE(clean.sensor.ReadFlash(sim::ForceSensor::kFlashBase + kVersionOffset, 4),
              (std::vector<uint8_t>{2, 1, 0, 7}));
    total = clean.Run(0, &cut, &result);
    ASSERT_TRUE(result);
    ASSERT_EQ(clean.sensor.ReadFlash(sim::ForceSensor::kFlashBase, image.size()), image);
    ASSERT_GT(total, 100);
  }

  int covered = 0;
  std::vector<int> lost;
  for (int k = 1; k <= total; ++k) {
    ForceSweepCase sweep(path);
    sweep.Run(k, &cut, &result);
    ASSERT_TRUE(cut) << "call " << k;
    sweep.clock.Advance(60000);  // the machine comes back a minute later
    sweep.log.Clear();
    sweep.Run(0, &cut, &result);
    const bool recovered =
        !cut && result &&
        sweep.sensor.ReadFlash(sim::ForceSensor::kFlashBase, image.size()) == image &&
        sweep.sensor.mode == sim::ForceSensor::Mode::kApplication && sweep.sensor.touchEnabled &&
        sweep.log.Contains(std::string("read force version form firmware : ") + kTargetVersion);
    if (recovered) {
      ++covered;
    } else {
      lost.push_back(k);
    }
  }
  PrintSweep("force", covered, total);
  EXPECT_EQ(covered, total) << "not recovered after calls " << testing::PrintToString(lost);
}

}  // namespace
}  // namespace calder
