#include <gtest/gtest.h>

#include "driver/recording_layout.h"
#include "tests/support/fake_system.h"

namespace calder {
namespace {

const std::string kProgram = "C:\\Tools\\Calder";
const std::string kLog = "C:\\ProgramData\\KORU\\KoruDeviceService\\log";
const std::string kTrace = kLog + "\\CalderTrace_2026-04-22_093015_4812_hid.ndjson";

// Only a layout every piece of which an administrator made counts: a piece
// missing, a link or another owner's is no layout, and nothing is recorded.
TEST(RecordingLayoutTest, EveryPieceMustBeThereAsAnAdministratorMadeIt) {
  const std::string v = kProgram + "\\vendor";
  const std::string kPieces[] = {kProgram, v, kProgram + "\\btl_upgrade.dll", kProgram + "\\btl_hid_transfer.dll",
                                 v + "\\btl_upgrade.dll", v + "\\btl_hid_transfer.dll"};
  const PathFacts kOdd[] = {{}, {true, true, PathOwner::kSystemOrAdministrators},
                            {true, false, PathOwner::kOther}, {true, false, PathOwner::kUnreadable}};
  test::FakeSystem whole;
  for (const std::string& piece : kPieces) whole.AddFolder(piece);
  EXPECT_TRUE(IsRecordingLayout(whole, kProgram) && !IsRecordingLayout(whole, ""));
  for (const std::string& piece : kPieces) {
    for (const PathFacts& odd : kOdd) {
      test::FakeSystem sys = whole;
      sys.oddPaths[piece] = odd;
      EXPECT_FALSE(IsRecordingLayout(sys, kProgram)) << piece << " " << odd.exists << odd.isReparsePoint;
    }
  }
}

TEST(RecordingLayoutTest, TheHidTraceGoesOnlyWhereTheLogMayAndNeverThroughALink) {
  // A junction up the chain, the log folder a link, a link planted at the name.
  const std::pair<std::string, std::string> kCases[] = {
      {"", kTrace}, {"C:\\ProgramData\\KORU", ""}, {kLog, ""}, {kTrace, ""}};
  for (const auto& [odd, path] : kCases) {
    test::FakeSystem sys;
    sys.AddFolder(kLog);
    if (!odd.empty()) sys.oddPaths[odd] = {true, true, PathOwner::kSystemOrAdministrators};
    Environment env;
    sys.Into(&env);
    ScopedEnvironment scope(env);
    EXPECT_EQ(HidTracePath(sys.now, sys.pid), path) << odd;
  }
}

}  // namespace
}  // namespace calder
