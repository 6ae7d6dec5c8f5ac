#include <gtest/gtest.h>

#include "driver/folder_trust.h"
#include "driver/logging.h"
#include "driver/run_marker.h"
#include "base/log.h"
#include "tests/support/fake_system.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

using test::FakeSystem;
using test::LogCapture;

const std::string kKoru = "C:\\ProgramData\\KORU";
const std::string kService = kKoru + "\\KoruDeviceService";
const std::string kLog = kService + "\\log";
const std::string kMarker = kService + "\\Calder_ProcessPath.txt";
const char kLink[] = "is a reparse point (junction or link)";

PathFacts Link() { return {true, true, PathOwner::kSystemOrAdministrators}; }
PathFacts OwnedBy(PathOwner owner) { return {true, false, owner}; }

struct ChainCase {
  const char* name;
  std::string odd;  // the path with unusual facts, "" for none
  PathFacts facts;
  std::string folder;
  std::string refused;  // "" when trusted
  std::string reason;
};

void PrintTo(const ChainCase& c, std::ostream* os) { *os << c.name; }

class FolderChainTrust : public ::testing::TestWithParam<ChainCase> {};

TEST_P(FolderChainTrust, RefusesTheFirstFolderThatIsNotPlainAndAdministratorOwned) {
  const ChainCase& c = GetParam();
  FakeSystem sys;
  sys.AddFolder(kLog);
  sys.AddFolder(kKoru + "X\\log");
  if (!c.odd.empty()) sys.oddPaths[c.odd] = c.facts;
  const TrustVerdict verdict = CheckFolderChain(sys, kKoru, c.folder);
  EXPECT_EQ(verdict.trusted, c.refused.empty());
  EXPECT_EQ(verdict.path, c.refused);
  EXPECT_EQ(verdict.reason, c.reason);
}

const char kOtherOwner[] =
    "is owned by someone other than SYSTEM, Administrators, TrustedInstaller or this account";

INSTANTIATE_TEST_SUITE_P(
    Cases, FolderChainTrust,
    ::testing::Values(
        ChainCase{"Plain", "", {}, kLog, "", ""},
        ChainCase{"RootIsAJunction", kKoru, Link(), kLog, kKoru, kLink},
        ChainCase{"LeafIsALink", kLog, Link(), kLog, kLog, kLink},
        ChainCase{"MiddleOwnedByAUser", kService, OwnedBy(PathOwner::kOther), kLog, kService,
                  kOtherOwner},
        ChainCase{"OwnerUnreadable", kLog, OwnedBy(PathOwner::kUnreadable), kLog, kLog,
                  "has an owner that cannot be read"},
        ChainCase{"MiddleMissing", kService, {}, kLog, kService, "does not exist"},
        ChainCase{"OwnedByTheRunningAccount", kService, OwnedBy(PathOwner::kRunningAccount), kLog,
                  "", ""},
        ChainCase{"BelowTheCheckedFolder", kLog, Link(), kService, "", ""},
        ChainCase{"RootItselfOnly", kKoru, OwnedBy(PathOwner::kOther), kKoru, kKoru, kOtherOwner},
        ChainCase{"ALookAlikeOfTheRoot", "", {}, kKoru + "X\\log", kKoru + "X\\log",
                  "lies outside " + kKoru}),
    [](const auto& info) { return std::string(info.param.name); });

class TrustedWrites : public ::testing::Test {
 protected:
  TrustedWrites() { sys.Into(&env); }
  ~TrustedWrites() override { QuietDefaultLogger(); }

  FakeSystem sys;
  Environment env;
  LogCapture log;
};

TEST_F(TrustedWrites, FoldersTheProgramCreatesAreTrusted) {
  ScopedEnvironment scope(env);
  CreateFolderChain(kLog);
  EXPECT_TRUE(CheckFolderChain(sys, kTrustRoot, kLog).trusted);
}

TEST_F(TrustedWrites, NothingIsCreatedBelowARefusedFolder) {
  sys.oddPaths[kKoru] = Link();
  ScopedEnvironment scope(env);
  CreateFolderChain(kLog);
  EXPECT_EQ(sys.createdDirs, (std::vector<std::string>{"C:", "C:\\ProgramData", kKoru}));
}

TEST_F(TrustedWrites, ARefusedLogFolderLeavesStandardOutputOnlyAndSaysWhy) {
  sys.AddFolder(kLog);
  sys.oddPaths[kService] = OwnedBy(PathOwner::kOther);
  ScopedEnvironment scope(env);
  InitLogging();
  el::Logger* logger = el::Loggers::getLogger("default");
  EXPECT_FALSE(logger->typedConfigurations()->toFile(el::Level::Info));
  EXPECT_TRUE(logger->typedConfigurations()->toStandardOutput(el::Level::Info));
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                             "ERROR logging.cpp: log file refused: " + kService + " " + kOtherOwner}));
}

TEST_F(TrustedWrites, TheMarkerIsNeitherWrittenNorDeletedThroughARefusedFolder) {
  sys.AddFile(kMarker, "old");
  sys.oddPaths[kKoru] = Link();
  ScopedEnvironment scope(env);
  WriteProcessPathMarker();
  DeleteProcessPathMarker();
  EXPECT_EQ(sys.files[kMarker], "old");
  const std::string line = "ERROR logging.cpp: run marker refused: " + kKoru + " " + kLink;
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{line, line}));
}

TEST_F(TrustedWrites, ALinkWhereTheMarkerGoesIsNeitherFollowedNorDeleted) {
  sys.AddFile(kMarker, "link");
  sys.oddPaths[kMarker] = Link();
  ScopedEnvironment scope(env);
  WriteProcessPathMarker();
  DeleteProcessPathMarker();
  EXPECT_EQ(sys.files[kMarker], "link");
  EXPECT_EQ(log.Messages(), (std::vector<std::string>(
                                2, "run marker refused: " + kMarker + " " + kLink)));
}

}  // namespace
}  // namespace calder
