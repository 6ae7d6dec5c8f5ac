#include <gtest/gtest.h>

#include <algorithm>

#include "force/firmware_image.h"
#include "force/force_update.h"
#include "sim/touch_device.h"
#include "tests/support/fake_system.h"
#include "tests/support/force_rig.h"

namespace calder {
namespace {

using namespace test;
using Lines = std::vector<std::string>;

std::string Line(const std::string& message) { return "INFO force_update.cpp: " + message; }

const Lines kOpened = {Line(">> Start Upgrade Force"), Line("init driver..."),
                       Line("init driver success"), Line("open device..."),
                       Line("Open device success"), Line("disable touch")};
const Lines kClosing = {Line("enable touch"), Line("close device success"),
                        Line("uninstall driver success")};

Lines Join(std::initializer_list<Lines> parts) {
  Lines out;
  for (const Lines& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

// The sensor behind the bridge and the touch device behind HID, both on the
// rig's virtual clock.
class UpdateForceTest : public testing::Test {
 protected:
  UpdateForceTest() : touch(rig.clock) {
    // A fresh process: the loaders' buffers keep bytes from earlier loads.
    WriterImage() = FirmwareImage();
    ReaderImage() = FirmwareImage();
    rig.env.hid = &touch;
    rig.Install();
  }
  bool Update(const std::vector<uint8_t>& file) {
    return UpdateForce("1.0.2.3", WriteTempFile("1.0.2.3.bin", file));
  }
  Lines Phase() const { return rig.LinesFrom("force_update.cpp"); }

  test::ForceRig rig;
  sim::TouchDevice touch;
};

TEST_F(UpdateForceTest, OpenFailureSkipsTheWriteButStillClosesEverything) {
  rig.sensor.faults.openResult = 7;
  EXPECT_FALSE(Update(PatternBytes(100)));
  EXPECT_EQ(rig.log.Lines(),
            (Lines{Line(">> Start Upgrade Force"), Line("init driver..."),
                   Line("init driver success"), Line("open device..."), Line("Open device fail: 7"),
                   Line("enable touch"), Line(" - enable touch fail"), Line("close device success"),
                   Line("uninstall driver success")}));
  EXPECT_EQ(rig.progress.posts, std::vector<int>{90});
  EXPECT_EQ(rig.sensor.calls, (Lines{"btl_init_driver_7853", "btl_open_device",
                                     "btl_close_device", "btl_uninstall_driver"}));
  // Three touch attempts, closed or not.
  EXPECT_EQ(rig.clock.sleeps(), std::vector<uint32_t>(3, 10));

  rig.log.Clear();
  rig.env.bridge = nullptr;  // no library installed at all
  rig.Install();
  EXPECT_FALSE(Update(PatternBytes(100)));
  const Lines lines = Phase();
  EXPECT_EQ(Lines(lines.begin() + 2, lines.begin() + 4),
            (Lines{Line("init driver fail: -1"),
                   "ERROR force_update.cpp: no HID bridge library is installed"}));
  EXPECT_EQ(Lines(lines.end() - 2, lines.end()),
            (Lines{Line("close device fail: -1"), Line("uninstall driver fail:-1")}));
}

TEST_F(UpdateForceTest, FirstRunWithMatchingReadBackNeedsNoCalibration) {
  // 30000 bytes of 0x80: whole 40-byte chunks, sums of 3840000 each way.
  EXPECT_TRUE(Update(TaggedFile(std::vector<uint8_t>(30000, 0x80))));
  EXPECT_EQ(Phase(), Join({kOpened, {Line("checksum : 3.84e+06 filechecksum : 3.84e+06")}, kClosing}));
  EXPECT_EQ(rig.sensor.touchFrames, (std::vector<bool>{true, false}));
  EXPECT_EQ(rig.progress.posts.back(), 90);
  EXPECT_TRUE(touch.sent.empty());  // no HID traffic
  EXPECT_EQ(rig.sensor.ReadFlash(0x01001000, 30000), std::vector<uint8_t>(30000, 0x80));
}

TEST_F(UpdateForceTest, FailedRunsAreRetriedWithTheirPausesUpToThree) {
  const struct {
    int wrongConnects;
    bool result;
    long halfSeconds;  // after each run, after each failed one, and the writer's and reader's
    Lines failures;
  } cases[] = {
      {4, true, 2 * 2 + 3,
       {Line("update failed:1"), Line(">> retry upgrade force firmware:2"),
        Line("update failed:2"), Line(">> retry upgrade force firmware:3"),
        Line("checksum : 125562 filechecksum : 125562")}},
      {6, false, 3 * 2,
       {Line("update failed:1"), Line(">> retry upgrade force firmware:2"),
        Line("update failed:2"), Line(">> retry upgrade force firmware:3"),
        Line("update failed:3")}},
  };
  for (const auto& c : cases) {
    rig.log.Clear();
    rig.clock.ClearSleeps();
    rig.sensor.faults.wrongConnectReplies = c.wrongConnects;  // two per run
    EXPECT_EQ(Update(TaggedFile(PatternBytes(1000))), c.result);
    EXPECT_EQ(Phase(), Join({kOpened, c.failures, kClosing}));
    EXPECT_EQ(std::count(rig.clock.sleeps().begin(), rig.clock.sleeps().end(), 500u),
              c.halfSeconds);
  }
}

TEST_F(UpdateForceTest, EveryBridgeWriteGetsFiveRetries) {
  // The refused touch frame takes three of the failures, the first reset
  // frame the rest: six attempts get it through, seven are too many.
  for (const auto& c : {std::pair<int, int>{3 + 5, 0}, std::pair<int, int>{3 + 6, 1}}) {
    rig.log.Clear();
    rig.sensor.faults.failedWrites = c.first;
    EXPECT_TRUE(Update(TaggedFile(PatternBytes(40))));
    EXPECT_EQ(rig.CountLines(Line("disable touch fail")), 1);
    EXPECT_EQ(rig.CountLines(Line("update failed:1")), c.second) << c.first << " failed writes";
  }
}

TEST_F(UpdateForceTest, ChecksumMismatchIsJudgedByTheCalibrationRead) {
  const struct {
    bool calibrationReads;
    Lines end;
  } cases[] = {
      {true, {Line("calidata: 258 772 -1 -32768 12 0 7")}},
      {false,
       {"ERROR force_update.cpp: err: read force calibrate data fail",
        Line("calidata: err: read force calibrate data fail")}},
  };
  rig.sensor.faults.erasedValue = 0xFF;  // raw image: 16 bytes past it read 0xFF
  for (const auto& c : cases) {
    rig.log.Clear();
    if (!c.calibrationReads) touch.neverReady.insert(0xBE);
    EXPECT_EQ(Update(PatternBytes(1000)), c.calibrationReads);
    const Lines lines = Phase();
    EXPECT_EQ(Lines(lines.end() - 4 - c.end.size(), lines.end()),
              Join({{Line("checksum check failed!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!")},
                    kClosing, c.end}));
    EXPECT_EQ(touch.OpenHandleCount(), 0u);
  }
}

TEST_F(UpdateForceTest, InitAndTouchFailuresAreOnlyLogged) {
  rig.sensor.faults.initResult = 3;
  rig.sensor.faults.failedTouchFrames = 3;
  EXPECT_TRUE(Update(TaggedFile(PatternBytes(40))));
  EXPECT_EQ(rig.CountLines(Line("init driver fail: 3")), 1);
  EXPECT_EQ(rig.CountLines(Line("disable touch fail")), 1);
  const std::vector<uint32_t> start(rig.clock.sleeps().begin(), rig.clock.sleeps().begin() + 4);
  EXPECT_EQ(start, (std::vector<uint32_t>{10, 10, 10, 50}));
  EXPECT_EQ(rig.sensor.touchFrames, std::vector<bool>{false});
}

TEST_F(UpdateForceTest, UpgradeLogsTheCurrentVersionAndRunsWithoutAFirmwareFile) {
  test::FakeSystem machine;
  machine.Into(&rig.env);
  for (bool touchDevice : {true, false}) {
    rig.log.Clear();
    rig.env.hid = touchDevice ? &touch : nullptr;
    rig.Install();
    EXPECT_FALSE(UpgradeForceFW());
    EXPECT_EQ(Phase().front(), Line(touchDevice ? "current force version: 5.6.7.8"
                                                : "err: open touch device fail"));
    EXPECT_EQ(rig.CountLines("INFO update_fw.cpp: LoadFile failed"), 3);
  }
}

}  // namespace
}  // namespace calder
