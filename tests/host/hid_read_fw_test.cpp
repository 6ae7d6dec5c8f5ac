#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "hid/read_fw.h"
#include "platform/environment.h"
#include "sim/touch_device.h"

namespace calder {
namespace {

using sim::Collection;
using sim::HexBytes;
using sim::TouchDevice;

// Bytes 0 to 10 of each frame in the order the device received them; bytes
// 11 to 32 must be zero in every frame.
std::vector<std::string> Frames(const TouchDevice& device) {
  std::vector<std::string> frames;
  for (const sim::SentReport& report : device.sent) {
    EXPECT_EQ(report.bytes.size(), 33u);
    for (size_t i = 11; i < report.bytes.size(); ++i) EXPECT_EQ(report.bytes[i], 0) << i;
    frames.push_back(HexBytes(report.bytes, 11));
  }
  return frames;
}

const char kCommand12[] = "0D 09 FE 00 00 03 00 00 02 12 EE";
const char kStatus12[] = "0D 07 02 00 00 01 00 02 02 12 EE";
const char kCommandBE[] = "0D 09 FD 01 00 03 00 00 02 BE 42";
const char kStatusBE[] = "0D 07 01 01 00 01 00 02 02 BE 42";
const char kDataRequest[] = "0D 07 AC 01 00 01 00 15 BE BE 42";
const char kCommand13[] = "0D 09 FF 01 00 03 00 00 02 13 ED";
const char kStatus13[] = "0D 07 01 01 00 01 00 02 02 13 ED";

class ReadFWTest : public testing::Test {
 protected:
  ReadFW& Reader() {
    reader_.reset(new ReadFW(device, clock));
    reader_->Init();
    device.sent.clear();
    clock.ClearSleeps();
    return *reader_;
  }

  VirtualClock clock;
  TouchDevice device{clock};

 private:
  std::unique_ptr<ReadFW> reader_;
};

using Sleeps = std::vector<uint32_t>;

// --- versions ---

TEST_F(ReadFWTest, TouchVersionIsReadOverCol04InTheOrder7645) {
  device.touchAnswer = {0x06, 0xB6, 0x00, 0x01, 0x02, 0x03, 0x04};
  std::string version = "stale", error = "stale";
  EXPECT_TRUE(Reader().ReadTouchVersion(version, error));
  EXPECT_EQ(version, "4.3.1.2");
  EXPECT_EQ(error, "");
  EXPECT_EQ(Frames(device), std::vector<std::string>{"0E 07 B4 00 00 01 00 04 B6 00 00"});
  EXPECT_EQ(device.sent[0].collection, Collection::kTouch);
  EXPECT_EQ(clock.sleeps(), Sleeps{30});
}

TEST_F(ReadFWTest, TouchVersionNeedsTheB6Echo) {
  device.touchAnswer = {0x06, 0x16, 0x00, 0x01, 0x02, 0x03, 0x04};
  std::string version, error;
  EXPECT_FALSE(Reader().ReadTouchVersion(version, error));
  EXPECT_EQ(version, "");
  EXPECT_EQ(error, "");
}

TEST_F(ReadFWTest, ForceVersionIsReadOverCol05InTheOrder4567) {
  device.forceAnswer = {0x06, 0x33, 0x00, 0x01, 0x02, 0x03, 0x04};
  std::string version, error;
  EXPECT_TRUE(Reader().ReadForceVersion(version, error));
  EXPECT_EQ(version, "1.2.3.4");
  EXPECT_EQ(error, "");
  EXPECT_EQ(Frames(device), std::vector<std::string>{"0D 07 16 00 00 01 00 04 10 00 00"});
  EXPECT_EQ(device.sent[0].collection, Collection::kForce);
  EXPECT_EQ(clock.sleeps(), Sleeps{150});
}

TEST_F(ReadFWTest, ForceVersionFailures) {
  std::string version, error;
  device.forceAnswer = {0x06, 0x16, 0x00, 0x00, 0x00, 0x00, 0x00};
  EXPECT_FALSE(Reader().ReadForceVersion(version, error));
  EXPECT_EQ(version, "0.0.0.0");
  EXPECT_EQ(error, "err: read force device fail");

  device.forceAnswer = {0x05, 0x16, 0x00, 0x01, 0x02, 0x03, 0x04};
  EXPECT_FALSE(Reader().ReadForceVersion(version, error));
  EXPECT_EQ(version, "");
  EXPECT_EQ(error, "");
}

TEST_F(ReadFWTest, VersionNumbersAreUnsigned) {
  device.touchVersion = {255, 128, 10, 0};
  device.forceVersion = {200, 0, 0, 1};
  std::string touch, force, error;
  ReadFW& reader = Reader();
  EXPECT_TRUE(reader.ReadTouchVersion(touch, error));
  EXPECT_TRUE(reader.ReadForceVersion(force, error));
  EXPECT_EQ(touch, "255.128.10.0");
  EXPECT_EQ(force, "200.0.0.1");
}

// The gates of the two version queries look at the other collection.
TEST_F(ReadFWTest, TouchQueryWithoutCol04StillSendsToTheInvalidHandle) {
  device.RemoveCollection(u"col04");
  std::string version = "x", error = "x";
  EXPECT_FALSE(Reader().ReadTouchVersion(version, error));
  EXPECT_EQ(version, "");
  EXPECT_EQ(error, "");
  EXPECT_EQ(device.failedSends, 1);
  EXPECT_EQ(device.failedReads, 1);
  EXPECT_EQ(clock.sleeps(), Sleeps{30});
}

TEST_F(ReadFWTest, TouchQueryWithoutCol05Refuses) {
  device.RemoveCollection(u"col05");
  std::string version, error;
  EXPECT_FALSE(Reader().ReadTouchVersion(version, error));
  EXPECT_EQ(error, "err: open touch device fail");
  EXPECT_TRUE(device.sent.empty());
  EXPECT_EQ(device.failedSends, 0);
}

TEST_F(ReadFWTest, ForceQueryWithoutCol04Refuses) {
  device.RemoveCollection(u"col04");
  std::string version, error;
  EXPECT_FALSE(Reader().ReadForceVersion(version, error));
  EXPECT_EQ(version, "");
  EXPECT_EQ(error, "err: open touch device fail");
  EXPECT_TRUE(device.sent.empty());
  EXPECT_TRUE(clock.sleeps().empty());
}

// --- calibration ---

TEST_F(ReadFWTest, CalibrationReadSendsTheExactSequenceAndWritesSignedValues) {
  device.calibration = {0x0102, 0x0304, 0xFFFF, 0x8000, 12, 0, 7};
  std::string text = "stale";
  ASSERT_TRUE(Reader().ReadCalibrateData(text));
  EXPECT_EQ(text, "258 772 -1 -32768 12 0 7");
  // Requests keep bytes 9 and 10 of the command before them.
  // Each command turns done 40 ms after it arrives; a report takes 1 ms.
  EXPECT_EQ(Frames(device),
            (std::vector<std::string>{kCommand12, kStatus12, kCommandBE, kStatusBE, kDataRequest,
                                      kCommand13, kStatus13, kStatus13, kStatus13, kStatus13,
                                      kStatus13}));
  EXPECT_EQ(clock.sleeps(),
            (Sleeps{150, 150, 300, 30, 1, 1, 1, 1, 1, 100, 6, 6, 6, 6, 6, 6}));
  EXPECT_FALSE(device.calibrationMode());
}

TEST_F(ReadFWTest, CalibrationReadTakesAtLeast730Ms) {
  device.commandDelayMs = 0;
  std::string text;
  ASSERT_TRUE(Reader().ReadCalibrateData(text));
  EXPECT_EQ(clock.sleeps(), (Sleeps{150, 150, 300, 30, 100, 6, 6}));
  EXPECT_EQ(clock.TotalSleptMs() - 12, 730u);
}

TEST_F(ReadFWTest, ANeverReadyStatusTimesOutAfterFourWholeSeconds) {
  device.neverReady = {0xBE};
  std::string text;
  EXPECT_FALSE(Reader().ReadCalibrateData(text));
  EXPECT_EQ(text, "err: read force calibrate data fail");
  // Two ms a poll (the 1 ms pause and the report): 4000 ms is 2000 polls; a
  // time-out at 3 s would have given up after 1500.
  size_t polls = 0;
  for (uint32_t ms : clock.sleeps()) polls += ms == 1;
  EXPECT_EQ(polls, 2000u);
  // No data request; command 13 is still sent.
  const std::vector<std::string> frames = Frames(device);
  EXPECT_EQ(std::count(frames.begin(), frames.end(), kDataRequest), 0);
  EXPECT_EQ(std::count(frames.begin(), frames.end(), kCommand13), 1);
  EXPECT_FALSE(device.calibrationMode());
}

TEST_F(ReadFWTest, AZeroSumBlockIsRefusedUntilTheTimeOut) {
  device.calibration = {0, 0, 0, 0, 0, 0, 0};
  std::string text;
  EXPECT_FALSE(Reader().ReadCalibrateData(text));
  EXPECT_EQ(text, "err: read force calibrate data fail");
  // Polled at once, without pauses: only the report time passes.
  const Sleeps& sleeps = clock.sleeps();
  EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), 10u), 0);
  EXPECT_EQ(device.inputReports, 1 /*12*/ + 6 /*BE status*/ + 4000 /*data*/ + 5 /*13*/);

  device.calibration = {0x8000, 0x8000, 1, 0xFFFF, 0, 0, 0};  // sums to -65536
  EXPECT_FALSE(Reader().ReadCalibrateData(text));
}

TEST_F(ReadFWTest, BlocksNotReadyArePolledAtOnceAndBadChecksumsAfter10Ms) {
  device.commandDelayMs = 0;
  device.blocksNotReady = 3;
  device.blocksWithBadChecksum = 2;
  std::string text;
  ASSERT_TRUE(Reader().ReadCalibrateData(text));
  EXPECT_EQ(text, "258 772 -1 -32768 12 0 7");
  EXPECT_EQ(clock.sleeps(), (Sleeps{150, 150, 300, 30, 100, 10, 10, 6, 6}));
}

TEST_F(ReadFWTest, CalibrationWithoutCol05Refuses) {
  device.RemoveCollection(u"col05");
  std::string text;
  EXPECT_FALSE(Reader().ReadCalibrateData(text));
  EXPECT_EQ(text, "err: open force device fail");
  EXPECT_TRUE(device.sent.empty());
  EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(ReadFWTest, BeginAndEndGiveUpAfterTenAttempts) {
  device.neverReady = {0x12, 0x13};
  ReadFW& reader = Reader();
  EXPECT_FALSE(reader.BeginCalibrateRead());
  EXPECT_EQ(clock.sleeps(), Sleeps(20, 150));
  EXPECT_EQ(device.sent.size(), 20u);
  clock.ClearSleeps();
  device.sent.clear();
  EXPECT_FALSE(reader.EndCalibrateRead());
  EXPECT_EQ(clock.sleeps(), Sleeps(11, 6));
  EXPECT_EQ(device.sent.size(), 11u);
}

TEST_F(ReadFWTest, ARawReadWhoseCommandCannotBeSentFailsAtOnce) {
  device.RemoveCollection(u"col05");
  std::vector<uint16_t> values;
  EXPECT_FALSE(Reader().ReadCalibrateRaw(values, 3.0));
  EXPECT_TRUE(clock.sleeps().empty());
  EXPECT_EQ(device.failedSends, 1);
}

// --- handles ---

TEST_F(ReadFWTest, CloseHandlesClosesBothAndDestructionClosesThemAgainHarmlessly) {
  {
    ReadFW reader(device, clock);
    reader.Init();
    reader.CloseHandles();
    EXPECT_EQ(device.closes, 2);
    EXPECT_TRUE(reader.touch.IsOpen());
    EXPECT_TRUE(reader.force.IsOpen());
  }
  EXPECT_EQ(device.closes, 2);
  EXPECT_EQ(device.failedCloses, 2);
}

TEST_F(ReadFWTest, DefaultConstructionUsesTheInstalledHostAndClock) {
  Environment env;
  env.hid = &device;
  env.clock = &clock;
  ScopedEnvironment scope(env);
  ReadFW reader;
  reader.Init();
  std::string version, error;
  EXPECT_TRUE(reader.ReadForceVersion(version, error));
  EXPECT_EQ(version, "5.6.7.8");
  EXPECT_EQ(clock.sleeps(), Sleeps{150});
}

}  // namespace
}  // namespace calder
