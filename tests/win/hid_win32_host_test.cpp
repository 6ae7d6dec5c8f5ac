#include <windows.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "hid/dev_hid.h"
#include "platform/win32/win32_hid_host.h"

namespace calder {
namespace {

// Wine's own SetupAPI lists no touch device of ours.
TEST(Win32HidHostTest, RealSetupApiListsNoTouchDevice) {
  DevHid hid(*Win32Hid());
  for (const std::u16string& path : hid.GetDevicePaths()) {
    EXPECT_EQ(path.find(u"vid_347d&pid_7853"), std::u16string::npos);
  }
  EXPECT_FALSE(hid.Open(0x347D, 0x7853, u"col04"));
  EXPECT_EQ(hid.handle, INVALID_HANDLE_VALUE);
}

TEST(Win32HidHostTest, HandlesAreFileHandlesAndAPlainFileHasNoHidAttributes) {
  CreateDirectoryA("C:\\calder-test", nullptr);
  std::ofstream("C:\\calder-test\\col04-file") << "x";
  HidAttributes attributes;
  EXPECT_FALSE(Win32Hid()->ProbeAttributes(u"C:\\calder-test\\col04-file", &attributes));
  EXPECT_FALSE(Win32Hid()->ProbeAttributes(u"C:\\calder-test\\missing", &attributes));
  EXPECT_EQ(Win32Hid()->OpenReadWrite(u"C:\\calder-test\\missing"), INVALID_HANDLE_VALUE);
  const HidHandle handle = Win32Hid()->OpenReadWrite(u"C:\\calder-test\\col04-file");
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(Win32Hid()->Close(handle));
  EXPECT_FALSE(Win32Hid()->Close(handle));
}

}  // namespace
}  // namespace calder
