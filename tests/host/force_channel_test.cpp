#include <gtest/gtest.h>

#include <vector>

#include "force/iic_write_read.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "sim/force_sensor.h"
#include "tests/support/hex.h"

namespace calder {
namespace {

using sim::ForceSensor;
using test::Hex;

class ChannelTest : public testing::Test {
 protected:
  ChannelTest() : sensor(clock), channel(&sensor, 5), scope(MakeEnv()) {}
  Environment MakeEnv() {
    Environment env;
    env.clock = &clock;
    return env;
  }
  void Open() {
    sensor.btl_open_device();
    channel.deviceOpen = true;
  }

  VirtualClock clock;
  ForceSensor sensor;
  IICWriteRead channel;
  ScopedEnvironment scope;
};

TEST_F(ChannelTest, FailingWritesAreTriedRetryCountPlusOneTimesWithoutPause) {
  Open();
  sensor.faults.writesFail = true;
  EXPECT_FALSE(channel.WriteFrame(Hex("FF AA 00 01")));
  EXPECT_EQ(sensor.writeCalls, 6);
  EXPECT_TRUE(clock.sleeps().empty());

  sensor.faults.writesFail = false;
  sensor.faults.failedWrites = 5;  // the sixth and last attempt gets through
  EXPECT_TRUE(channel.WriteFrame(Hex("FF AA 00 01")));
  EXPECT_EQ(sensor.writeCalls, 12);
}

TEST_F(ChannelTest, VersionTextFromTheRunningApplication) {
  Open();
  const struct {
    std::array<uint8_t, 4> bytes;
    const char* text;
  } cases[] = {{{1, 2, 3, 4}, "1.2.3.4"}, {{0xFF, 0, 0, 1}, "255.0.0.1"}};
  for (const auto& c : cases) {
    sensor.version = c.bytes;
    clock.ClearSleeps();
    sensor.frames.clear();
    EXPECT_EQ(channel.ReadVersion(), c.text);
    EXPECT_EQ(clock.sleeps(), (std::vector<uint32_t>{3, 3, 1, 10}));
    EXPECT_EQ(sensor.frames, (std::vector<Frame>{Hex("FF 57 00 00 10"), Hex("FF 52 04 00")}));
  }
}

TEST_F(ChannelTest, AllZeroVersionWithSuccessEndsAfterOnePass) {
  Open();
  sensor.version = {0, 0, 0, 0};
  EXPECT_EQ(channel.ReadVersion(), "0.0.0.0");
  EXPECT_EQ(sensor.readCalls, 6);
  EXPECT_EQ(clock.sleeps(), (std::vector<uint32_t>{3, 3, 1, 1, 1, 1, 1, 1, 10}));
}

TEST_F(ChannelTest, FailingReadsMake101VersionPassesOfSixReadsEach) {
  Open();
  sensor.faults.readsFail = true;
  EXPECT_EQ(channel.ReadVersion(), "0.0.0.0");
  EXPECT_EQ(sensor.readCalls, 101 * 6);
  EXPECT_EQ(sensor.frames.size(), 101u * 2);
  EXPECT_EQ(clock.TotalSleptMs(), 101u * (3 + 3 + 6 + 10));
}

TEST_F(ChannelTest, ReadReplyStopsAtTheFirstNonZeroReply) {
  Open();
  channel.SendPacket(kConnect, nullptr, 0);
  // The sensor is in its application, so the packet is ignored and the reply stays zero.
  uint8_t reply[14] = {};
  channel.ReadReply(reply, 14);
  EXPECT_EQ(sensor.readCalls, 6);
  EXPECT_EQ(clock.sleeps(), (std::vector<uint32_t>{2, 3, 1, 1, 1, 1, 1, 1}));

  channel.RestartPulse();
  channel.HoldInBootLoader();
  ASSERT_EQ(sensor.mode, ForceSensor::Mode::kBootLoader);
  clock.ClearSleeps();
  sensor.frames.clear();
  channel.SendPacket(kConnect, nullptr, 0);
  channel.ReadReply(reply, 14);
  EXPECT_EQ(sensor.readCalls, 7);
  EXPECT_EQ(clock.sleeps(), (std::vector<uint32_t>{2, 3, 1}));
  EXPECT_EQ(sensor.frames, (std::vector<Frame>{Hex("FF 57 00 00 85 01 81 01 01 00 00 01 00"),
                                               Hex("FF 52 0E 00")}));
  EXPECT_EQ(std::vector<uint8_t>(reply + 9, reply + 14), Hex("00 02 00 01 00"));
}

TEST_F(ChannelTest, RestartPulseAndBootHoldFramesAndPauses) {
  Open();
  channel.RestartPulse();
  channel.HoldInBootLoader();
  std::vector<Frame> expected = {Hex("FF AA 00 01"), Hex("FF AA 00 00")};
  std::vector<uint32_t> pauses = {100};
  for (int i = 0; i < 20; ++i) {
    expected.push_back(Hex("FF 57 00 00 01 01"));
    pauses.push_back(2);
  }
  pauses.push_back(10);
  EXPECT_EQ(sensor.frames, expected);
  EXPECT_EQ(clock.sleeps(), pauses);
  EXPECT_EQ(sensor.bootLoaderEntries, 1);
}

TEST_F(ChannelTest, ClosedDeviceSendsNoSensorTrafficButStillWritesTouchFrames) {
  uint8_t reply[4] = {9, 9, 9, 9};
  channel.SendPacket(kConnect, nullptr, 0);
  channel.ReadReply(reply, 4);
  EXPECT_FALSE(channel.ResetAssert());
  EXPECT_FALSE(channel.ResetRelease());
  EXPECT_FALSE(channel.ReadVersionBytes(reply));
  channel.HoldInBootLoader();
  EXPECT_EQ(sensor.writeCalls, 0);
  EXPECT_EQ(sensor.readCalls, 0);
  EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>{10});  // only the pause after the holds
  EXPECT_EQ(std::vector<uint8_t>(reply, reply + 4), Hex("09 09 09 09"));

  // The bridge refuses them, so each takes three attempts and three pauses.
  clock.ClearSleeps();
  EXPECT_FALSE(channel.DisableTouch());
  EXPECT_FALSE(channel.EnableTouch());
  EXPECT_EQ(sensor.writeCalls, 6);
  EXPECT_EQ(clock.sleeps(), (std::vector<uint32_t>{10, 10, 10, 10, 10, 10}));
}

TEST_F(ChannelTest, TouchFrameAcceptedOnTheSecondAttemptCostsOnePause) {
  Open();
  sensor.faults.failedTouchFrames = 1;
  EXPECT_TRUE(channel.DisableTouch());
  EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>{10});
  EXPECT_FALSE(sensor.touchEnabled);
  EXPECT_TRUE(channel.EnableTouch());
  EXPECT_TRUE(sensor.touchEnabled);
  EXPECT_EQ(sensor.touchFrames, (std::vector<bool>{true, false}));
  EXPECT_EQ(sensor.badPackets, 0);
}

}  // namespace
}  // namespace calder
