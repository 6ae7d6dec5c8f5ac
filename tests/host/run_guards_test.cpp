#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/run_guards.h"
#include "driver/run_mode.h"
#include "driver/shutdown_guard.h"
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
  LockAttempt lock;
  PowerStatus power{0, 2, 10};
  Strings calls;
  std::wstring reason;
};

// Flags as Windows sets them: 2 low, 4 critical, 8 charging, 128 no battery.
TEST(BatteryRuleTest, OnlyAKnownLowOrCriticalBatteryStopsAnUpdate) {
  const struct { PowerStatus power; bool allowed; } cases[] = {
      {{0, 2, 24}, false}, {{0, 2, 25}, true},   {{0, 4, 40}, false},    {{1, 2 | 4 | 8, 5}, true},
      {{255, 4, 5}, true}, {{0, 128, 255}, true}, {{0, 255, 30}, true}};
  for (const auto& c : cases) {
    EXPECT_EQ(BatteryAllowsUpdate(c.power), c.allowed) << c.power.acLine << " " << c.power.chargePercent;
  }
}

TEST(RunModeTest, OnlyExactlyOneArgumentVersionIsAVersionQuery) {
  std::string program = "calder.exe", version = "--version", other = "--VERSION";
  char* argv[] = {&program[0], &version[0], &version[0], nullptr};
  char* upper[] = {&program[0], &other[0], nullptr};
  char* missing[] = {&program[0], nullptr, nullptr};
  EXPECT_TRUE(ReadCommandLine(2, argv).versionQuery);
  EXPECT_FALSE(ReadCommandLine(3, argv).versionQuery);
  EXPECT_FALSE(ReadCommandLine(1, argv).versionQuery);
  EXPECT_FALSE(ReadCommandLine(2, upper).versionQuery);
  EXPECT_FALSE(ReadCommandLine(2, missing).versionQuery);
}

// Every run takes the lock; only "--update" reads the battery, and only with the lock.
TEST(RunAdmissionTest, EachLockOutcomeLeadsWhereItShould) {
  const std::string running = "ERROR run_guards.cpp: another update is running";
  const std::string low = "ERROR run_guards.cpp: battery too low for an update: 10 % on battery, needs 25 % or AC power";
  const struct { LockOutcome lock; std::string arg; bool admitted; std::string out; Strings calls, log;
                 PowerStatus power = {0, 2, 10}; unsigned long error = 120; } cases[] = {
      {LockOutcome::Taken, "--update", true, "", {"Acquire", "ReadPower", "Release"}, {}, {1, 2, 10}},
      {LockOutcome::Taken, "--version", true, "", {"Acquire", "Release"}, {}},
      {LockOutcome::Taken, "--update", false, "", {"Acquire", "ReadPower", "Release"}, {low}},
      // Held by another update: no error; squatted or denied: the system's, after the refusal.
      {LockOutcome::Held, "--update", false, "", {"Acquire"}, {running}, {0, 2, 10}, 0},
      {LockOutcome::Held, "--update", false, "", {"Acquire"}, {running, "INFO run_guards.cpp: update lock: error 5"},
       {0, 2, 10}, 5},
      {LockOutcome::Held, "--UPDATE", false, "", {"Acquire"}, {"INFO run_guards.cpp: run without an update refused", running},
       {0, 2, 10}, 0},
      {LockOutcome::Held, "--version", false, "compound version:0.0.0.0.0.0.0.0\n", {"Acquire"},
       {"INFO run_guards.cpp: version report refused", running}, {0, 2, 10}, 0},
      {LockOutcome::TakenOver, "--version", true, "", {"Acquire", "Release"},
       {"INFO run_guards.cpp: previous update ended without releasing the lock"}},
      {LockOutcome::NotCreatable, "--update", false, "", {"Acquire", "ReadPower"},
       {"INFO run_guards.cpp: update lock could not be created: error 120", low}}};
  for (auto c : cases) {
    GuardPlatform platform;
    platform.lock = {c.lock, c.error};
    platform.power = c.power;
    test::LogCapture log;
    std::string program = "calder.exe";
    char* argv[] = {&program[0], &c.arg[0], nullptr};
    testing::internal::CaptureStdout();
    EXPECT_EQ(RunAdmission(ReadCommandLine(2, argv), &platform, &platform).Admitted(), c.admitted) << c.arg;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
    EXPECT_EQ(platform.calls, c.calls) << c.arg;
    EXPECT_EQ(log.Lines(), c.log) << c.arg;
  }
}

// A lock that exists but cannot be opened may be a squatter or a live update:
// only a system without the calls runs unguarded.
TEST(LockFailureTest, OnlyMissingCallsLeaveTheRunUnguarded) {
  const struct { unsigned long error; LockOutcome outcome; } cases[] = {
      {5, LockOutcome::Held},            // access denied
      {6, LockOutcome::Held},            // the name is another kind of object
      {0, LockOutcome::Held},            // failed without a reason
      {8, LockOutcome::Held},            // out of memory
      {120, LockOutcome::NotCreatable},  // call not implemented
      {127, LockOutcome::NotCreatable}};  // entry point missing
  for (const auto& c : cases) {
    const LockAttempt attempt = LockFailure(c.error);
    EXPECT_EQ(attempt.outcome, c.outcome) << c.error;
    EXPECT_EQ(attempt.error, c.error);
  }
}

// Held from the window to the 100 % after the worker finished, one line per
// refused request; a session that ends anyway during the update ends the
// process with 1.
TEST(ShutdownGuardTest, HoldsOffTheSessionEndFromTheWindowToTheFinal100) {
  GuardPlatform platform;
  test::LogCapture log;
  ShutdownGuard guard;
  EXPECT_TRUE(guard.MaySessionEnd());
  guard.UpdateStarted(platform);
  EXPECT_EQ(platform.reason, L"正在升级触控板固件，请勿关机");
  EXPECT_FALSE(guard.MaySessionEnd());
  guard.SessionEnding(false);
  guard.UpdateFinished();  // the writer's 100 % from its last block
  EXPECT_FALSE(guard.MaySessionEnd());
  guard.WorkerFinished();
  guard.UpdateFinished();
  EXPECT_TRUE(guard.MaySessionEnd());
  guard.SessionEnding(true);  // after the update the system ends the process
  guard.UpdateStarted(platform);
  guard.SessionEnding(true);
  const std::string refused = "INFO shutdown_guard.cpp: shutdown refused: update in progress";
  EXPECT_EQ(log.Lines(), (Strings{refused, refused, "ERROR shutdown_guard.cpp: session ending during update"}));
  EXPECT_EQ(platform.calls, (Strings{"Block", "Unblock", "Block", "EndProcess 1"}));
}

}  // namespace
}  // namespace calder
