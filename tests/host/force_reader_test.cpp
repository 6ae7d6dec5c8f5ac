#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "force/iic_write_read.h"
#include "force/read_firmware_content.h"
#include "force/update_fw.h"
#include "tests/support/force_rig.h"

namespace calder {
namespace {

using test::Concat;
using test::PatternBytes;
using test::Repeat;
using test::RestartAndHoldPauses;
using test::WriteTempFile;

const char kConnectError[] =
    "INFO read_firmware_content.cpp: ReadFirmwareContent::Run ConnectCmd error:  4";

class ReaderTest : public testing::Test {
 protected:
  ReaderTest() : channel(&rig.sensor, 5), reader(image.get()) {
    rig.sensor.btl_open_device();
    channel.deviceOpen = true;
  }

  // Flashes the file through the writer, as the upgrade does before a read-back.
  void Flash(const std::string& path) {
    auto writerImage = std::make_unique<FirmwareImage>();
    UpdateFw writer("1.0.2.3", &channel, writerImage.get());
    ASSERT_TRUE(writer.Run(path));
    rig.sensor.frames.clear();
    rig.sensor.flashReads.clear();
    rig.clock.ClearSleeps();
    rig.log.Clear();
  }

  test::ForceRig rig;
  std::unique_ptr<FirmwareImage> image = std::make_unique<FirmwareImage>();
  IICWriteRead channel;
  ReadFirmwareContent reader;
};

TEST_F(ReaderTest, ReadsWholeChunksPastTheImageAndAgreesOverZeroFlash) {
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
            Concat({RestartAndHoldPauses(), {2, 3, 1, 2, 3, 1}, {20}, Repeat({2, 10, 3, 1}, 26),
                    {2, 10}, {100, 500}}));
  EXPECT_EQ(rig.log.Lines(), (std::vector<std::string>{
                                 "INFO read_firmware_content.cpp: "
                                 "8f 01 82 01 02 05 00 01 03 00 02 00 01 00 ",
                                 "INFO read_firmware_content.cpp: ConnectCmd Ok"}));
  EXPECT_EQ(channel.ReadVersion(), "1.0.2.3");  // left running its application
}

TEST_F(ReaderTest, ThreeFailedConnectsAreLoggedAndPausedAndTheReadBackStillRuns) {
  const std::string path = WriteTempFile("1.0.2.3.bin", PatternBytes(100));
  Flash(path);
  rig.sensor.faults.wrongConnectReplies = 6;
  reader.Run(path, &channel);
  EXPECT_EQ(rig.CountLines(kConnectError), 3);
  EXPECT_EQ(rig.sensor.flashReads.size(), 4u);  // 128 bytes in 40-byte chunks
  EXPECT_EQ(reader.chipChecksum, reader.fileChecksum);
  const std::vector<uint32_t> failedConnect =
      Concat({RestartAndHoldPauses(), {2, 3, 1, 2, 3, 1}, {200}});
  EXPECT_EQ(rig.clock.sleeps(), Concat({Repeat(failedConnect, 3), {20}, Repeat({2, 10, 3, 1}, 4),
                                        {2, 10}, {100, 500}}));
}

TEST_F(ReaderTest, UnreadableFileReadsNothingAndBothSumsStayZero) {
  EXPECT_EQ(reader.Run(testing::TempDir() + "absent.bin", &channel), 0.0);
  EXPECT_EQ(reader.fileChecksum, 0.0);
  EXPECT_TRUE(rig.sensor.flashReads.empty());
}

}  // namespace
}  // namespace calder
