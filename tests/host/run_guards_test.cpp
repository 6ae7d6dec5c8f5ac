#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/run_guards.h"
#include "driver/shutdown_guard.h"
#include "platform/environment.h"
#include "platform/update_lock.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

using Strings = std::vector<std::string>;

// The guards' platform, recording what they ask of it in order.
struct GuardPlatform : UpdateLock, PowerStatusSource, ShutdownBlocker {
  LockAttempt Acquire() override { return calls.push_back("Acquire"), lock; }
  void Release() override { calls.push_back("Release"); }
  PowerStatus Read() override { return calls.push_back("ReadPower"), power; }
  void Block(const wchar_t* text) override { calls.push_back("Block"), reason = text; }
  void Unblock() override { calls.push_back("Unblock"); }
  void EndProcess(int code) override { calls.push_back("EndProcess " + std::to_string(code)); }

  LockAttempt lock{LockOutcome::Taken, 0};
  PowerStatus power{1, 8, 60};
  Strings calls;
  std::wstring reason;
};

struct Admission {
  bool admitted;
  std::string out;  // standard output
};

class RunGuardsTest : public testing::Test {
 protected:
  RunGuardsTest() {
    env.updateLock = &platform;
    env.powerStatus = &platform;
  }

  Admission Admit(Strings args) {
    ScopedEnvironment scope(env);
    args.insert(args.begin(), "calder.exe");
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    testing::internal::CaptureStdout();
    bool admitted = RunAdmission(static_cast<int>(argv.size()), argv.data()).Admitted();
    return {admitted, testing::internal::GetCapturedStdout()};
  }

  GuardPlatform platform;
  Environment env;
  test::LogCapture log;
};

const char kLowBattery[] = "ERROR run_guards.cpp: battery too low for an update: ";

struct BatteryCase {
  const char* name;
  PowerStatus power;
  bool admitted;
  Strings log;
};

class BatteryTest : public RunGuardsTest, public testing::WithParamInterface<BatteryCase> {};

TEST_P(BatteryTest, OnlyAKnownLowOrCriticalBatteryStopsTheUpdate) {
  platform.power = GetParam().power;
  EXPECT_EQ(Admit({"--update"}).admitted, GetParam().admitted);
  EXPECT_EQ(log.Lines(), GetParam().log);
  EXPECT_EQ(platform.calls, (Strings{"Acquire", "ReadPower", "Release"}));
}

// Flags as Windows sets them: 2 low, 4 critical, 8 charging, 128 no battery.
INSTANTIATE_TEST_SUITE_P(Rule, BatteryTest, testing::Values(
    BatteryCase{"OnBattery24", {0, 2, 24}, false,
                {kLowBattery + std::string("24 % on battery, needs 25 % or AC power")}},
    BatteryCase{"OnBattery25", {0, 2, 25}, true, {}},
    BatteryCase{"OnBatteryFlaggedCritical", {0, 4, 40}, false,
                {kLowBattery + std::string("40 % on battery, needs 25 % or AC power")}},
    BatteryCase{"AcAt5", {1, 2 | 4 | 8, 5}, true, {}},
    BatteryCase{"UnknownAcAt5", {255, 4, 5}, true, {}},
    BatteryCase{"UnknownChargeNoBattery", {0, 128, 255}, true, {}},
    BatteryCase{"UnknownFlagsAt30", {0, 255, 30}, true, {}}),
    [](const testing::TestParamInfo<BatteryCase>& info) { return std::string(info.param.name); });

struct LockCase {
  const char* name;
  LockAttempt lock;
  Strings args;
  Admission admission;
  Strings calls;
  Strings log;
};

class LockTest : public RunGuardsTest, public testing::WithParamInterface<LockCase> {};

TEST_P(LockTest, EachOutcomeLeadsWhereItShould) {
  const LockCase& c = GetParam();
  platform.lock = c.lock;
  platform.power = {0, 2, 10};  // read only when the update may go on
  const Admission admission = Admit(c.args);
  EXPECT_EQ(admission.admitted, c.admission.admitted);
  EXPECT_EQ(admission.out, c.admission.out);
  EXPECT_EQ(platform.calls, c.calls);
  EXPECT_EQ(log.Lines(), c.log);
}

const char kRunning[] = "ERROR run_guards.cpp: another update is running";
const char kNoVersion[] = "compound version:0.0.0.0.0.0.0.0\n";
INSTANTIATE_TEST_SUITE_P(Outcomes, LockTest, testing::Values(
    LockCase{"FreeWindowRun", {LockOutcome::Taken, 0}, {}, {true, ""}, {"Acquire", "Release"}, {}},
    LockCase{"FreeVersion", {LockOutcome::Taken, 0}, {"--version"}, {true, ""},
             {"Acquire", "Release"}, {}},
    LockCase{"HeldUpdate", {LockOutcome::Held, 0}, {"--update"}, {false, ""}, {"Acquire"},
             {kRunning}},
    LockCase{"HeldVersion", {LockOutcome::Held, 0}, {"--version"}, {false, kNoVersion},
             {"Acquire"}, {kRunning}},
    LockCase{"HeldWindowRun", {LockOutcome::Held, 0}, {"--UPDATE"}, {false, ""}, {"Acquire"},
             {kRunning}},
    LockCase{"Abandoned", {LockOutcome::TakenOver, 0}, {"--version"}, {true, ""},
             {"Acquire", "Release"},
             {"INFO run_guards.cpp: previous update ended without releasing the lock"}},
    LockCase{"NotCreatable", {LockOutcome::NotCreatable, 5}, {"--update"}, {false, ""},
             {"Acquire", "ReadPower"},
             {"INFO run_guards.cpp: update lock could not be created: error 5",
              kLowBattery + std::string("10 % on battery, needs 25 % or AC power")}}),
    [](const testing::TestParamInfo<LockCase>& info) { return std::string(info.param.name); });

TEST_F(RunGuardsTest, WithoutTheSeamsEveryRunGoesOn) {
  env = Environment{};
  EXPECT_TRUE(Admit({"--update"}).admitted);
  EXPECT_TRUE(log.Lines().empty());
}

// The shutdown block through one run: nothing before the window, held from
// the window to the final 100 %, one line per refused request.
TEST_F(RunGuardsTest, ShutdownIsHeldOffFromTheWindowToTheFinal100) {
  ShutdownGuard guard(platform);
  EXPECT_TRUE(guard.MaySessionEnd());
  guard.UpdateStarted();
  EXPECT_EQ(platform.reason, L"正在升级触控板固件，请勿关机");
  EXPECT_FALSE(guard.MaySessionEnd());
  guard.SessionEnding(false);
  EXPECT_FALSE(guard.MaySessionEnd());
  guard.UpdateFinished();
  EXPECT_TRUE(guard.MaySessionEnd());
  guard.SessionEnding(true);  // after the update: the system ends the process
  guard.UpdateFinished();
  EXPECT_EQ(platform.calls, (Strings{"Block", "Unblock"}));
  const std::string refused = "INFO shutdown_guard.cpp: shutdown refused: update in progress";
  EXPECT_EQ(log.Lines(), (Strings{refused, refused}));
}

TEST_F(RunGuardsTest, ASessionThatEndsAnywayDuringTheUpdateEndsTheProcessWith1) {
  ShutdownGuard guard(platform);
  guard.UpdateStarted();
  guard.SessionEnding(true);
  EXPECT_EQ(platform.calls, (Strings{"Block", "EndProcess 1"}));
  EXPECT_EQ(log.Lines(), Strings{"ERROR shutdown_guard.cpp: session ending during update"});
}

}  // namespace
}  // namespace calder
