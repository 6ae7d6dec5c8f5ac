#include <gtest/gtest.h>

#include <vector>

#include "force/boot_loader_packets.h"
#include "tests/support/hex.h"

namespace calder {
namespace {

using test::Hex;
using test::ToHex;

std::string Command(BootCommand command, const Frame& data) {
  return ToHex(CommandFrame(command, data.data(), static_cast<uint16_t>(data.size())));
}

TEST(BootLoaderPackets, FixedCommandFramesMatchTheProtocolBytes) {
  EXPECT_EQ(Command(kConnect, {}), "FF 57 00 00 85 01 81 01 01 00 00 01 00");
  EXPECT_EQ(Command(kRunApplication, RunApplicationData()),
            "FF 57 00 00 AD 01 81 04 11 04 00 01 11 00 10 00 01");
}

TEST(BootLoaderPackets, VariableCommandFramesCarryLittleEndianAddresses) {
  EXPECT_EQ(Command(kEraseSectors, EraseData(20, kApplicationStart)),
            "FF 57 00 00 D2 01 81 03 21 06 00 01 25 14 00 00 10 00 01");
  EXPECT_EQ(Command(kReadFlash, ReadFlashData(kApplicationStart)),
            "FF 57 00 00 D6 01 81 03 11 06 00 01 39 28 00 00 10 00 01");
  EXPECT_EQ(Command(kEraseSectors, EraseData(18, 0x0100B000)),
            "FF 57 00 00 70 01 81 03 21 06 00 01 C3 12 00 00 B0 00 01");
}

TEST(BootLoaderPackets, WriteFlashFrameIs81BytesWithBothChecksums) {
  std::vector<uint8_t> block(64);
  for (int i = 0; i < 64; ++i) block[i] = static_cast<uint8_t>(i + 1);  // sums to 2080
  const Frame frame = [&] {
    const Frame data = WriteFlashData(0x01001040, block.data());
    return CommandFrame(kWriteFlash, data.data(), static_cast<uint16_t>(data.size()));
  }();
  ASSERT_EQ(frame.size(), 81u);
  // Data sum: 0x40 + 0x10 + 0x01 + 2080 = 2161 -> 0x71; header sum of bytes 1..8.
  EXPECT_EQ(ToHex(Frame(frame.begin(), frame.begin() + 17)),
            "FF 57 00 00 3C 01 81 03 01 44 00 01 71 40 10 00 01");
  EXPECT_EQ(Frame(frame.begin() + 17, frame.end()), block);
}

TEST(BootLoaderPackets, BridgeFramesAndReadRequests) {
  EXPECT_EQ(ToHex(Frame(kResetAssertFrame, kResetAssertFrame + 4)), "FF AA 00 01");
  EXPECT_EQ(ToHex(Frame(kResetReleaseFrame, kResetReleaseFrame + 4)), "FF AA 00 00");
  EXPECT_EQ(ToHex(Frame(kBootHoldFrame, kBootHoldFrame + 6)), "FF 57 00 00 01 01");
  EXPECT_EQ(ToHex(Frame(kVersionSelectFrame, kVersionSelectFrame + 5)), "FF 57 00 00 10");
  EXPECT_EQ(ToHex(ReadRequestFrame(54)), "FF 52 36 00");
}

TEST(BootLoaderPackets, TouchFramesAreFortyBytesWithReportChecksum) {
  const Frame disable = TouchFrame(true);
  const Frame enable = TouchFrame(false);
  ASSERT_EQ(disable.size(), 40u);
  ASSERT_EQ(enable.size(), 40u);
  const std::string zeros22 = " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
  EXPECT_EQ(ToHex(disable), "22 00 2E 03 23 00 23 00 0E 08 A3 00 00 02 00 00 A1 01" + zeros22);
  EXPECT_EQ(ToHex(enable), "22 00 2E 03 23 00 23 00 0E 08 A4 00 00 02 00 00 A1 00" + zeros22);
}

TEST(BootLoaderPackets, ReplyRulesLookOnlyAtTheNamedBytes) {
  std::vector<uint8_t> connect = Hex("AA BB CC DD EE FF 11 22 33 00 02 00 01 00");
  EXPECT_TRUE(ConnectReplyOk(connect.data()));
  connect[13] = 0x01;
  EXPECT_FALSE(ConnectReplyOk(connect.data()));

  std::vector<uint8_t> write = Hex("99 99 99 03 02 99 99 99 99 00 99 99 99 99");
  EXPECT_TRUE(WriteReplyOk(write.data()));
  for (int index : {3, 4, 9}) {
    std::vector<uint8_t> bad = write;
    bad[index] ^= 0x01;
    EXPECT_FALSE(WriteReplyOk(bad.data())) << index;
  }
}

}  // namespace
}  // namespace calder
