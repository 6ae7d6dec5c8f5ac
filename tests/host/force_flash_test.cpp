// The writer (UpdateFw) and the read-back (ReadFirmwareContent) over one
// opened channel, as the upgrade runs them.

#include <gtest/gtest.h>

#include <memory>

#include "force/iic_write_read.h"
#include "force/read_firmware_content.h"
#include "force/update_fw.h"
#include "tests/support/force_rig.h"

namespace calder {
namespace {

using namespace test;

const std::vector<uint32_t> kConnectPauses = {2, 3, 1, 2, 3, 1};
const std::string kConnectOkReply = "8f 01 82 01 02 05 00 01 03 00 02 00 01 00 ";
const char kConnectError[] =
    "INFO read_firmware_content.cpp: ReadFirmwareContent::Run ConnectCmd error:  4";

std::string Line(const std::string& message) { return "INFO update_fw.cpp: " + message; }

class FlashTest : public testing::Test {
 protected:
  FlashTest() {
    rig.sensor.btl_open_device();
    channel.deviceOpen = true;
  }
  // Flashes the file as the upgrade does before a read-back, then forgets what the rig saw.
  void Flash(const std::string& path) {
    ASSERT_TRUE(writer.Run(path));
    rig.sensor.flashReads.clear();
    rig.clock.ClearSleeps();
    rig.log.Clear();
  }

  ForceRig rig;
  std::unique_ptr<FirmwareImage> image = std::make_unique<FirmwareImage>();
  std::unique_ptr<FirmwareImage> readImage = std::make_unique<FirmwareImage>();
  IICWriteRead channel{&rig.sensor, 5};
  UpdateFw writer{"1.0.2.3", &channel, image.get()};
  ReadFirmwareContent reader{readImage.get()};
};

TEST_F(FlashTest, WriterUnloadableFileFailsBeforeAnyBridgeTraffic) {
  EXPECT_FALSE(writer.Run(testing::TempDir() + "missing-1.0.2.3.bin"));
  EXPECT_EQ(rig.log.Lines(), (std::vector<std::string>{Line("upgrading: writing to chip"),
                                                       Line("LoadFile failed")}));
  const std::string big = WriteTempFile("1.0.2.3.bin", PatternBytes(49984));
  EXPECT_FALSE(writer.Run(big));
  EXPECT_EQ(rig.log.Lines().back(),
            "ERROR update_fw.cpp: firmware image does not fit the 50000-byte buffer or its header "
            "is cut short: " + big);
  EXPECT_EQ(rig.sensor.writeCalls, 0);
  EXPECT_TRUE(rig.clock.sleeps().empty());
}

TEST_F(FlashTest, WriterRaw1000ByteFileIsWrittenWithItsProgressPausesAndMessages) {
  std::vector<uint8_t> file = PatternBytes(1000);
  ASSERT_TRUE(writer.Run(WriteTempFile("1.0.2.3.bin", file)));

  std::vector<std::string> expected = {
      Line("upgrading: writing to chip"), Line("connect..."), Line(kConnectOkReply),
      Line("ConnectCmd Ok"), Line("erase chip... "), Line("start write flash... ")};
  for (const char* more : {"progress: 12", "progress: 25", "progress: 37", "progress: 50",
                           "progress: 62", "progress: 75", "progress: 87", "progress: 100",
                           "upgrade finish ret = 0", "read force version form firmware : 1.0.2.3",
                           "target force version : 1.0.2.3", "upgrade success"}) {
    expected.push_back(Line(more));
  }
  EXPECT_EQ(rig.log.Lines(), expected);
  EXPECT_EQ(rig.progress.posts, (std::vector<int>{27, 35, 42, 50, 57, 65, 72, 80}));
  EXPECT_EQ(rig.clock.sleeps(),
            Concat({RestartAndHoldPauses(), kConnectPauses, {20}, {2, 300, 3, 1}, {10, 50},
                    Repeat({2, 20, 3, 1}, 16), {2, 10}, {100, 500}, {3, 3, 1, 10}}));

  // Flash holds the file, then the padding, byte for byte.
  file.resize(1024, 0x00);
  EXPECT_EQ(rig.sensor.ReadFlash(0x01001000, 1024), file);
  EXPECT_EQ(rig.sensor.writtenBlocks.size(), 16u);
  EXPECT_EQ(rig.sensor.writtenBlocks.back(), 0x010013C0u);
  EXPECT_EQ(rig.sensor.runs, 1);
}

TEST_F(FlashTest, WriterEraseCommandsCoverOneSectorMoreThanTheImage) {
  const struct {
    size_t imageSize;
    std::vector<std::pair<int, uint32_t>> erases;
  } cases[] = {
      {1023, {{2, 0x01001000}}},
      {1024, {{3, 0x01001000}}},
      {10239, {{20, 0x01001000}}},
      {30000, {{20, 0x01001000}, {20, 0x01003800}, {19, 0x01006000}}},
      {49984,
       {{20, 0x01001000}, {20, 0x01003800}, {20, 0x01006000}, {20, 0x01008800}, {18, 0x0100B000}}},
  };
  for (const auto& c : cases) {
    rig.sensor.erases.clear();
    ASSERT_EQ(writer.LoadFile(WriteTempFile("erase.bin", TaggedFile(PatternBytes(c.imageSize)))),
              ErrNone);
    channel.RestartPulse();
    channel.HoldInBootLoader();
    writer.EraseChip();
    EXPECT_EQ(rig.sensor.erases, c.erases) << c.imageSize;
  }
}

TEST_F(FlashTest, WriterOnlyTheSecondConnectReplyIsJudged) {
  const std::string path = WriteTempFile("1.0.2.3.bin", PatternBytes(100));
  rig.sensor.faults.wrongConnectReplies = 1;  // the first answer is wrong
  EXPECT_TRUE(writer.Run(path));
  EXPECT_EQ(rig.log.Lines()[3], Line("ConnectCmd Ok"));

  rig.log.Clear();
  rig.sensor.faults.wrongConnectReplies = 2;
  const size_t erasesBefore = rig.sensor.erases.size();
  EXPECT_FALSE(writer.Run(path));
  EXPECT_EQ(rig.log.Lines(), (std::vector<std::string>{
                                 Line("upgrading: writing to chip"), Line("connect..."),
                                 Line("90 01 82 01 02 05 00 01 04 00 02 00 01 01 "),
                                 Line("ConnectCmd Error"), Line("jump Uboot connect error : 4")}));
  EXPECT_EQ(rig.sensor.erases.size(), erasesBefore);
}

TEST_F(FlashTest, WriterRejectedBlockStopsTheRunUnlessItIsTheLast) {
  const std::string path = WriteTempFile("1.0.2.3.bin", PatternBytes(1000));
  rig.sensor.faults.rejectedBlock = 5;
  EXPECT_FALSE(writer.Run(path));
  EXPECT_EQ(rig.log.Lines().back(), Line("write flash data Error 5"));
  EXPECT_EQ(rig.sensor.writtenBlocks.size(), 5u);
  EXPECT_EQ(rig.sensor.runs, 0);
  EXPECT_EQ(rig.sensor.mode, sim::ForceSensor::Mode::kBootLoader);

  rig.sensor.faults.rejectedBlock = 15;
  rig.sensor.faults.rejections = 1;
  EXPECT_TRUE(writer.Run(path));
  EXPECT_EQ(rig.sensor.writtenBlocks.size(), 5u + 15u);
  EXPECT_EQ(rig.sensor.runs, 1);
}

TEST_F(FlashTest, WriterVersionIsComparedAsTextAfterFlashing) {
  const std::string path = WriteTempFile("1.0.2.03.bin", PatternBytes(64));
  UpdateFw padded("1.0.2.03", &channel, image.get());
  EXPECT_FALSE(padded.Run(path));
  const std::vector<std::string> lines = rig.log.Lines();
  EXPECT_EQ(std::vector<std::string>(lines.end() - 3, lines.end()),
            (std::vector<std::string>{Line("read force version form firmware : 1.0.2.3"),
                                      Line("target force version : 1.0.2.03"),
                                      Line("upgrade failed")}));
}

TEST_F(FlashTest, WriterLargeTaggedImageReportsEveryElevenPointsAndStopsAt99) {
  const std::vector<uint8_t> payload = PatternBytes(30000, 5);
  ASSERT_TRUE(writer.Run(WriteTempFile("1.0.2.3.bin", TaggedFile(payload))));
  // 100 would not be more than 10 points above the last report.
  EXPECT_EQ(rig.progress.posts, (std::vector<int>{26, 33, 39, 46, 53, 59, 66, 72, 79}));
  EXPECT_EQ(rig.CountLines(Line("progress: 11")) + rig.CountLines(Line("progress: 99")), 2);
  EXPECT_EQ(rig.sensor.ReadFlash(0x01001000, 30000), payload);
  EXPECT_EQ(rig.sensor.writtenBlocks.size(), 469u);
}

TEST_F(FlashTest, ReadBackReadsWholeChunksPastTheImageAndAgreesOverZeroFlash) {
  const std::string path = WriteTempFile("1.0.2.3.bin", PatternBytes(1000));
  Flash(path);
  const double chip = reader.Run(path, &channel);

  std::vector<uint32_t> addresses;
  for (uint32_t a = 0x01001000; a <= 0x010013E8; a += 40) addresses.push_back(a);
  EXPECT_EQ(rig.sensor.flashReads, addresses);  // 26 chunks, the last 16 bytes past 1024
  EXPECT_EQ(chip, reader.chipChecksum);
  EXPECT_EQ(reader.chipChecksum, reader.fileChecksum);
  EXPECT_GT(reader.fileChecksum, 0.0);
  EXPECT_EQ(rig.clock.sleeps(),
            Concat({RestartAndHoldPauses(), kConnectPauses, {20}, Repeat({2, 10, 3, 1}, 26),
                    {2, 10}, {100, 500}}));
  EXPECT_EQ(rig.log.Lines(), (std::vector<std::string>{
                                 "INFO read_firmware_content.cpp: "
                                 "8f 01 82 01 02 05 00 01 03 00 02 00 01 00 ",
                                 "INFO read_firmware_content.cpp: ConnectCmd Ok"}));
  EXPECT_EQ(channel.ReadVersion(), "1.0.2.3");  // left running its application
}

TEST_F(FlashTest, ReadBackThreeFailedConnectsAreLoggedAndPausedAndReadingStillRuns) {
  const std::string path = WriteTempFile("1.0.2.3.bin", PatternBytes(100));
  Flash(path);
  rig.sensor.faults.wrongConnectReplies = 6;
  reader.Run(path, &channel);
  EXPECT_EQ(rig.CountLines(kConnectError), 3);
  EXPECT_EQ(rig.sensor.flashReads.size(), 4u);  // 128 bytes in 40-byte chunks
  EXPECT_EQ(reader.chipChecksum, reader.fileChecksum);
  const std::vector<uint32_t> failedConnect =
      Concat({RestartAndHoldPauses(), kConnectPauses, {200}});
  EXPECT_EQ(rig.clock.sleeps(), Concat({Repeat(failedConnect, 3), {20}, Repeat({2, 10, 3, 1}, 4),
                                        {2, 10}, {100, 500}}));
}

TEST_F(FlashTest, ReadBackUnreadableFileReadsNothingAndBothSumsStayZero) {
  EXPECT_EQ(reader.Run(testing::TempDir() + "absent.bin", &channel), 0.0);
  EXPECT_EQ(reader.fileChecksum, 0.0);
  EXPECT_TRUE(rig.sensor.flashReads.empty());
}

TEST_F(FlashTest, ReadBackOverAClosedChannelSendsNothingAndLogsOnlyTheFailedConnects) {
  channel.deviceOpen = false;
  EXPECT_EQ(reader.Run(WriteTempFile("1.0.2.3.bin", {1, 2, 3}), &channel), 0.0);
  EXPECT_EQ(rig.sensor.writeCalls + rig.sensor.readCalls, 0);
  EXPECT_EQ(rig.log.Lines(), std::vector<std::string>(3, kConnectError));
}

}  // namespace
}  // namespace calder
