#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "force/firmware_image.h"
#include "force/force_update.h"
#include "sim/touch_device.h"
#include "tests/support/fake_system.h"
#include "tests/support/force_rig.h"
#include "tests/support/temp_file.h"

namespace calder {
namespace {

using test::PatternBytes;
using test::TaggedFile;
using test::WriteTempFile;

const char kChecksumFailed[] =
    "INFO force_update.cpp: checksum check failed!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!";

// The sensor behind the bridge and the touch device behind HID, both on the
// rig's virtual clock.
class UpdateForceTest : public testing::Test {
 protected:
  UpdateForceTest() : touch(rig.clock) {
    // A fresh process: the loaders' buffers keep bytes from earlier loads.
    WriterImage() = FirmwareImage();
    ReaderImage() = FirmwareImage();
    rig.env.hid = &touch;
    Install();
  }
  void Install() {
    rig.scope.reset();
    rig.scope = std::make_unique<ScopedEnvironment>(rig.env);
  }
  std::vector<std::string> Lines() const { return rig.LinesFrom("force_update.cpp"); }
  static std::string Line(const std::string& message) {
    return "INFO force_update.cpp: " + message;
  }
  std::vector<std::string> Closing() const {
    return {Line("enable touch"), Line("close device success"), Line("uninstall driver success")};
  }

  test::ForceRig rig;
  sim::TouchDevice touch;
};

TEST_F(UpdateForceTest, OpenFailureSkipsTheWriteButStillClosesEverything) {
  rig.sensor.faults.openResult = 7;
  EXPECT_FALSE(UpdateForce("1.0.2.3", WriteTempFile("1.0.2.3.bin", PatternBytes(100))));
  EXPECT_EQ(Lines(), (std::vector<std::string>{
                         Line(">> Start Upgrade Force"), Line("init driver..."),
                         Line("init driver success"), Line("open device..."),
                         Line("Open device fail: 7"), Line("enable touch"),
                         Line(" - enable touch fail"), Line("close device success"),
                         Line("uninstall driver success")}));
  EXPECT_EQ(rig.log.Lines(), Lines());  // nothing from the writer
  EXPECT_EQ(rig.progress.posts, std::vector<int>{90});
  EXPECT_EQ(rig.sensor.calls,
            (std::vector<std::string>{"btl_init_driver_7853", "btl_open_device",
                                      "btl_close_device", "btl_uninstall_driver"}));
  EXPECT_TRUE(rig.sensor.frames.empty());
}

TEST_F(UpdateForceTest, FirstRunWithMatchingReadBackNeedsNoCalibration) {
  // 30000 bytes of 0x80: whole 40-byte chunks, sums of 3840000 each way.
  const std::string path =
      WriteTempFile("1.0.2.3.bin", TaggedFile(std::vector<uint8_t>(30000, 0x80)));
  EXPECT_TRUE(UpdateForce("1.0.2.3", path));
  std::vector<std::string> expected = {
      Line(">> Start Upgrade Force"), Line("init driver..."), Line("init driver success"),
      Line("open device..."),         Line("Open device success"), Line("disable touch"),
      Line("checksum : 3.84e+06 filechecksum : 3.84e+06")};
  const std::vector<std::string> closing = Closing();
  expected.insert(expected.end(), closing.begin(), closing.end());
  EXPECT_EQ(Lines(), expected);
  EXPECT_EQ(rig.sensor.touchFrames, (std::vector<bool>{true, false}));
  EXPECT_TRUE(rig.sensor.touchEnabled);
  EXPECT_EQ(rig.progress.posts.back(), 90);
  EXPECT_TRUE(touch.sent.empty());  // no HID traffic
  EXPECT_EQ(rig.sensor.ReadFlash(0x01001000, 30000), std::vector<uint8_t>(30000, 0x80));
  EXPECT_EQ(rig.sensor.badPackets, 0);
  EXPECT_EQ(rig.sensor.calls.back(), "btl_uninstall_driver");
}

TEST_F(UpdateForceTest, TwoFailedRunsAreRetriedWithTheirPauses) {
  rig.sensor.faults.wrongConnectReplies = 4;  // two runs' worth
  const std::string path = WriteTempFile("1.0.2.3.bin", TaggedFile(PatternBytes(1000)));
  EXPECT_TRUE(UpdateForce("1.0.2.3", path));
  const std::vector<std::string> lines = Lines();
  const std::vector<std::string> middle(lines.begin() + 6, lines.begin() + 11);
  EXPECT_EQ(middle, (std::vector<std::string>{
                        Line("update failed:1"), Line(">> retry upgrade force firmware:2"),
                        Line("update failed:2"), Line(">> retry upgrade force firmware:3"),
                        Line("checksum : 125562 filechecksum : 125562")}))
      << testing::PrintToString(lines);
}

TEST_F(UpdateForceTest, ThreeFailedRunsFailTheUpgrade) {
  rig.sensor.faults.rejectedBlock = 3;
  rig.sensor.faults.rejections = 3;
  EXPECT_FALSE(UpdateForce("1.0.2.3", WriteTempFile("1.0.2.3.bin", PatternBytes(1000))));
  const std::vector<std::string> lines = Lines();
  EXPECT_EQ(lines[lines.size() - 4], Line("update failed:3"));
  EXPECT_EQ(rig.sensor.runs, 0);
  // Each failed run is followed by 500 ms and then another 500 ms.
  int halfSeconds = 0;
  for (uint32_t ms : rig.clock.sleeps()) halfSeconds += ms == 500 ? 1 : 0;
  EXPECT_EQ(halfSeconds, 6);
}

TEST_F(UpdateForceTest, ChecksumMismatchIsForgivenWhenCalibrationReads) {
  rig.sensor.faults.erasedValue = 0xFF;  // raw image: 16 bytes past it read 0xFF
  EXPECT_TRUE(UpdateForce("1.0.2.3", WriteTempFile("1.0.2.3.bin", PatternBytes(1000))));
  const std::vector<std::string> lines = Lines();
  ASSERT_GE(lines.size(), 5u);
  EXPECT_EQ(std::vector<std::string>(lines.end() - 5, lines.end()),
            (std::vector<std::string>{kChecksumFailed, Line("enable touch"),
                                      Line("close device success"),
                                      Line("uninstall driver success"),
                                      Line("calidata: 258 772 -1 -32768 12 0 7")}));
}

TEST_F(UpdateForceTest, ChecksumMismatchFailsWhenCalibrationCannotBeRead) {
  rig.sensor.faults.erasedValue = 0xFF;
  touch.neverReady.insert(0xBE);
  EXPECT_FALSE(UpdateForce("1.0.2.3", WriteTempFile("1.0.2.3.bin", PatternBytes(1000))));
  const std::vector<std::string> lines = Lines();
  EXPECT_EQ(std::vector<std::string>(lines.end() - 2, lines.end()),
            (std::vector<std::string>{
                "ERROR force_update.cpp: err: read force calibrate data fail",
                Line("calidata: err: read force calibrate data fail")}));
  EXPECT_EQ(touch.OpenHandleCount(), 0u);
}

TEST_F(UpdateForceTest, CloseAndUninstallFailuresAreOnlyLogged) {
  rig.sensor.faults.initResult = 3;
  rig.sensor.faults.closeResult = 8;
  rig.sensor.faults.uninstallResult = 9;
  EXPECT_TRUE(UpdateForce("1.0.2.3", WriteTempFile("1.0.2.3.bin", TaggedFile(PatternBytes(40)))));
  const std::vector<std::string> lines = Lines();
  EXPECT_EQ(lines[2], Line("init driver fail: 3"));
  EXPECT_EQ(std::vector<std::string>(lines.end() - 2, lines.end()),
            (std::vector<std::string>{Line("close device fail: 8"),
                                      Line("uninstall driver fail:9")}));
}

TEST_F(UpdateForceTest, RefusedTouchDisableIsLoggedAndTheUpgradeGoesOn) {
  rig.sensor.faults.failedTouchFrames = 3;
  EXPECT_TRUE(UpdateForce("1.0.2.3", WriteTempFile("1.0.2.3.bin", TaggedFile(PatternBytes(40)))));
  const std::vector<std::string> lines = Lines();
  EXPECT_EQ(std::vector<std::string>(lines.begin() + 5, lines.begin() + 7),
            (std::vector<std::string>{Line("disable touch"), Line("disable touch fail")}));
  const std::vector<uint32_t> start(rig.clock.sleeps().begin(), rig.clock.sleeps().begin() + 5);
  EXPECT_EQ(start, (std::vector<uint32_t>{10, 10, 10, 50, 100}));
  EXPECT_EQ(rig.sensor.touchFrames, std::vector<bool>{false});
}

TEST_F(UpdateForceTest, NoBridgeLibraryIsAClearFailure) {
  rig.env.bridge = nullptr;
  Install();
  EXPECT_FALSE(UpdateForce("1.0.2.3", WriteTempFile("1.0.2.3.bin", PatternBytes(100))));
  EXPECT_EQ(Lines(), (std::vector<std::string>{
                         Line(">> Start Upgrade Force"), Line("init driver..."),
                         Line("init driver fail: -1"),
                         "ERROR force_update.cpp: no HID bridge library is installed",
                         Line("open device..."), Line("Open device fail: -1"),
                         Line("enable touch"), Line(" - enable touch fail"),
                         Line("close device fail: -1"), Line("uninstall driver fail:-1")}));
}

TEST_F(UpdateForceTest, UpgradeLogsTheCurrentVersionAndRunsWithoutAFirmwareFile) {
  test::FakeSystem machine;
  machine.Into(&rig.env);
  Install();
  EXPECT_FALSE(UpgradeForceFW());
  const std::vector<std::string> lines = Lines();
  EXPECT_EQ(lines[0], Line("current force version: 5.6.7.8"));
  int loadFailures = 0;
  for (const std::string& line : rig.log.Lines()) {
    loadFailures += line == "INFO update_fw.cpp: LoadFile failed" ? 1 : 0;
  }
  EXPECT_EQ(loadFailures, 3);
  EXPECT_EQ(rig.sensor.touchFrames, (std::vector<bool>{true, false}));
}

TEST_F(UpdateForceTest, UnreadableCurrentVersionIsLoggedAndTheUpgradeGoesOn) {
  test::FakeSystem machine;
  machine.Into(&rig.env);
  rig.env.hid = nullptr;
  Install();
  EXPECT_FALSE(UpgradeForceFW());
  const std::vector<std::string> lines = Lines();
  EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 3),
            (std::vector<std::string>{Line("err: open touch device fail"),
                                      Line("current force version: "),
                                      Line(">> Start Upgrade Force")}));
}

}  // namespace
}  // namespace calder
