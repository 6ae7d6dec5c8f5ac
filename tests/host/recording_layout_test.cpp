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
  const std::string kPieces[] = {kProgram + "\\vendor", kProgram + "\\btl_upgrade.dll",
                                 kProgram + "\\btl_hid_transfer.dll",
                                 kProgram + "\\vendor\\btl_upgrade.dll",
                                 kProgram + "\\vendor\\btl_hid_transfer.dll", kProgram};
  const PathFacts kOdd[] = {{}, {true, true, PathOwner::kSystemOrAdministrators},
                            {true, false, PathOwner::kOther}, {true, false, PathOwner::kUnreadable}};
  test::FakeSystem whole;
  for (const std::string& piece : kPieces) whole.AddFolder(piece);
  EXPECT_TRUE(IsRecordingLayout(whole, kProgram));
  EXPECT_FALSE(IsRecordingLayout(whole, ""));
  for (const std::string& piece : kPieces) {
    for (const PathFacts& odd : kOdd) {
      test::FakeSystem sys = whole;
      sys.oddPaths[piece] = odd;
      EXPECT_FALSE(IsRecordingLayout(sys, kProgram)) << piece << " " << odd.exists << odd.isReparsePoint;
    }
  }
}

TEST(RecordingLayoutTest, TheHidTraceGoesOnlyWhereTheLogMayAndNeverThroughALink) {
  const struct {
    std::string odd;  // "" for none
    bool exists;
    std::string path;
  } kCases[] = {
      {"", false, kTrace},
      {"C:\\ProgramData\\KORU", true, ""},  // a junction up the chain
      {kLog, true, ""},
      {kTrace, true, ""},  // a link planted at the trace's name
  };
  for (const auto& c : kCases) {
    test::FakeSystem sys;
    sys.AddFolder(kLog);
    if (!c.odd.empty()) sys.oddPaths[c.odd] = {c.exists, true, PathOwner::kSystemOrAdministrators};
    Environment env;
    sys.Into(&env);
    ScopedEnvironment scope(env);
    EXPECT_EQ(HidTracePath(sys.now, sys.pid), c.path) << c.odd;
  }
}

}  // namespace
}  // namespace calder
