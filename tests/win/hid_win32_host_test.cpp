#include <windows.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "hid/dev_hid.h"
#include "hid/read_fw.h"
#include "platform/clock.h"
#include "platform/win32/win32_hid_host.h"

namespace calder {
namespace {

// Wine's SetupAPI lists no touch device of ours.
TEST(Win32HidHostTest, EnumerationThroughTheRealSetupApiFindsNoTouchDevice) {
  DevHid hid(*Win32Hid());
  const std::vector<std::u16string> first = hid.GetDevicePaths();
  const std::vector<std::u16string> both = hid.GetDevicePaths();
  EXPECT_EQ(both.size(), 2 * first.size());
  for (const std::u16string& path : first) {
    EXPECT_EQ(path.find(u"vid_347d&pid_7853"), std::u16string::npos);
  }
  EXPECT_FALSE(hid.Open(0x347D, 0x7853, u"col04"));
  EXPECT_EQ(hid.handle, INVALID_HANDLE_VALUE);
}

TEST(Win32HidHostTest, InvalidHandleIsTheWindowsOne) {
  EXPECT_EQ(InvalidHidHandle(), INVALID_HANDLE_VALUE);
}

TEST(Win32HidHostTest, APlainFileIsNoHidDevice) {
  CreateDirectoryA("C:\\calder-test", nullptr);
  std::ofstream("C:\\calder-test\\not-hid") << "x";
  HidAttributes attributes;
  EXPECT_FALSE(Win32Hid()->ProbeAttributes(u"C:\\calder-test\\not-hid", &attributes));
  EXPECT_FALSE(Win32Hid()->ProbeAttributes(u"C:\\calder-test\\missing", &attributes));
  EXPECT_EQ(Win32Hid()->OpenReadWrite(u"C:\\calder-test\\missing"), INVALID_HANDLE_VALUE);
}

TEST(Win32HidHostTest, OpenAndCloseAreFileHandlesAndASecondCloseFails) {
  CreateDirectoryA("C:\\calder-test", nullptr);
  std::ofstream("C:\\calder-test\\col04-file") << "x";
  const HidHandle handle = Win32Hid()->OpenReadWrite(u"C:\\calder-test\\col04-file");
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(Win32Hid()->Close(handle));
  EXPECT_FALSE(Win32Hid()->Close(handle));
}

TEST(Win32HidHostTest, QueriesWithoutTheDeviceFailWithTheirTexts) {
  VirtualClock clock;
  ReadFW reader(*Win32Hid(), clock);
  reader.Init();
  std::string text;
  EXPECT_FALSE(reader.ReadCalibrateData(text));
  EXPECT_EQ(text, "err: open force device fail");
  std::string version, error;
  EXPECT_FALSE(reader.ReadForceVersion(version, error));
  EXPECT_EQ(error, "err: open touch device fail");
  EXPECT_TRUE(clock.sleeps().empty());
}

}  // namespace
}  // namespace calder
