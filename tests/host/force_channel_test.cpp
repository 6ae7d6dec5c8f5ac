#include <gtest/gtest.h>

#include <array>

#include "force/iic_write_read.h"
#include "tests/support/force_rig.h"

namespace calder {
namespace {

using sim::ForceSensor;
using test::Hex;

// A retry count other than the upgrade's, so the channel's own rule shows.
constexpr int32_t kRetries = 2;

class ChannelTest : public testing::Test {
 protected:
  ChannelTest() : channel(&rig.sensor, kRetries) {
    rig.sensor.btl_open_device();
    channel.deviceOpen = true;
  }

  test::ForceRig rig;
  ForceSensor& sensor = rig.sensor;
  IICWriteRead channel;
};

TEST_F(ChannelTest, FailingWritesAreTriedRetryCountPlusOneTimesWithoutPause) {
  sensor.faults.writesFail = true;
  EXPECT_FALSE(channel.WriteFrame(Hex("FF AA 00 01")));
  EXPECT_EQ(sensor.writeCalls, kRetries + 1);
  EXPECT_TRUE(rig.clock.sleeps().empty());

  sensor.faults.writesFail = false;
  sensor.faults.failedWrites = kRetries;  // the last attempt gets through
  EXPECT_TRUE(channel.WriteFrame(Hex("FF AA 00 01")));
  EXPECT_EQ(sensor.writeCalls, 2 * (kRetries + 1));
}

TEST_F(ChannelTest, VersionTextFromTheRunningApplication) {
  const struct {
    std::array<uint8_t, 4> bytes;
    bool readsFail;
    const char* text;
    int reads;
    uint64_t sleptMs;
  } cases[] = {
      {{1, 2, 3, 4}, false, "1.2.3.4", 1, 3 + 3 + 1 + 10},
      {{0xFF, 0, 0, 1}, false, "255.0.0.1", 1, 3 + 3 + 1 + 10},
      // A zero answer with success is final after one pass of three reads.
      {{0, 0, 0, 0}, false, "0.0.0.0", 3, 3 + 3 + 3 + 10},
      // Failing reads: 101 passes.
      {{1, 2, 3, 4}, true, "0.0.0.0", 101 * 3, 101 * (3 + 3 + 3 + 10)},
  };
  for (const auto& c : cases) {
    sensor.version = c.bytes;
    sensor.faults.readsFail = c.readsFail;
    sensor.readCalls = 0;
    rig.clock.ClearSleeps();
    sensor.frames.clear();
    EXPECT_EQ(channel.ReadVersion(), c.text);
    EXPECT_EQ(sensor.readCalls, c.reads) << c.text;
    EXPECT_EQ(rig.clock.TotalSleptMs(), c.sleptMs) << c.text;
    EXPECT_EQ(std::vector<Frame>(sensor.frames.begin(), sensor.frames.begin() + 2),
              (std::vector<Frame>{Hex("FF 57 00 00 10"), Hex("FF 52 04 00")}));
  }
}

TEST_F(ChannelTest, ZeroReplyIsReadRetryCountPlusOneTimes) {
  // In its application the sensor ignores the packet: the reply stays zero.
  channel.SendPacket(kConnect, nullptr, 0);
  uint8_t reply[14] = {};
  channel.ReadReply(reply, 14);
  EXPECT_EQ(sensor.readCalls, kRetries + 1);
  EXPECT_EQ(rig.clock.sleeps(), (std::vector<uint32_t>{2, 3, 1, 1, 1}));
  EXPECT_EQ(sensor.frames.back(), Hex("FF 52 0E 00"));
}

TEST_F(ChannelTest, TouchFrameAcceptedOnTheSecondAttemptCostsOnePause) {
  sensor.faults.failedTouchFrames = 1;
  EXPECT_TRUE(channel.DisableTouch());
  EXPECT_EQ(rig.clock.sleeps(), std::vector<uint32_t>{10});
  EXPECT_TRUE(channel.EnableTouch());
  EXPECT_EQ(sensor.touchFrames, (std::vector<bool>{true, false}));
}

}  // namespace
}  // namespace calder
