// Power-cut sweep: the process dies after every bridge call of the force
// phase in turn, the sensor keeps what it had (flash, mode), and the next run
// must leave it with the file's image and the target version.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "force/firmware_image.h"
#include "force/force_update.h"
#include "platform/bridge_library.h"
#include "sim/touch_device.h"
#include "tests/support/force_rig.h"

namespace calder {
namespace {

// The process dies here; nothing of the tool's own code runs after it.
struct PowerCut {};

// Forwards to the sensor and cuts the power once call number cutAt (from 1)
// has returned. 0 never cuts.
class CuttingBridge : public BridgeLibrary {
 public:
  CuttingBridge(sim::ForceSensor& sensor, int cutAt) : sensor_(sensor), cutAt_(cutAt) {}
  int btl_init_driver_7853() override { return After(sensor_.btl_init_driver_7853()); }
  int btl_open_device() override { return After(sensor_.btl_open_device()); }
  int btl_write_data(unsigned char* b, int n) override { return After(sensor_.btl_write_data(b, n)); }
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

constexpr uint32_t kVersionOffset = 16;
const char kTarget[] = "2.1.0.7";

// One sensor, two processes: the first cut at bridge call k (or not at all),
// the second run to its end. The firmware carries its version, so a
// half-written image cannot pass the version check.
struct Machine {
  Machine() : touch(rig.clock) {
    rig.sensor.versionOffset = kVersionOffset;
    rig.env.hid = &touch;  // for the calibration judge, should it be needed
  }
  // The bridge calls the run made; cut when the power went before its end.
  int Run(const std::string& path, int cutAt) {
    WriterImage() = FirmwareImage();  // a new process
    ReaderImage() = FirmwareImage();
    CuttingBridge bridge(rig.sensor, cutAt);
    rig.env.bridge = &bridge;
    rig.Install();
    cut = result = false;
    try {
      result = UpdateForce(kTarget, path);
    } catch (const PowerCut&) {
      cut = true;
    }
    rig.scope.reset();
    return bridge.calls;
  }
  std::vector<uint8_t> Flash(size_t size) const {
    return rig.sensor.ReadFlash(sim::ForceSensor::kFlashBase, size);
  }
  test::ForceRig rig;
  sim::TouchDevice touch;
  bool cut = false;
  bool result = false;
};

TEST(PowerCutSweep, ForcePhaseRecoversFromACutAfterEveryBridgeCall) {
  std::vector<uint8_t> image = test::PatternBytes(200);  // 256 bytes once padded
  std::copy_n("\x02\x01\x00\x07", 4, image.begin() + kVersionOffset);  // kTarget
  const std::string path = test::WriteTempFile(std::string(kTarget) + ".bin", image);
  image.resize(256, 0x00);

  Machine clean;
  ASSERT_NE(clean.Flash(image.size()), image);
  const int total = clean.Run(path, 0);
  ASSERT_TRUE(clean.result);
  ASSERT_EQ(clean.Flash(image.size()), image);
  ASSERT_GT(total, 100);

  std::vector<int> lost;
  for (int k = 1; k <= total; ++k) {
    Machine m;
    m.Run(path, k);
    ASSERT_TRUE(m.cut) << "call " << k;
    m.rig.clock.Advance(60000);  // the machine comes back a minute later
    m.rig.log.Clear();
    m.Run(path, 0);
    const bool recovered =
        !m.cut && m.result && m.Flash(image.size()) == image && m.rig.sensor.touchEnabled &&
        m.rig.sensor.mode == sim::ForceSensor::Mode::kApplication &&
        m.rig.log.Contains(std::string("read force version form firmware : ") + kTarget);
    if (!recovered) lost.push_back(k);
  }
  std::printf("power-cut sweep force: covered %d / %d\n", total - static_cast<int>(lost.size()),
              total);
  std::fflush(stdout);
  EXPECT_TRUE(lost.empty()) << "not recovered after calls " << testing::PrintToString(lost);
}

}  // namespace
}  // namespace calder
