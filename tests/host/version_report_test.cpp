#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/calder.h"
#include "platform/environment.h"
#include "sim/touch_device.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

using sim::Collection;
using sim::TouchDevice;
using test::LogCapture;
using Lines = std::vector<std::string>;

const char kFallback[] = "compound version:0.0.0.0.0.0.0.0\n";

class VersionReportTest : public testing::Test {
 protected:
  VersionReportTest() {
    env.hid = &device;
    env.clock = &clock;
  }

  int Run() {
    ScopedEnvironment scope(env);
    testing::internal::CaptureStdout();
    const int rc = RunVersionReport();
    out = testing::internal::GetCapturedStdout();
    return rc;
  }

  // The collections in the order the frames reached them, runs collapsed,
  // with the version requests told apart from the calibration traffic.
  Lines Queries() const {
    Lines queries;
    for (const sim::SentReport& r : device.sent) {
      std::string q = r.collection == Collection::kTouch ? "touch version"
                      : r.bytes[8] == 0x10                ? "force version"
                                                          : "calibration";
      if (queries.empty() || queries.back() != q) queries.push_back(q);
    }
    return queries;
  }

  VirtualClock clock;
  TouchDevice device{clock};
  Environment env;
  LogCapture log;
  std::string out;
};

TEST_F(VersionReportTest, EverythingReadablePrintsTouchpadThenForceVersion) {
  device.touchVersion = {1, 2, 3, 4};
  device.forceVersion = {5, 6, 7, 8};
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(out, "compound version:1.2.3.4.5.6.7.8\n");
  EXPECT_EQ(log.Lines(), (Lines{"INFO calder.cpp: calidata: 258 772 -1 -32768 12 0 7",
                                "INFO calder.cpp: tp version : 1.2.3.4 force version : 5.6.7.8",
                                "INFO calder.cpp: finish---------------------------------------"}));
  // Queried calibration, force, touchpad, although printed the other way.
  EXPECT_EQ(Queries(), (Lines{"calibration", "force version", "touch version"}));
  // Closed by the report, then once more by the release.
  EXPECT_EQ(device.closes, 2);
  EXPECT_EQ(device.failedCloses, 2);
}

TEST_F(VersionReportTest, NoTouchDeviceFailsAtTheCalibrationRead) {
  device.interfaces.clear();
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(out, kFallback);
  EXPECT_EQ(log.Lines(), Lines{"ERROR calder.cpp: err: open force device fail"});
  EXPECT_TRUE(device.sent.empty());
}

TEST_F(VersionReportTest, UnreadableCalibrationFailsBeforeAnyVersionIsRead) {
  device.neverReady = {0xBE};
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(out, kFallback);
  EXPECT_EQ(log.Lines(), Lines{"ERROR calder.cpp: err: read force calibrate data fail"});
  EXPECT_EQ(Queries(), Lines{"calibration"});
}

TEST_F(VersionReportTest, AFailedForceQueryStopsTheReport) {
  device.forceVersion = {0, 0, 0, 0};
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(out, kFallback);
  EXPECT_EQ(log.Lines(), (Lines{"INFO calder.cpp: calidata: 258 772 -1 -32768 12 0 7",
                                "ERROR calder.cpp: err: read force device fail"}));
  EXPECT_EQ(Queries(), (Lines{"calibration", "force version"}));
  // Only the release closes the handles on a failure.
  EXPECT_EQ(device.closes, 2);
  EXPECT_EQ(device.failedCloses, 0);
}

TEST_F(VersionReportTest, AWrongTouchAnswerLogsAnEmptyError) {
  device.touchAnswer = {0x06, 0x00, 0x00, 1, 2, 3, 4};
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(out, kFallback);
  EXPECT_EQ(log.Lines().back(), "ERROR calder.cpp: ");
  EXPECT_EQ(Queries(), (Lines{"calibration", "force version", "touch version"}));
}

TEST_F(VersionReportTest, MissingCol05FailsTheCalibrationRead) {
  device.RemoveCollection(u"col05");
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(out, kFallback);
  EXPECT_EQ(log.Lines(), Lines{"ERROR calder.cpp: err: open force device fail"});
}

}  // namespace
}  // namespace calder
