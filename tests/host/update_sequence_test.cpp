#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/calder.h"
#include "driver/update_phases.h"
#include "platform/clock.h"
#include "tests/support/fake_system.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

using test::FakeSystem;
using Strings = std::vector<std::string>;
const char kFinish[] = "finish---------------------------------------";

// The phases stand in through the phase table and record into the same call
// list as the fake system, so one list shows the whole order.
struct PhaseScript {
  bool reset = true;
  int touchpad = 0;
  bool force = true;
  int version = 0;
  Strings touchpadArgs;
};
FakeSystem* g_sys = nullptr;
VirtualClock* g_clock = nullptr;
PhaseScript* g_script = nullptr;

int Called(const std::string& call, int result) { return g_sys->calls.push_back(call), result; }
bool FakeReset() { return Called("WMIBiosTPReset", g_script->reset); }
bool FakeForce() { return Called("UpgradeForceFW", g_script->force); }
int FakeVersion() { return Called("VersionReport", g_script->version); }
int FakeTouchpad(int argc, char** argv) {
  g_script->touchpadArgs.assign(argv, argv + argc);
  return Called("TPMain after " + std::to_string(g_clock->TotalSleptMs()) + " ms", g_script->touchpad);
}

const char kTpFile[] = "C:\\Tools\\Calder\\TP\\tp_fw.bin";
const char kMarker[] = "C:\\ProgramData\\KORU\\KoruDeviceService\\Calder_ProcessPath.txt";

class UpdateSequenceTest : public testing::Test {
 protected:
  UpdateSequenceTest() : saved_(Phases()) {
    g_sys = &sys;
    g_clock = &clock;
    g_script = &script;
    Phases() = UpdatePhases{&FakeReset, &FakeTouchpad, &FakeForce, &FakeVersion};
    sys.Into(&env);
    env.clock = &clock;
    sys.AddFile(kTpFile);
  }
  ~UpdateSequenceTest() override { Phases() = saved_; }

  int Run(Strings args) {
    ScopedEnvironment scope(env);
    args.insert(args.begin(), "calder.exe");
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    return main(static_cast<int>(args.size()), argv.data());
  }

  FakeSystem sys;
  VirtualClock clock;
  Environment env;
  PhaseScript script;
  test::LogCapture log;

 private:
  UpdatePhases saved_;
};

const Strings kPowerOn = {"PowerCreateRequest Firmware screen update in progress", "PowerSetRequest Display",
                          "PowerSetRequest System"};
const Strings kPowerOff = {"PowerClearRequest Display", "PowerClearRequest System", "CloseHandle"};

Strings Concat(std::vector<Strings> parts) {
  Strings out;
  for (auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

std::string I(const std::string& message) { return "INFO calder.cpp: " + message; }
const Strings kUntilReset = {"CoInitializeEx", "ListFolder C:\\Tools\\Calder\\TP\\*", "WMIBiosTPReset",
                             "TPMain after 3000 ms"};
const Strings kBothPhases = Concat({kUntilReset, {"UpgradeForceFW", "CoUninitialize"}});
const Strings kTouchpadDone = {I("tp update success"), I("---tp update over---"), I("---start force update---")};

struct RunCase {
  const char* name;
  Strings args;
  PhaseScript phases;
  long com;
  int rc;
  Strings calls;  // between taking and giving back the power request
  std::vector<int> posts;
  bool markerLeft;
  Strings log;
};

class MainTest : public UpdateSequenceTest, public testing::WithParamInterface<RunCase> {};

TEST_P(MainTest, RunsItsPathAndReturnsItsResult) {
  const RunCase& c = GetParam();
  script = c.phases;
  sys.comResult = c.com;
  EXPECT_EQ(Run(c.args), c.rc);
  EXPECT_EQ(sys.calls, Concat({kPowerOn, c.calls, kPowerOff}));
  EXPECT_EQ(sys.posts, c.posts);
  EXPECT_EQ(sys.HasFile(kMarker), c.markerLeft);
  EXPECT_EQ(log.Lines(), c.log);
}

const PhaseScript kGood;
INSTANTIATE_TEST_SUITE_P(Paths, MainTest, testing::Values(
        RunCase{"NoArgument", {}, kGood, 0, 0, {}, {}, false, {I(kFinish)}},
        RunCase{"WrongCase", {"--UPDATE"}, kGood, 0, 1, {}, {}, false, {I("invalid input")}},
        RunCase{"Version", {"--version", "extra"}, {true, 0, true, 1, {}}, 0, 1, {"VersionReport"}, {}, false, {}},
        RunCase{"FullUpdate", {"--update", "ignored"}, kGood, 0, 0, kBothPhases, {20}, false,
                Concat({{I("---start tp update---"), I("WMIBiosTPReset success")}, kTouchpadDone,
                        {I("force update success")}})},
        RunCase{"ResetFails", {"--update"}, {false, 0, true, 0, {}}, 0, 0, kBothPhases, {20}, false,
                Concat({{I("---start tp update---"), I("WMIBiosTPReset failed")}, kTouchpadDone,
                        {I("force update success")}})},
        RunCase{"TouchpadFails", {"--update"}, {true, 7, true, 0, {}}, 0, 1, kUntilReset, {}, true,
                {I("---start tp update---"), I("WMIBiosTPReset success"), "ERROR calder.cpp: tp update failed"}},
        RunCase{"ForceFails", {"--update"}, {true, 0, false, 0, {}}, 0, 1, kBothPhases, {20}, true,
                Concat({{I("---start tp update---"), I("WMIBiosTPReset success")}, kTouchpadDone,
                        {"ERROR calder.cpp: force update failed"}})},
        RunCase{"ComFails", {"--update"}, kGood, -2147417850L, 1, {"CoInitializeEx"}, {}, false,
                {I("CoInitializeEx failed: -2147417850")}}),
    [](const testing::TestParamInfo<RunCase>& info) { return std::string(info.param.name); });

TEST_F(UpdateSequenceTest, TheTouchpadGetsTheFirstFileOfItsFolderOrAnEmptyPath) {
  EXPECT_EQ(Run({"--update"}), 0);
  EXPECT_EQ(script.touchpadArgs, (Strings{"TPUpdate.exe", "upgrade", kTpFile}));
  EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>{3000});
  sys.files.clear();
  EXPECT_EQ(Run({"--update"}), 0);
  EXPECT_EQ(script.touchpadArgs, (Strings{"TPUpdate.exe", "upgrade", ""}));
}

TEST_F(UpdateSequenceTest, AnInvalidPowerHandleIsNeitherSetNorCleared) {
  sys.powerHandle = kInvalidPowerRequest;
  EXPECT_EQ(Run({}), 0);
  EXPECT_EQ(sys.calls, Strings{"PowerCreateRequest Firmware screen update in progress"});
}

}  // namespace
}  // namespace calder
