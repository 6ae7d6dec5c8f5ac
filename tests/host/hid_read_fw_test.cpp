#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "hid/read_fw.h"
#include "sim/touch_device.h"

namespace calder {
namespace {

using sim::TouchDevice;
using Sleeps = std::vector<uint32_t>;
using Strings = std::vector<std::string>;

// Bytes 0 to 10 of each output report the device accepted, in order.
Strings Frames(const TouchDevice& device) {
  Strings frames;
  for (const sim::SentReport& report : device.sent) frames.push_back(sim::HexBytes(report.bytes, 11));
  return frames;
}

const char kTouchRequest[] = "0E 07 B4 00 00 01 00 04 B6 00 00";
const char kForceRequest[] = "0D 07 16 00 00 01 00 04 10 00 00";
const char kCommand12[] = "0D 09 FE 00 00 03 00 00 02 12 EE";
const char kStatus12[] = "0D 07 02 00 00 01 00 02 02 12 EE";
const char kCommandBE[] = "0D 09 FD 01 00 03 00 00 02 BE 42";
const char kStatusBE[] = "0D 07 01 01 00 01 00 02 02 BE 42";
const char kDataRequest[] = "0D 07 AC 01 00 01 00 15 BE BE 42";
const char kCommand13[] = "0D 09 FF 01 00 03 00 00 02 13 ED";
const char kStatus13[] = "0D 07 01 01 00 01 00 02 02 13 ED";

enum class Query { kTouch, kForce, kCalibration };

class ReadFWTest : public testing::Test {
 protected:
  // Opens both collections, then forgets what that cost.
  ReadFW& Reader() {
    reader_ = std::make_unique<ReadFW>(device, clock);
    reader_->Init();
    device.sent.clear();
    clock.ClearSleeps();
    return *reader_;
  }

  bool Ask(Query query) {
    ReadFW& reader = Reader();
    if (query == Query::kTouch) return reader.ReadTouchVersion(version, error);
    if (query == Query::kForce) return reader.ReadForceVersion(version, error);
    return reader.ReadCalibrateData(error);
  }

  VirtualClock clock;
  TouchDevice device{clock};
  std::string version = "stale", error = "stale";

 private:
  std::unique_ptr<ReadFW> reader_;
};

struct VersionCase {
  Query query;
  std::vector<uint8_t> answer;  // from byte 1 on
  bool ok;
  std::string version, error;
};

class VersionQueryTest : public ReadFWTest, public testing::WithParamInterface<VersionCase> {};

TEST_P(VersionQueryTest, ReadsItsAnswer) {
  const VersionCase& c = GetParam();
  const bool touch = c.query == Query::kTouch;
  (touch ? device.touchAnswer : device.forceAnswer) = c.answer;
  EXPECT_EQ(Ask(c.query), c.ok);
  EXPECT_EQ(version, c.version);
  EXPECT_EQ(error, c.error);
  EXPECT_EQ(Frames(device), Strings{touch ? kTouchRequest : kForceRequest});
  EXPECT_EQ(device.sent[0].collection, touch ? sim::Collection::kTouch : sim::Collection::kForce);
  EXPECT_EQ(clock.sleeps(), Sleeps{touch ? 30u : 150u});
}

INSTANTIATE_TEST_SUITE_P(Answers, VersionQueryTest, testing::Values(
        // Touch fields come in the order 7.6.4.5, force fields 4.5.6.7.
        VersionCase{Query::kTouch, {0x06, 0xB6, 0, 1, 2, 3, 4}, true, "4.3.1.2", ""},
        VersionCase{Query::kTouch, {0x06, 0xB6, 0, 10, 0, 128, 255}, true, "255.128.10.0", ""},
        VersionCase{Query::kTouch, {0x06, 0x16, 0, 1, 2, 3, 4}, false, "", ""},
        VersionCase{Query::kTouch, {0x07, 0xB6, 0, 1, 2, 3, 4}, false, "", ""},
        VersionCase{Query::kForce, {0x06, 0x33, 0, 1, 2, 3, 4}, true, "1.2.3.4", ""},
        VersionCase{Query::kForce, {0x06, 0x16, 0, 200, 0, 0, 1}, true, "200.0.0.1", ""},
        VersionCase{Query::kForce, {0x06, 0x16, 0, 0, 0, 0, 0}, false, "0.0.0.0", "err: read force device fail"},
        VersionCase{Query::kForce, {0x05, 0x16, 0, 1, 2, 3, 4}, false, "", ""}));

// Each query is gated on a collection's handle; the version queries look at
// the other collection, so a query may still send to an invalid handle.
struct GateCase {
  Query query;
  std::u16string missing;
  std::string error;
  int failedSends;
  Sleeps sleeps;
};

class GateTest : public ReadFWTest, public testing::WithParamInterface<GateCase> {};

TEST_P(GateTest, RefusesOrSendsToTheInvalidHandle) {
  const GateCase& c = GetParam();
  device.RemoveCollection(c.missing);
  EXPECT_FALSE(Ask(c.query));
  EXPECT_EQ(error, c.error);
  EXPECT_TRUE(device.sent.empty());
  EXPECT_EQ(device.failedSends, c.failedSends);
  EXPECT_EQ(clock.sleeps(), c.sleeps);
}

INSTANTIATE_TEST_SUITE_P(Gates, GateTest, testing::Values(GateCase{Query::kTouch, u"col04", "", 1, {30}},
                    GateCase{Query::kTouch, u"col05", "err: open touch device fail", 0, {}},
                    GateCase{Query::kForce, u"col04", "err: open touch device fail", 0, {}},
                    GateCase{Query::kForce, u"col05", "", 1, {150}},
                    GateCase{Query::kCalibration, u"col05", "err: open force device fail", 0, {}}));

TEST_F(ReadFWTest, CalibrationReadSendsTheExactSequenceAndWritesSignedValues) {
  device.calibration = {0x0102, 0x0304, 0xFFFF, 0x8000, 12, 0, 7};
  ASSERT_TRUE(Ask(Query::kCalibration));
  EXPECT_EQ(error, "258 772 -1 -32768 12 0 7");
  // Requests keep bytes 9 and 10 of the command before them. Each command
  // turns done 40 ms after it arrives; a report takes 1 ms.
  EXPECT_EQ(Frames(device), (Strings{kCommand12, kStatus12, kCommandBE, kStatusBE, kDataRequest, kCommand13,
                                     kStatus13, kStatus13, kStatus13, kStatus13, kStatus13}));
  EXPECT_EQ(clock.sleeps(), (Sleeps{150, 150, 300, 30, 1, 1, 1, 1, 1, 100, 6, 6, 6, 6, 6, 6}));
  EXPECT_FALSE(device.calibrationMode());
}

TEST_F(ReadFWTest, BlocksNotReadyArePolledAtOnceAndBadChecksumsAfter10Ms) {
  device.commandDelayMs = 0;
  device.blocksNotReady = 3;
  device.blocksWithBadChecksum = 2;  // one wrong in its high byte, one in its low
  ASSERT_TRUE(Ask(Query::kCalibration));
  EXPECT_EQ(error, "258 772 -1 -32768 12 0 7");
  EXPECT_EQ(clock.sleeps(), (Sleeps{150, 150, 300, 30, 100, 10, 10, 6, 6}));
}

TEST_F(ReadFWTest, ANeverReadyStatusTimesOutAfterFourWholeSeconds) {
  device.neverReady = {0xBE};
  EXPECT_FALSE(Ask(Query::kCalibration));
  EXPECT_EQ(error, "err: read force calibrate data fail");
  // Two ms a poll (the pause and the report): 4 s is 2000 polls, 3 s 1500.
  EXPECT_EQ(std::count(clock.sleeps().begin(), clock.sleeps().end(), 1u), 2000);
  const Strings frames = Frames(device);
  EXPECT_EQ(std::count(frames.begin(), frames.end(), kDataRequest), 0);
  EXPECT_EQ(std::count(frames.begin(), frames.end(), kCommand13), 1);
  EXPECT_FALSE(device.calibrationMode());
}

TEST_F(ReadFWTest, BlocksThatSumToZeroAreRefusedWithoutPauses) {
  for (const auto& block : {std::array<uint16_t, 7>{0, 0, 0, 0, 0, 0, 0},
                            std::array<uint16_t, 7>{0x8000, 0x8000, 1, 0xFFFF, 0, 0, 0}}) {
    device.calibration = block;
    device.inputReports = 0;
    EXPECT_FALSE(Ask(Query::kCalibration));
    EXPECT_EQ(error, "err: read force calibrate data fail");
    EXPECT_EQ(std::count(clock.sleeps().begin(), clock.sleeps().end(), 10u), 0);
    EXPECT_EQ(device.inputReports, 1 /*12*/ + 6 /*BE status*/ + 4000 /*data*/ + 5 /*13*/);
  }
}

TEST_F(ReadFWTest, BeginAndEndGiveUpAfterTenAttempts) {
  device.neverReady = {0x12, 0x13};
  ReadFW& reader = Reader();
  EXPECT_FALSE(reader.BeginCalibrateRead());
  EXPECT_EQ(clock.sleeps(), Sleeps(20, 150));
  EXPECT_EQ(device.sent.size(), 20u);
  clock.ClearSleeps();
  EXPECT_FALSE(reader.EndCalibrateRead());
  EXPECT_EQ(clock.sleeps(), Sleeps(11, 6));
  EXPECT_EQ(device.sent.size(), 31u);
}

TEST_F(ReadFWTest, ARawReadWhoseCommandCannotBeSentFailsAtOnce) {
  device.RemoveCollection(u"col05");
  std::vector<uint16_t> values;
  EXPECT_FALSE(Reader().ReadCalibrateRaw(values, 3.0));
  EXPECT_TRUE(clock.sleeps().empty());
}

}  // namespace
}  // namespace calder
