#include <gtest/gtest.h>

#include "force/boot_loader_packets.h"
#include "tests/support/force_rig.h"

namespace calder {
namespace {

using test::Hex;

Frame Command(BootCommand command, const Frame& data) {
  return CommandFrame(command, data.data(), static_cast<uint16_t>(data.size()));
}

TEST(BootLoaderPackets, FramesMatchTheProtocolBytes) {
  std::string zeroTail;
  for (int i = 0; i < 22; ++i) zeroTail += " 00";
  const struct {
    const char* name;
    Frame frame;
    std::string hex;
  } cases[] = {
      {"connect", Command(kConnect, {}), "FF 57 00 00 85 01 81 01 01 00 00 01 00"},
      {"run", Command(kRunApplication, RunApplicationData()),
       "FF 57 00 00 AD 01 81 04 11 04 00 01 11 00 10 00 01"},
      {"first erase", Command(kEraseSectors, EraseData(20, kApplicationStart)),
       "FF 57 00 00 D2 01 81 03 21 06 00 01 25 14 00 00 10 00 01"},
      {"last erase", Command(kEraseSectors, EraseData(18, 0x0100B000)),
       "FF 57 00 00 70 01 81 03 21 06 00 01 C3 12 00 00 B0 00 01"},
      {"first read", Command(kReadFlash, ReadFlashData(kApplicationStart)),
       "FF 57 00 00 D6 01 81 03 11 06 00 01 39 28 00 00 10 00 01"},
      {"read request", ReadRequestFrame(54), "FF 52 36 00"},
      {"disable touch", TouchFrame(true),
       "22 00 2E 03 23 00 23 00 0E 08 A3 00 00 02 00 00 A1 01" + zeroTail},
      {"enable touch", TouchFrame(false),
       "22 00 2E 03 23 00 23 00 0E 08 A4 00 00 02 00 00 A1 00" + zeroTail},
  };
  for (const auto& c : cases) EXPECT_EQ(c.frame, Hex(c.hex)) << c.name;
}

TEST(BootLoaderPackets, WriteFlashFrameIs81BytesWithBothChecksums) {
  std::vector<uint8_t> block(64);
  for (int i = 0; i < 64; ++i) block[i] = static_cast<uint8_t>(i + 1);
  const Frame frame = Command(kWriteFlash, WriteFlashData(0x01001040, block.data()));
  ASSERT_EQ(frame.size(), 81u);
  EXPECT_EQ(Frame(frame.begin(), frame.begin() + 17),
            Hex("FF 57 00 00 3C 01 81 03 01 44 00 01 71 40 10 00 01"));
  EXPECT_EQ(Frame(frame.begin() + 17, frame.end()), block);
}

TEST(BootLoaderPackets, ReplyRulesLookOnlyAtTheNamedBytes) {
  const struct {
    bool (*rule)(const uint8_t*);
    std::string reply;
    std::vector<int> judged;
  } cases[] = {
      {ConnectReplyOk, "AA BB CC DD EE FF 11 22 33 00 02 00 01 00", {9, 10, 11, 12, 13}},
      {WriteReplyOk, "99 99 99 03 02 99 99 99 99 00 99 99 99 99", {3, 4, 9}},
  };
  for (const auto& c : cases) {
    const std::vector<uint8_t> good = Hex(c.reply);
    EXPECT_TRUE(c.rule(good.data())) << c.reply;
    for (int index : c.judged) {
      for (uint8_t flip : {0x01, 0x80}) {
        std::vector<uint8_t> bad = good;
        bad[index] ^= flip;
        EXPECT_FALSE(c.rule(bad.data())) << c.reply << " byte " << index;
      }
    }
  }
}

}  // namespace
}  // namespace calder
