#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "force/iic_write_read.h"
#include "force/update_fw.h"
#include "tests/support/force_rig.h"
#include "tests/support/hex.h"
#include "tests/support/temp_file.h"

namespace calder {
namespace {

using test::Concat;
using test::Hex;
using test::PatternBytes;
using test::Repeat;
using test::RestartAndHoldPauses;
using test::TaggedFile;
using test::WriteTempFile;

const std::vector<uint32_t> kConnectPauses = {2, 3, 1, 2, 3, 1};
const std::vector<uint32_t> kBlockPauses = {2, 20, 3, 1};
const std::string kConnectOkReply = "8f 01 82 01 02 05 00 01 03 00 02 00 01 00 ";

class WriterTest : public testing::Test {
 protected:
  WriterTest() : channel(&rig.sensor, 5), writer("1.0.2.3", &channel, image.get()) {
    rig.sensor.btl_open_device();
    channel.deviceOpen = true;
  }

  test::ForceRig rig;
  std::unique_ptr<FirmwareImage> image = std::make_unique<FirmwareImage>();
  IICWriteRead channel;
  UpdateFw writer;
};

TEST_F(WriterTest, MissingFileFailsBeforeAnyBridgeTraffic) {
  EXPECT_FALSE(writer.Run(testing::TempDir() + "missing-1.0.2.3.bin"));
  EXPECT_EQ(rig.log.Lines(), (std::vector<std::string>{
                                 "INFO update_fw.cpp: upgrading: writing to chip",
                                 "INFO update_fw.cpp: LoadFile failed"}));
  EXPECT_EQ(rig.sensor.writeCalls, 0);
  EXPECT_TRUE(rig.clock.sleeps().empty());
}

TEST_F(WriterTest, OversizedImageIsRefusedWithItsReason) {
  const std::string path = WriteTempFile("1.0.2.3.bin", PatternBytes(49984));
  EXPECT_FALSE(writer.Run(path));
  EXPECT_EQ(rig.log.Lines(),
            (std::vector<std::string>{
                "INFO update_fw.cpp: upgrading: writing to chip",
                "INFO update_fw.cpp: LoadFile failed",
                "ERROR update_fw.cpp: firmware image does not fit the 50000-byte buffer or its "
                "header is cut short: " + path}));
  EXPECT_EQ(rig.sensor.writeCalls, 0);
}

TEST_F(WriterTest, Raw1000ByteFileIsWrittenWithItsProgressPausesAndMessages) {
  const std::vector<uint8_t> file = PatternBytes(1000);
  ASSERT_TRUE(writer.Run(WriteTempFile("1.0.2.3.bin", file)));

  EXPECT_EQ(rig.log.Lines(), (std::vector<std::string>{
                                 "INFO update_fw.cpp: upgrading: writing to chip",
                                 "INFO update_fw.cpp: connect...",
                                 "INFO update_fw.cpp: " + kConnectOkReply,
                                 "INFO update_fw.cpp: ConnectCmd Ok",
                                 "INFO update_fw.cpp: erase chip... ",
                                 "INFO update_fw.cpp: start write flash... ",
                                 "INFO update_fw.cpp: progress: 12",
                                 "INFO update_fw.cpp: progress: 25",
                                 "INFO update_fw.cpp: progress: 37",
                                 "INFO update_fw.cpp: progress: 50",
                                 "INFO update_fw.cpp: progress: 62",
                                 "INFO update_fw.cpp: progress: 75",
                                 "INFO update_fw.cpp: progress: 87",
                                 "INFO update_fw.cpp: progress: 100",
                                 "INFO update_fw.cpp: upgrade finish ret = 0",
                                 "INFO update_fw.cpp: read force version form firmware : 1.0.2.3",
                                 "INFO update_fw.cpp: target force version : 1.0.2.3",
                                 "INFO update_fw.cpp: upgrade success"}));
  EXPECT_EQ(rig.progress.posts, (std::vector<int>{27, 35, 42, 50, 57, 65, 72, 80}));
  EXPECT_EQ(rig.clock.sleeps(),
            Concat({RestartAndHoldPauses(), kConnectPauses, {20}, {2, 300, 3, 1}, {10, 50},
                    Repeat(kBlockPauses, 16), {2, 10}, {100, 500}, {3, 3, 1, 10}}));

  // Flash holds the file, then the padding, byte for byte.
  std::vector<uint8_t> expected = file;
  expected.resize(1024, 0x00);
  EXPECT_EQ(rig.sensor.ReadFlash(0x01001000, 1024), expected);
  EXPECT_EQ(rig.sensor.writtenBlocks.size(), 16u);
  EXPECT_EQ(rig.sensor.erases, (std::vector<std::pair<int, uint32_t>>{{3, 0x01001000}}));
  EXPECT_EQ(rig.sensor.runs, 1);
  EXPECT_EQ(rig.sensor.badPackets, 0);
  EXPECT_EQ(rig.sensor.mode, sim::ForceSensor::Mode::kApplication);

  const std::vector<Frame> writes = rig.CommandFrames(kWriteFlash);
  ASSERT_EQ(writes.size(), 16u);
  EXPECT_EQ(Frame(writes[15].begin() + 13, writes[15].begin() + 17), Hex("C0 13 00 01"));
  EXPECT_EQ(rig.CommandFrames(kRunApplication),
            std::vector<Frame>{Hex("FF 57 00 00 AD 01 81 04 11 04 00 01 11 00 10 00 01")});
}

TEST_F(WriterTest, EraseCommandsCoverOneSectorMoreThanTheImage) {
  const struct {
    size_t imageSize;
    std::vector<std::pair<int, uint32_t>> erases;
  } cases[] = {
      {1024, {{3, 0x01001000}}},
      {30000, {{20, 0x01001000}, {20, 0x01003800}, {19, 0x01006000}}},
      {49984,
       {{20, 0x01001000}, {20, 0x01003800}, {20, 0x01006000}, {20, 0x01008800}, {18, 0x0100B000}}},
  };
  for (const auto& c : cases) {
    rig.sensor.erases.clear();
    rig.sensor.frames.clear();
    rig.clock.ClearSleeps();
    ASSERT_EQ(writer.LoadFile(WriteTempFile("erase.bin", TaggedFile(PatternBytes(c.imageSize)))),
              ErrNone);
    channel.RestartPulse();
    channel.HoldInBootLoader();
    rig.clock.ClearSleeps();
    writer.EraseChip();
    EXPECT_EQ(rig.sensor.erases, c.erases) << c.imageSize;
    EXPECT_EQ(rig.clock.sleeps(),
              Concat({Repeat({2, 300, 3, 1}, static_cast<int>(c.erases.size())), {10}}));
  }
  EXPECT_EQ(rig.CommandFrames(kEraseSectors).front(),
            Hex("FF 57 00 00 D2 01 81 03 21 06 00 01 25 14 00 00 10 00 01"));
  EXPECT_EQ(rig.sensor.badPackets, 0);
}

TEST_F(WriterTest, OnlyTheSecondConnectReplyIsJudged) {
  const std::string path = WriteTempFile("1.0.2.3.bin", PatternBytes(100));
  rig.sensor.faults.wrongConnectReplies = 1;  // the first answer is wrong
  EXPECT_TRUE(writer.Run(path));
  EXPECT_TRUE(rig.log.Contains("ConnectCmd Ok"));

  rig.log.Clear();
  rig.sensor.faults.wrongConnectReplies = 2;
  const int erasesBefore = static_cast<int>(rig.sensor.erases.size());
  EXPECT_FALSE(writer.Run(path));
  EXPECT_EQ(rig.log.Lines(), (std::vector<std::string>{
                                 "INFO update_fw.cpp: upgrading: writing to chip",
                                 "INFO update_fw.cpp: connect...",
                                 "INFO update_fw.cpp: 90 01 82 01 02 05 00 01 04 00 02 00 01 01 ",
                                 "INFO update_fw.cpp: ConnectCmd Error",
                                 "INFO update_fw.cpp: jump Uboot connect error : 4"}));
  EXPECT_EQ(static_cast<int>(rig.sensor.erases.size()), erasesBefore);
}

TEST_F(WriterTest, RejectedBlockStopsTheRunUnlessItIsTheLast) {
  const std::string path = WriteTempFile("1.0.2.3.bin", PatternBytes(1000));
  rig.sensor.faults.rejectedBlock = 5;
  EXPECT_FALSE(writer.Run(path));
  EXPECT_EQ(rig.log.Lines().back(), "INFO update_fw.cpp: write flash data Error 5");
  EXPECT_EQ(rig.sensor.writtenBlocks.size(), 5u);
  EXPECT_EQ(rig.sensor.runs, 0);
  EXPECT_EQ(rig.sensor.mode, sim::ForceSensor::Mode::kBootLoader);

  rig.log.Clear();
  rig.sensor.faults.rejectedBlock = 15;
  rig.sensor.faults.rejections = 1;
  EXPECT_TRUE(writer.Run(path));
  EXPECT_EQ(rig.sensor.writtenBlocks.size(), 5u + 15u);
  EXPECT_TRUE(rig.log.Contains("upgrade finish ret = 0"));
}

TEST_F(WriterTest, AllZeroRepliesFailTheConnectRule) {
  rig.sensor.faults.allZeroReplies = true;
  EXPECT_FALSE(writer.Run(WriteTempFile("1.0.2.3.bin", PatternBytes(1000))));
  const std::vector<std::string> lines = rig.log.Lines();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines[lines.size() - 3], "INFO update_fw.cpp: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ");
  EXPECT_EQ(lines.back(), "INFO update_fw.cpp: jump Uboot connect error : 4");
  // Six reads per reply while it stays zero.
  EXPECT_EQ(rig.sensor.readCalls, 12);
}

TEST_F(WriterTest, VersionIsComparedAsTextAfterFlashing) {
  const std::string path = WriteTempFile("1.0.2.03.bin", PatternBytes(64));
  UpdateFw padded("1.0.2.03", &channel, image.get());
  EXPECT_FALSE(padded.Run(path));
  EXPECT_EQ(rig.log.Lines().back(), "INFO update_fw.cpp: upgrade failed");
  EXPECT_TRUE(rig.log.Contains("read force version form firmware : 1.0.2.3"));

  rig.sensor.version = {0, 0, 0, 0};
  rig.log.Clear();
  EXPECT_FALSE(writer.Run(path));
  EXPECT_TRUE(rig.log.Contains("read force version form firmware : 0.0.0.0"));
}

TEST_F(WriterTest, LargeTaggedImageReportsEveryElevenPointsAndStopsAt99) {
  const std::vector<uint8_t> payload = PatternBytes(30000, 5);
  ASSERT_TRUE(writer.Run(WriteTempFile("1.0.2.3.bin", TaggedFile(payload))));
  // 100 would not be more than 10 points above the last report.
  EXPECT_EQ(rig.progress.posts, (std::vector<int>{26, 33, 39, 46, 53, 59, 66, 72, 79}));
  EXPECT_TRUE(rig.log.Contains("progress: 11"));
  EXPECT_TRUE(rig.log.Contains("progress: 99"));
  EXPECT_EQ(rig.sensor.ReadFlash(0x01001000, 30000), payload);
  EXPECT_EQ(rig.sensor.writtenBlocks.size(), 469u);  // 30000 / 64 rounded up
}

TEST_F(WriterTest, ClosedDeviceFailsConnectWithoutItsMessages) {
  channel.deviceOpen = false;
  EXPECT_EQ(writer.ConnectCmd(), ErrConnect);
  EXPECT_TRUE(rig.log.Lines().empty());
  EXPECT_FALSE(writer.Run(WriteTempFile("1.0.2.3.bin", PatternBytes(10))));
  EXPECT_EQ(rig.log.Lines(), (std::vector<std::string>{
                                 "INFO update_fw.cpp: upgrading: writing to chip",
                                 "INFO update_fw.cpp: connect...",
                                 "INFO update_fw.cpp: jump Uboot connect error : 4"}));
  EXPECT_EQ(rig.sensor.writeCalls, 0);
}

}  // namespace
}  // namespace calder
