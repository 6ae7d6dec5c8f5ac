#include <gtest/gtest.h>

#include <functional>
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

const char kCalidata[] = "INFO calder.cpp: calidata: 258 772 -1 -32768 12 0 7";

struct ReportCase {
  const char* name;
  std::function<void(TouchDevice&)> device;
  int rc;
  std::string out;
  Lines log;
  Lines queries;
  int failedCloses;  // the report closes the handles only on success; the release closes them again
};

class ReportTest : public VersionReportTest, public testing::WithParamInterface<ReportCase> {};

TEST_P(ReportTest, PrintsTheCompoundVersionOrTheFallback) {
  GetParam().device(device);
  EXPECT_EQ(Run(), GetParam().rc);
  EXPECT_EQ(out, GetParam().out);
  EXPECT_EQ(log.Lines(), GetParam().log);
  EXPECT_EQ(Queries(), GetParam().queries);
  EXPECT_EQ(device.closes, device.interfaces.empty() ? 0 : 2);
  EXPECT_EQ(device.failedCloses, GetParam().failedCloses);
}

INSTANTIATE_TEST_SUITE_P(Cases, ReportTest, testing::Values(
        // Queried calibration, force, touchpad, although printed the other way.
        ReportCase{"AllReadable", [](TouchDevice&) {}, 0, "compound version:1.2.3.4.5.6.7.8\n",
                   {kCalidata, "INFO calder.cpp: tp version : 1.2.3.4 force version : 5.6.7.8",
                    "INFO calder.cpp: finish---------------------------------------"},
                   {"calibration", "force version", "touch version"}, 2},
        ReportCase{"NoDevice", [](TouchDevice& d) { d.interfaces.clear(); }, 1, kFallback,
                   {"ERROR calder.cpp: err: open force device fail"}, {}, 0},
        ReportCase{"ZeroForceVersion", [](TouchDevice& d) { d.forceVersion = {0, 0, 0, 0}; }, 1, kFallback,
                   {kCalidata, "ERROR calder.cpp: err: read force device fail"}, {"calibration", "force version"}, 0}),
    [](const testing::TestParamInfo<ReportCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace calder
