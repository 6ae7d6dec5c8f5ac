#include <gtest/gtest.h>

#include <cstdio>

#include "base/log.h"
#include "driver/logging.h"
#include "driver/run_marker.h"
#include "tests/support/fake_system.h"
#include "tests/support/log_capture.h"

namespace calder {
namespace {

using test::FakeSystem;

class MachineTest : public testing::Test {
 protected:
  static Environment Of(FakeSystem& sys) {
    Environment env;
    sys.Into(&env);
    return env;
  }
  FakeSystem sys;
  ScopedEnvironment scope{Of(sys)};
};

TEST(LogFilePath, PadsEveryFieldAndIsCutToTheBuffer) {
  EXPECT_EQ(LogFilePath("L", {987, 1, 2, 3, 4, 5}, 0), "L\\Calder_0987-01-02_030405_0.log");
  EXPECT_EQ(LogFilePath("L", {2026, 12, 31, 23, 59, 59}, 4294967295UL), "L\\Calder_2026-12-31_235959_4294967295.log");
  EXPECT_EQ(LogFilePath(std::string(300, 'a'), {2026, 4, 22, 9, 30, 15}, 1), std::string(259, 'a'));
}

TEST_F(MachineTest, InitLoggingSendsEveryLevelToThisRunsFileAndToTheConsole) {
  el::Loggers::removeFlag(el::LoggingFlag::DisableApplicationAbortOnFatalLog);
  InitLogging();
  const std::string file = "C:\\ProgramData\\KORU\\KoruDeviceService\\log\\Calder_2026-04-22_093015_4812.log";
  el::Configurations* config = el::Loggers::getLogger("default")->configurations();
  for (el::Level level : {el::Level::Info, el::Level::Error, el::Level::Fatal, el::Level::Debug}) {
    EXPECT_EQ(config->get(level, el::ConfigurationType::Format)->value(),
              "%datetime{%Y-%M-%d %H:%m:%s.%g} %level %fbase %line: %msg");
    EXPECT_EQ(config->get(level, el::ConfigurationType::Filename)->value(), file);
    EXPECT_EQ(config->get(level, el::ConfigurationType::ToFile)->value(), "true");
    EXPECT_EQ(config->get(level, el::ConfigurationType::ToStandardOutput)->value(), "true");
    EXPECT_EQ(config->get(level, el::ConfigurationType::LogFlushThreshold)->value(), "1");
  }
  EXPECT_TRUE(el::Loggers::hasFlag(el::LoggingFlag::DisableApplicationAbortOnFatalLog));
  EXPECT_EQ(sys.createdDirs.back(), kLogFolder);
  QuietDefaultLogger();
  std::remove(file.c_str());  // a plain name in the working folder on this host
}

TEST_F(MachineTest, AFolderChainCreatesEachPrefixThenTheWholePathCutAt259) {
  CreateFolderChain(kLogFolder);
  EXPECT_EQ(sys.createdDirs, (std::vector<std::string>{"C:", "C:\\ProgramData", "C:\\ProgramData\\KORU",
                                                       "C:\\ProgramData\\KORU\\KoruDeviceService", kLogFolder}));
  CreateFolderChain("C:\\" + std::string(300, 'd'));
  EXPECT_EQ(sys.createdDirs.back(), "C:\\" + std::string(256, 'd'));
}

TEST_F(MachineTest, TheRunMarkerHoldsTheUtf16PathAloneAndIsRewrittenThenDeleted) {
  const std::string marker = "C:\\ProgramData\\KORU\\KoruDeviceService\\Calder_ProcessPath.txt";
  // Characters outside any narrow code page survive as their code units.
  sys.modulePathW = u"C:\\a\u00e9\u6f22";
  WriteProcessPathMarker();
  EXPECT_EQ(sys.files[marker], std::string("C\0:\0\\\0a\0\xe9\0\x22\x6f", 12));
  sys.modulePathW = u"D:\\b";
  WriteProcessPathMarker();
  EXPECT_EQ(sys.files[marker], std::string("D\0:\0\\\0b\0", 8));
  DeleteProcessPathMarker();
  EXPECT_FALSE(sys.HasFile(marker));
}

}  // namespace
}  // namespace calder
