#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "sim/trace/trace_emulation.h"

namespace calder::replay {
namespace {

std::string Header(const char* library) {
  return std::string(R"({"calder_trace":2,"library":")") + library + R"(","vendor_sha256":")" +
         std::string(64, '0') + R"(","started":"2026-11-25T13:14:15+01:00","pid":1,"dir":"C:\\pkg"})" + "\n";
}

std::string Call(int seq, const char* fn) {
  return R"({"seq":)" + std::to_string(seq) + R"(,"t_us":0,"ret_us":0,"fn":")" + fn + R"(","rc":0})" + "\n";
}

// Init, then open or the end of the run: every way out of the trace is told
// once, and the library answers as a dead device after it.
TEST(TraceEmulationTest, EachWayOutOfTheTraceIsToldOnceAndLeavesADeadDevice) {
  const std::string bridge = Header("btl_hid_transfer.dll");
  const std::string init = Call(1, "btl_init_driver_7853");
  const struct {
    std::string text;
    bool runEnds;  // after init
    int initResult;
    std::string problem;
  } cases[] = {
      {"", false, kDeadDeviceResult, "cannot answer from the trace: "},
      {Header("btl_upgrade.dll"), false, kDeadDeviceResult, "is a trace of btl_upgrade.dll, not of btl_hid_transfer.dll"},
      {bridge + init + R"({"seq":2,"t_)", false, 0, "ends before the run does: the run's call 2 came after"},
      {bridge + Call(1, "btl_open_device"), false, kDeadDeviceResult, "divergence at call 1: "},
      {bridge + init + Call(2, "btl_open_device"), true, 0, "divergence at call 2: "},
  };
  const std::string path = testing::TempDir() + "/calder-emulated.ndjson";
  for (const auto& c : cases) {
    std::ofstream(path, std::ios::binary) << c.text;
    TraceEmulation emulation(TraceLibrary::kBridge, path, "C:\\run");
    EXPECT_EQ(emulation.bridge().btl_init_driver_7853(), c.initResult) << c.problem;
    if (c.runEnds) {
      emulation.Finish();
    } else {
      EXPECT_EQ(emulation.bridge().btl_open_device(), kDeadDeviceResult) << c.problem;
    }
    const std::vector<std::string> problems = emulation.TakeProblems();
    ASSERT_EQ(problems.size(), 1u) << c.problem;
    EXPECT_NE(problems[0].find(c.problem), std::string::npos) << problems[0];
    EXPECT_EQ(emulation.bridge().btl_close_device(), kDeadDeviceResult) << c.problem;
    EXPECT_TRUE(emulation.TakeProblems().empty()) << c.problem;
  }
}

}  // namespace
}  // namespace calder::replay
