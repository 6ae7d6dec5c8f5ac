#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hid/dev_hid.h"
#include "platform/environment.h"
#include "sim/touch_device.h"

namespace calder {
namespace {

using sim::Collection;
using sim::HidInterface;
using sim::TouchDevice;

constexpr uint16_t kVid = 0x347D;
constexpr uint16_t kPid = 0x7853;

class DevHidTest : public testing::Test {
 protected:
  std::u16string PathOf(const std::u16string& tag) const {
    for (const std::u16string& path : device.Paths()) {
      if (path.find(tag) != std::u16string::npos && path.find(u"vid_347d") != std::u16string::npos) {
        return path;
      }
    }
    return u"";
  }

  VirtualClock clock;
  TouchDevice device{clock};
};

TEST_F(DevHidTest, OpensTheTaggedCollectionOfTheTouchDeviceForReadingAndWriting) {
  DevHid hid(device);
  EXPECT_EQ(hid.GetDevicePaths(), device.Paths());
  ASSERT_TRUE(hid.Open(kVid, kPid, u"col05"));
  EXPECT_TRUE(hid.IsOpen());
  EXPECT_EQ(hid.vendorId, kVid);
  EXPECT_EQ(hid.productId, kPid);
  EXPECT_EQ(hid.tag, u"col05");
  EXPECT_EQ(device.opened, std::vector<std::u16string>{PathOf(u"col05")});
  // Probed in list order up to the first match; the other vendor's later
  // "col05" is never reached.
  const std::vector<std::u16string> all = device.Paths();
  EXPECT_EQ(device.probed, std::vector<std::u16string>(all.begin(), all.begin() + 6));
}

TEST_F(DevHidTest, NoHidDeviceGivesAnEmptyListAndAnInvalidHandle) {
  device.enumerationFails = true;
  DevHid hid(device);
  EXPECT_TRUE(hid.GetDevicePaths().empty());
  EXPECT_FALSE(hid.Open(kVid, kPid, u"col04"));
  EXPECT_EQ(hid.handle, InvalidHidHandle());
  EXPECT_TRUE(device.probed.empty());
}

TEST_F(DevHidTest, WithoutAnInstalledHostThereAreNoDevices) {
  ScopedEnvironment none(Environment{});
  DevHid hid;
  EXPECT_TRUE(hid.GetDevicePaths().empty());
  EXPECT_FALSE(hid.Open(kVid, kPid, u"col04"));
  EXPECT_FALSE(hid.IsOpen());
}

TEST_F(DevHidTest, ATagThatNoMatchingPathHoldsIsNotOpened) {
  device.RemoveCollection(u"col04");
  // Same vendor and product with the tag in capitals: the match is case-sensitive.
  device.interfaces.push_back({u"hid#vid_347d&pid_7853&COL04#7&2a41c8e&0&0009", kVid, kPid,
                               Collection::kTouch});
  DevHid hid(device);
  hid.GetDevicePaths();
  EXPECT_FALSE(hid.Open(kVid, kPid, u"col04"));
  EXPECT_EQ(hid.handle, InvalidHidHandle());
  EXPECT_TRUE(device.opened.empty());
}

TEST_F(DevHidTest, TheTagMustComeWithTheVendorAndProduct) {
  // Another vendor's "col05" listed first is skipped.
  HidInterface other = device.interfaces.back();
  device.interfaces.insert(device.interfaces.begin(), other);
  DevHid hid(device);
  hid.GetDevicePaths();
  ASSERT_TRUE(hid.Open(kVid, kPid, u"col05"));
  EXPECT_EQ(device.opened, std::vector<std::u16string>{PathOf(u"col05")});
}

TEST_F(DevHidTest, TheFirstOfTwoMatchingPathsIsOpened) {
  const std::u16string second = u"hid#vid_347d&pid_7853&col04#9&aaaaaaa&0&0003";
  device.interfaces.push_back({second, kVid, kPid, Collection::kTouch});
  DevHid hid(device);
  hid.GetDevicePaths();
  ASSERT_TRUE(hid.Open(kVid, kPid, u"col04"));
  EXPECT_EQ(device.opened, std::vector<std::u16string>{PathOf(u"col04")});
}

TEST_F(DevHidTest, PathsThatCannotBeProbedAreSkipped) {
  const std::u16string expected = PathOf(u"col04");
  device.interfaces.insert(device.interfaces.begin(),
                           {u"hid#vid_347d&pid_7853&col04#1&busy&0&0003", kVid, kPid,
                            Collection::kTouch, /*probes=*/false});
  DevHid hid(device);
  hid.GetDevicePaths();
  ASSERT_TRUE(hid.Open(kVid, kPid, u"col04"));
  EXPECT_EQ(device.opened, std::vector<std::u16string>{expected});
}

TEST_F(DevHidTest, APathThatProbesButCannotBeOpenedReadWriteFails) {
  device.SetOpensReadWrite(u"col05", false);
  DevHid hid(device);
  hid.GetDevicePaths();
  EXPECT_FALSE(hid.Open(kVid, kPid, u"col05"));
  EXPECT_EQ(hid.handle, InvalidHidHandle());
  EXPECT_EQ(device.probed.back(), PathOf(u"col05"));
}

TEST_F(DevHidTest, ASecondEnumerationDoublesTheListAndTheFirstMatchStillWins) {
  DevHid hid(device);
  hid.GetDevicePaths();
  const std::vector<std::u16string> twice = hid.GetDevicePaths();
  ASSERT_EQ(twice.size(), 2 * device.Paths().size());
  EXPECT_EQ(std::vector<std::u16string>(twice.begin() + device.Paths().size(), twice.end()),
            device.Paths());
  ASSERT_TRUE(hid.Open(kVid, kPid, u"col04"));
  EXPECT_EQ(device.probed.size(), 5u);
}

TEST_F(DevHidTest, DestructionClosesTheHandleAndAnOwnersEarlierCloseMakesItASecondClose) {
  {
    DevHid hid(device);
    hid.GetDevicePaths();
    ASSERT_TRUE(hid.Open(kVid, kPid, u"col04"));
  }
  EXPECT_EQ(device.closes, 1);
  EXPECT_EQ(device.failedCloses, 0);
  {
    DevHid hid(device);
    hid.GetDevicePaths();
    ASSERT_TRUE(hid.Open(kVid, kPid, u"col04"));
    device.Close(hid.handle);
    EXPECT_TRUE(hid.IsOpen());  // the field keeps its value
  }
  EXPECT_EQ(device.closes, 2);
  EXPECT_EQ(device.failedCloses, 1);
  EXPECT_EQ(device.OpenHandleCount(), 0u);
}

}  // namespace
}  // namespace calder
