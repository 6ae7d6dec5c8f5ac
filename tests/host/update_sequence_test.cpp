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
using test::LogCapture;

// The phases stand in through the phase table and record into the same call
// list as the fake system, so one list shows the whole order.
struct PhaseScript {
  bool reset = true;
  int touchpad = 0;
  bool force = true;
  int version = 0;
  std::vector<std::string> touchpadArgs;
};
FakeSystem* g_sys = nullptr;
VirtualClock* g_clock = nullptr;
PhaseScript* g_script = nullptr;

bool FakeReset() {
  g_sys->calls.push_back("WMIBiosTPReset");
  return g_script->reset;
}
int FakeTouchpad(int argc, char** argv) {
  g_sys->calls.push_back("TPMain after " + std::to_string(g_clock->TotalSleptMs()) + " ms");
  g_script->touchpadArgs.assign(argv, argv + argc);
  return g_script->touchpad;
}
bool FakeForce() {
  g_sys->calls.push_back("UpgradeForceFW");
  return g_script->force;
}
int FakeVersion() {
  g_sys->calls.push_back("VersionReport");
  return g_script->version;
}

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
    sys.AddFile("C:\\Tools\\Calder\\TP\\tp_fw.bin");
  }
  ~UpdateSequenceTest() override { Phases() = saved_; }

  int Run(std::vector<std::string> args) {
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
  LogCapture log;

 private:
  UpdatePhases saved_;
};

const std::vector<std::string> kPowerOn = {
    "PowerCreateRequest Firmware screen update in progress", "PowerSetRequest Display",
    "PowerSetRequest System"};
const std::vector<std::string> kPowerOff = {"PowerClearRequest Display", "PowerClearRequest System",
                                            "CloseHandle"};

std::vector<std::string> Concat(std::vector<std::vector<std::string>> parts) {
  std::vector<std::string> out;
  for (auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

TEST_F(UpdateSequenceTest, FullSuccessRunsEveryPhaseInOrderAndRemovesTheMarker) {
  EXPECT_EQ(Run({"--update", "ignored"}), 0);
  EXPECT_EQ(sys.calls, Concat({kPowerOn,
                               {"CoInitializeEx", "ListFolder C:\\Tools\\Calder\\TP\\*",
                                "WMIBiosTPReset", "TPMain after 3000 ms", "UpgradeForceFW",
                                "CoUninitialize"},
                               kPowerOff}));
  EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>{3000});
  EXPECT_EQ(script.touchpadArgs,
            (std::vector<std::string>{"TPUpdate.exe", "upgrade", "C:\\Tools\\Calder\\TP\\tp_fw.bin"}));
  EXPECT_EQ(sys.posts, std::vector<int>{20});
  EXPECT_FALSE(sys.HasFile(kMarker));
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                             "INFO calder.cpp: ---start tp update---",
                             "INFO calder.cpp: WMIBiosTPReset success",
                             "INFO calder.cpp: tp update success",
                             "INFO calder.cpp: ---tp update over---",
                             "INFO calder.cpp: ---start force update---",
                             "INFO calder.cpp: force update success"}));
}

TEST_F(UpdateSequenceTest, FailedBiosResetIsLoggedAndIgnored) {
  script.reset = false;
  EXPECT_EQ(Run({"--update"}), 0);
  EXPECT_TRUE(log.Contains("WMIBiosTPReset failed"));
  EXPECT_EQ(log.entries()[1].level, "INFO");
}

TEST_F(UpdateSequenceTest, TouchpadFailureSkipsForceKeepsMarkerAndComAndPostsNothing) {
  script.touchpad = 7;
  EXPECT_EQ(Run({"--update"}), 1);
  EXPECT_EQ(sys.calls, Concat({kPowerOn,
                               {"CoInitializeEx", "ListFolder C:\\Tools\\Calder\\TP\\*",
                                "WMIBiosTPReset", "TPMain after 3000 ms"},
                               kPowerOff}));
  EXPECT_TRUE(sys.HasFile(kMarker));
  EXPECT_TRUE(sys.posts.empty());
  EXPECT_EQ(log.Lines().back(), "ERROR calder.cpp: tp update failed");
}

TEST_F(UpdateSequenceTest, ForceFailureUninitialisesComButKeepsTheMarker) {
  script.force = false;
  EXPECT_EQ(Run({"--update"}), 1);
  EXPECT_EQ(sys.calls[sys.calls.size() - 4], "CoUninitialize");
  EXPECT_TRUE(sys.HasFile(kMarker));
  EXPECT_EQ(sys.posts, std::vector<int>{20});
  EXPECT_EQ(log.Lines().back(), "ERROR calder.cpp: force update failed");
}

TEST_F(UpdateSequenceTest, MarkerFromAFailedRunIsRemovedByTheNextGoodRun) {
  script.force = false;
  EXPECT_EQ(Run({"--update"}), 1);
  script.force = true;
  EXPECT_EQ(Run({"--update"}), 0);
  EXPECT_FALSE(sys.HasFile(kMarker));
}

TEST_F(UpdateSequenceTest, ComFailureStopsBeforeTheMarkerWithASignedCode) {
  sys.comResult = -2147417850L;  // RPC_E_CHANGED_MODE
  EXPECT_EQ(Run({"--update"}), 1);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"INFO calder.cpp: CoInitializeEx failed: -2147417850"});
  EXPECT_FALSE(sys.HasFile(kMarker));
  EXPECT_EQ(sys.calls, Concat({kPowerOn, {"CoInitializeEx"}, kPowerOff}));
}

TEST_F(UpdateSequenceTest, MissingTouchpadFolderPassesAnEmptyPath) {
  sys.files.clear();
  EXPECT_EQ(Run({"--update"}), 0);
  EXPECT_EQ(script.touchpadArgs, (std::vector<std::string>{"TPUpdate.exe", "upgrade", ""}));
}

TEST_F(UpdateSequenceTest, NoArgumentFinishesAtOnce) {
  EXPECT_EQ(Run({}), 0);
  EXPECT_EQ(sys.calls, Concat({kPowerOn, kPowerOff}));
  EXPECT_EQ(log.Lines(),
            std::vector<std::string>{"INFO calder.cpp: finish---------------------------------------"});
}

TEST_F(UpdateSequenceTest, UnknownOrWrongCaseCommandIsRefused) {
  for (const char* arg : {"--UPDATE", "update", "", "--version2"}) {
    log.Clear();
    EXPECT_EQ(Run({arg}), 1) << arg;
    EXPECT_EQ(log.Lines(), std::vector<std::string>{"INFO calder.cpp: invalid input"}) << arg;
  }
  EXPECT_TRUE(sys.files.empty() || !sys.HasFile(kMarker));
}

TEST_F(UpdateSequenceTest, VersionDispatchesToTheReportAndReturnsItsResult) {
  script.version = 1;
  EXPECT_EQ(Run({"--version", "extra"}), 1);
  EXPECT_EQ(sys.calls, Concat({kPowerOn, {"VersionReport"}, kPowerOff}));
}

TEST_F(UpdateSequenceTest, InvalidPowerHandleIsNeitherSetNorCleared) {
  sys.powerHandle = kInvalidPowerRequest;
  EXPECT_EQ(Run({}), 0);
  EXPECT_EQ(sys.calls,
            std::vector<std::string>{"PowerCreateRequest Firmware screen update in progress"});
}

}  // namespace
}  // namespace calder
