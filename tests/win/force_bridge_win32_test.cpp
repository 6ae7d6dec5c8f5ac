#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "force/boot_loader_packets.h"
#include "platform/win32/win32_bridge_library.h"

namespace calder {
namespace {

std::wstring ExeFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder = path;
  return folder.substr(0, folder.find_last_of(L"\\/"));
}

void ExpectAllCallsUnavailable(Win32BridgeLibrary& bridge) {
  unsigned char buffer[4] = {0xFF, 0xAA, 0x00, 0x01};
  EXPECT_EQ(bridge.btl_init_driver_7853(), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_open_device(), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_write_data(buffer, 4), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_read_data(buffer, 4), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_close_device(), kBridgeUnavailable);
  EXPECT_EQ(bridge.btl_uninstall_driver(), kBridgeUnavailable);
}

TEST(Win32BridgeLibrary, MissingDllFailsEveryCallWithItsReason) {
  Win32BridgeLibrary bridge(L"no_such_bridge.dll");
  ExpectAllCallsUnavailable(bridge);
  EXPECT_EQ(bridge.UnavailableReason(), "no_such_bridge.dll could not be loaded, error 126");
}

TEST(Win32BridgeLibrary, DllWithoutTheEntryPointsIsNotBoundAtAll) {
  Win32BridgeLibrary bridge(L"C:\\windows\\system32\\kernel32.dll");
  ExpectAllCallsUnavailable(bridge);
  EXPECT_EQ(bridge.UnavailableReason(), "kernel32.dll has no entry point btl_init_driver_7853");
}

TEST(Win32BridgeLibrary, StandInIsBoundAndAnswersThroughTheTable) {
  const std::string scratch = "C:\\calder-test\\bridge";
  CreateDirectoryA("C:\\calder-test", nullptr);
  CreateDirectoryA(scratch.c_str(), nullptr);
  DeleteFileA((scratch + "\\force_sensor_state.txt").c_str());
  DeleteFileA((scratch + "\\force_sensor_flash.bin").c_str());
  _putenv_s("CALDER_FORCE_SIM_DIR", scratch.c_str());

  Win32BridgeLibrary bridge(ExeFolder() + L"\\stand-ins\\btl_hid_transfer.dll");
  EXPECT_EQ(bridge.UnavailableReason(), "");
  EXPECT_EQ(bridge.btl_init_driver_7853(), 0);
  EXPECT_EQ(bridge.btl_open_device(), 0);

  Frame disable = TouchFrame(true);
  EXPECT_EQ(bridge.btl_write_data(disable.data(), static_cast<int>(disable.size())), 0);
  Frame select(kVersionSelectFrame, kVersionSelectFrame + sizeof kVersionSelectFrame);
  Frame request = ReadRequestFrame(4);
  EXPECT_EQ(bridge.btl_write_data(select.data(), static_cast<int>(select.size())), 0);
  EXPECT_EQ(bridge.btl_write_data(request.data(), static_cast<int>(request.size())), 0);
  unsigned char version[4] = {};
  EXPECT_EQ(bridge.btl_read_data(version, 4), 0);
  EXPECT_EQ(Frame(version, version + 4), (Frame{1, 0, 2, 3}));
  EXPECT_EQ(bridge.btl_close_device(), 0);
  EXPECT_EQ(bridge.btl_uninstall_driver(), 0);

  std::ifstream in(scratch + "\\force_sensor_state.txt", std::ios::binary);
  const std::string state((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_NE(state.find("touch_enabled=0\n"), std::string::npos) << state;
  EXPECT_NE(state.find("calls=btl_init_driver_7853,btl_open_device,btl_close_device,"
                       "btl_uninstall_driver\n"),
            std::string::npos)
      << state;
}

}  // namespace
}  // namespace calder
