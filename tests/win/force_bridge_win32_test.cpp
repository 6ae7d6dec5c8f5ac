#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "force/boot_loader_packets.h"
#include "platform/win32/win32_bridge_library.h"
#include "tests/win/stand_in_path.h"

namespace calder {
namespace {

struct UnboundCase {
  const wchar_t* dll;
  const char* reason;
};

class UnboundBridge : public testing::TestWithParam<UnboundCase> {};

TEST_P(UnboundBridge, FailsEveryCallWithItsReason) {
  Win32BridgeLibrary bridge(GetParam().dll);
  unsigned char buffer[4] = {0xFF, 0xAA, 0x00, 0x01};
  EXPECT_EQ(bridge.btl_init_driver_7853(), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_open_device(), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_write_data(buffer, 4), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_read_data(buffer, 4), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_close_device(), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_uninstall_driver(), kBridgeUnavailable);
  EXPECT_EQ(bridge.BindError(), GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(
    Win32BridgeLibrary, UnboundBridge,
    testing::Values(
        UnboundCase{L"no_such_bridge.dll", "no_such_bridge.dll could not be loaded, error 126"},
        UnboundCase{L"C:\\windows\\system32\\kernel32.dll",
                    "kernel32.dll has no entry point btl_init_driver_7853"}));

// The stand-in built from the sensor model answers through every bound entry
// point, buffers and lengths passed as given; its files go to a scratch folder
// so no earlier sensor is resumed.
TEST(Win32BridgeLibrary, StandInIsBoundAndAnswersThroughTheTable) {
  const std::string scratch = "C:\\calder-test\\bridge";
  CreateDirectoryA("C:\\calder-test", nullptr);
  CreateDirectoryA(scratch.c_str(), nullptr);
  DeleteFileA((scratch + "\\force_sensor_state.txt").c_str());
  DeleteFileA((scratch + "\\force_sensor_flash.bin").c_str());
  _putenv_s("CALDER_FORCE_SIM_DIR", scratch.c_str());

  Win32BridgeLibrary bridge(StandInPath(L"stand-ins\\btl_hid_transfer.dll"));
  EXPECT_EQ(bridge.BindError(), "");
  EXPECT_EQ(bridge.btl_init_driver_7853(), 0);
  EXPECT_EQ(bridge.btl_open_device(), 0);
  Frame select(kVersionSelectFrame, kVersionSelectFrame + sizeof kVersionSelectFrame);
  Frame request = ReadRequestFrame(4);
  EXPECT_EQ(bridge.btl_write_data(select.data(), static_cast<int>(select.size())), 0);
  EXPECT_EQ(bridge.btl_write_data(request.data(), static_cast<int>(request.size())), 0);
  unsigned char version[4] = {};
  EXPECT_EQ(bridge.btl_read_data(version, 4), 0);
  EXPECT_EQ(Frame(version, version + 4), (Frame{1, 0, 2, 3}));
  EXPECT_EQ(bridge.btl_close_device(), 0);
  EXPECT_EQ(bridge.btl_uninstall_driver(), 0);
}

}  // namespace
}  // namespace calder
