#include <gtest/gtest.h>

#include "base/log.h"
#include "driver/logging.h"
#include "tests/support/fake_system.h"

namespace calder {
namespace {

using test::FakeSystem;

TEST(LogFilePath, PadsEveryFieldAndKeepsTheProcessIdApart) {
  EXPECT_EQ(LogFilePath(kLogFolder, {2026, 4, 22, 9, 30, 15}, 4812),
            "C:\\ProgramData\\KORU\\KoruDeviceService\\log\\Calder_2026-04-22_093015_4812.log");
  EXPECT_EQ(LogFilePath("L", {987, 1, 2, 3, 4, 5}, 0), "L\\Calder_0987-01-02_030405_0.log");
  EXPECT_NE(LogFilePath("L", {2026, 4, 22, 9, 30, 15}, 1), LogFilePath("L", {2026, 4, 22, 9, 30, 15}, 2));
  EXPECT_EQ(LogFilePath("L", {2026, 12, 31, 23, 59, 59}, 4294967295UL),
            "L\\Calder_2026-12-31_235959_4294967295.log");
}

TEST(LogFilePath, IsCutToTheBuffer) {
  const std::string path = LogFilePath(std::string(300, 'a'), {2026, 4, 22, 9, 30, 15}, 1);
  EXPECT_EQ(path, std::string(259, 'a'));
}

TEST(LoggerConfiguration, CarriesTheFiveSettingsForEveryLevel) {
  el::Configurations config;
  BuildLoggerConfiguration("C:\\x\\run.log", &config);
  for (el::Level level : {el::Level::Info, el::Level::Error, el::Level::Fatal, el::Level::Debug}) {
    EXPECT_EQ(config.get(level, el::ConfigurationType::Format)->value(),
              "%datetime{%Y-%M-%d %H:%m:%s.%g} %level %fbase %line: %msg");
    EXPECT_EQ(config.get(level, el::ConfigurationType::Filename)->value(), "C:\\x\\run.log");
    EXPECT_EQ(config.get(level, el::ConfigurationType::ToFile)->value(), "true");
    EXPECT_EQ(config.get(level, el::ConfigurationType::ToStandardOutput)->value(), "true");
    EXPECT_EQ(config.get(level, el::ConfigurationType::LogFlushThreshold)->value(), "1");
  }
  EXPECT_EQ(config.get(el::Level::Info, el::ConfigurationType::MaxLogFileSize), nullptr);
}

TEST(FolderChain, CreatesEachPrefixThenTheWholePath) {
  FakeSystem sys;
  Environment env;
  sys.Into(&env);
  ScopedEnvironment scope(env);
  CreateFolderChain(kLogFolder);
  EXPECT_EQ(sys.createdDirs, (std::vector<std::string>{
                                 "C:", "C:\\ProgramData", "C:\\ProgramData\\KORU",
                                 "C:\\ProgramData\\KORU\\KoruDeviceService",
                                 "C:\\ProgramData\\KORU\\KoruDeviceService\\log"}));
}

TEST(FolderChain, CutsAnOverlongPathAt259Characters) {
  FakeSystem sys;
  Environment env;
  sys.Into(&env);
  ScopedEnvironment scope(env);
  CreateFolderChain("C:\\" + std::string(300, 'd'));
  ASSERT_EQ(sys.createdDirs.size(), 2u);
  EXPECT_EQ(sys.createdDirs[1].size(), 259u);
}

TEST(RunMarker, HoldsTheUtf16PathWithoutBomTerminatorOrLineEnd) {
  EXPECT_EQ(MarkerFileBytes(u"C:\\a"), std::string("C\0:\0\\\0a\0", 8));
  // Characters outside any narrow code page survive as their code units.
  EXPECT_EQ(MarkerFileBytes(u"\u00e9\u6f22"), std::string("\xe9\x00\x22\x6f", 4));
}

TEST(RunMarker, IsWrittenUnderTheServiceFolderAndDeleted) {
  FakeSystem sys;
  sys.modulePathW = u"C:\\Program Files\\Koru\\\u6f22\\calder.exe";
  Environment env;
  sys.Into(&env);
  ScopedEnvironment scope(env);

  WriteProcessPathMarker();
  const std::string marker = "C:\\ProgramData\\KORU\\KoruDeviceService\\Calder_ProcessPath.txt";
  ASSERT_TRUE(sys.HasFile(marker));
  EXPECT_EQ(sys.files[marker].size(), 2 * sys.modulePathW.size());
  EXPECT_EQ(sys.files[marker], MarkerFileBytes(sys.modulePathW));

  sys.modulePathW = u"D:\\b.exe";
  WriteProcessPathMarker();
  EXPECT_EQ(sys.files[marker], MarkerFileBytes(u"D:\\b.exe"));  // rewritten, not appended

  DeleteProcessPathMarker();
  EXPECT_FALSE(sys.HasFile(marker));
  DeleteProcessPathMarker();  // a second delete is harmless
}

}  // namespace
}  // namespace calder
