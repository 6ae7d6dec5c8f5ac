#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "hid/dev_hid.h"
#include "sim/touch_device.h"

namespace calder {
namespace {

using sim::Collection;
using sim::TouchDevice;
using Paths = std::vector<std::u16string>;

constexpr uint16_t kVid = 0x347D;
constexpr uint16_t kPid = 0x7853;
const std::u16string kCol04 = u"hid#vid_347d&pid_7853&col04#7&2a41c8e&0&0003";
const std::u16string kCol05 = u"hid#vid_347d&pid_7853&col05#7&2a41c8e&0&0004";
const std::u16string kOtherCol04 = u"hid#vid_347d&pid_7853&col04#9&aaaaaaa&0&0003";

struct PathCase {
  const char* name;
  std::function<void(TouchDevice&)> machine;
  std::u16string tag;
  std::u16string opened;  // interface name, empty when none
  size_t probed;          // paths probed before the search ended
};

class DevHidPathTest : public testing::TestWithParam<PathCase> {};

TEST_P(DevHidPathTest, OpensTheFirstTaggedPathOfTheTouchDevice) {
  VirtualClock clock;
  TouchDevice device(clock);
  GetParam().machine(device);
  DevHid hid(device);
  EXPECT_EQ(hid.GetDevicePaths(), device.InterfacePaths());
  const bool opened = hid.Open(kVid, kPid, GetParam().tag);
  EXPECT_EQ(opened, !GetParam().opened.empty());
  EXPECT_EQ(hid.IsOpen(), opened);
  ASSERT_EQ(device.opened.size(), opened ? 1u : 0u);
  if (opened) {
    EXPECT_NE(device.opened[0].find(GetParam().opened), std::u16string::npos);
  }
  EXPECT_EQ(device.probed.size(), GetParam().probed);
}

const auto kAsListed = [](TouchDevice&) {};

INSTANTIATE_TEST_SUITE_P(Cases, DevHidPathTest, testing::Values(PathCase{"col04", kAsListed, u"col04", kCol04, 5},
        // Another vendor's "col05" comes later in the list and is never probed.
        PathCase{"col05", kAsListed, u"col05", kCol05, 6}, PathCase{"OtherDevicesTagFirst",
                 [](TouchDevice& d) {  // one differs in its vendor only, one in its product only
                   d.interfaces.insert(d.interfaces.begin(), {{u"hid#vid_1111&pid_7853&col05#1", 0x1111, kPid},
                                                              {u"hid#vid_347d&pid_1111&col05#2", kVid, 0x1111}});
                 }, u"col05", kCol05, 8}, PathCase{"TagIsCaseSensitive", [](TouchDevice& d) {
                   d.RemoveCollection(u"col04");
                   d.interfaces.push_back({u"hid#vid_347d&pid_7853&COL04#7&1&0&9", kVid, kPid, Collection::kTouch});
                 }, u"col04", u"", 7}, PathCase{"FirstOfTwoMatches",
                 [](TouchDevice& d) { d.interfaces.push_back({kOtherCol04, kVid, kPid, Collection::kTouch}); },
                 u"col04", kCol04, 5}, PathCase{"UnprobeablePathSkipped",
                 [](TouchDevice& d) { d.SetProbes(kCol04, false); d.interfaces.push_back({kOtherCol04, kVid, kPid, Collection::kTouch}); },
                 u"col04", kOtherCol04, 8},
        PathCase{"ProbesButHeldElsewhere", [](TouchDevice& d) { d.SetOpensReadWrite(u"col05", false); },
                 u"col05", u"", 6},
        PathCase{"NoHidDevice", [](TouchDevice& d) { d.enumerationFails = true; }, u"col04", u"", 0}),
    [](const testing::TestParamInfo<PathCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace calder
