#include <gtest/gtest.h>

#include "base/firmware_discovery.h"
#include "tests/support/fake_system.h"

namespace calder {
namespace {

TEST(FirmwarePaths, StemsFoldersAndPatternsSplitAtEitherSeparator) {
  for (const auto& [path, stem] : std::vector<std::pair<std::string, std::string>>{
           {"C:\\x\\Force\\1.0.2.3.bin", "1.0.2.3"}, {"C:\\x\\fw", "fw"}, {"C:\\x.d\\fw", "fw"}, {"C:\\x\\.bin", ""},
           {"C:/x/y/2.1.bin", "2.1"}, {"plain.txt", "plain"}}) {
    EXPECT_EQ(GetFileStem(path), stem) << path;
  }
  EXPECT_EQ(FolderSearchPattern("C:\\fw\\TP"), "C:\\fw\\TP\\*");
  EXPECT_EQ(FolderSearchPattern("C:\\fw\\TP\\"), "C:\\fw\\TP\\*");
  EXPECT_EQ(FolderSearchPattern("C:\\fw\\TP/"), "C:\\fw\\TP/*");
  EXPECT_EQ(DirectoryOf("C:/Tools\\Calder/calder.exe"), "C:/Tools\\Calder");
  EXPECT_EQ(DirectoryOf("calder.exe"), "calder.exe");
}

class DiscoveryTest : public testing::Test {
 protected:
  DiscoveryTest() { sys.Into(&env); }
  test::FakeSystem sys;
  Environment env;
};

TEST_F(DiscoveryTest, TheModuleDirIsTheExecutablesFolderOrItsWholePath) {
  ScopedEnvironment scope(env);
  EXPECT_EQ(GetModuleDir(), "C:\\Tools\\Calder");
  sys.modulePathA = "calder.exe";
  EXPECT_EQ(GetModuleDir() + kTouchpadFirmwareFolder, "calder.exe\\TP");
}

TEST_F(DiscoveryTest, TheFirstRegularFileWinsAndFoldersAreSkipped) {
  sys.AddFolder("C:\\fw\\TP\\a-subfolder");
  sys.AddFile("C:\\fw\\TP\\b.bin");
  sys.AddFile("C:\\fw\\TP\\c.bin");
  sys.AddFolder("C:\\fw\\Only\\sub");
  ScopedEnvironment scope(env);
  EXPECT_EQ(FindFirstFileInFolder("C:\\fw\\TP"), "C:\\fw\\TP\\b.bin");
  EXPECT_EQ(FindFirstFileInFolder("C:\\fw\\TP\\"), "C:\\fw\\TP\\b.bin");
  EXPECT_EQ(FindFirstFileInFolder("C:\\fw\\Only"), "");
  EXPECT_EQ(FindFirstFileInFolder("C:\\fw\\Missing"), "");
  sys.calls.clear();
  EXPECT_EQ(FindFirstFileInFolder(""), "");
  EXPECT_TRUE(sys.calls.empty()) << "an empty folder must not reach the file system";
}

}  // namespace
}  // namespace calder
