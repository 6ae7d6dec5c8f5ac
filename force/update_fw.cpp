#include "force/update_fw.h"

#include <algorithm>
#include <utility>

#include "base/log.h"
#include "base/log_lines.h"
#include "force/boot_loader_packets.h"
#include "force/connect_exchange.h"
#include "force/iic_write_read.h"
#include "platform/environment.h"
#include "platform/progress.h"

namespace calder {

namespace lines = log_lines::update_fw_cpp;

namespace {

constexpr unsigned kAfterConnectMs = 20;
constexpr unsigned kAfterEraseChipMs = 50;
constexpr unsigned kAfterEraseCommandMs = 300;
constexpr unsigned kAfterEraseMs = 10;
constexpr unsigned kAfterBlockMs = 20;
constexpr unsigned kAfterRunApplicationMs = 10;
constexpr unsigned kApplicationStartupMs = 500;
constexpr uint32_t kEraseCommandSpan = kMaxSectorsPerErase * kSectorSize;
// The force write owns 20 to 80 of the window's scale.
constexpr int kProgressBase = kTouchpadProgressEnd;
constexpr int kProgressStep = 10;

}  // namespace

UpdateFw::UpdateFw(std::string targetVersion, IICWriteRead* channel, FirmwareImage* image)
    : channel(channel), targetVersion(std::move(targetVersion)), image_(image) {}

UpdateFw::~UpdateFw() = default;

bool UpdateFw::Run(std::string path) {
  LOG(INFO) << lines::kWriting;
  const ErrType loaded = LoadFile(path);
  if (loaded != ErrNone) {
    LOG(INFO) << lines::kLoadFileFailed;
    if (loaded == ErrImageSize) {
      LOG(ERROR) << "firmware image does not fit the " << kImageBufferSize
                 << "-byte buffer or its header is cut short: " << path;
    }
    return false;
  }
  channel->RestartPulse();
  channel->HoldInBootLoader();

  LOG(INFO) << "connect...";
  ErrType result = ConnectCmd();
  SleepMs(kAfterConnectMs);
  if (result != ErrNone) {
    LOG(INFO) << lines::kConnectError << result;
    return false;
  }

  LOG(INFO) << "erase chip... ";
  EraseChip();
  SleepMs(kAfterEraseChipMs);

  LOG(INFO) << "start write flash... ";
  result = WriteFw();
  if (result != ErrNone) {
    LOG(INFO) << lines::kWriteError << result;
    return false;
  }
  channel->SendPacket(kRunApplication, RunApplicationData());
  SleepMs(kAfterRunApplicationMs);
  LOG(INFO) << lines::kFinished << 0;

  channel->RestartPulse();
  SleepMs(kApplicationStartupMs);
  return UpgradeCheck(channel->ReadVersion());
}

UpdateFw::ErrType UpdateFw::LoadFile(const std::string& path) {
  return LoadFirmwareImage(path, image_);
}

UpdateFw::ErrType UpdateFw::ConnectCmd() {
  std::string replyLine;
  const ConnectVerdict verdict = ExchangeConnect(channel, &replyLine);
  if (verdict == ConnectVerdict::kNotOpen) return ErrConnect;
  LOG(INFO) << replyLine;
  LOG(INFO) << (verdict == ConnectVerdict::kOk ? "ConnectCmd Ok" : "ConnectCmd Error");
  return verdict == ConnectVerdict::kOk ? ErrNone : ErrConnect;
}

void UpdateFw::EraseChip() {
  // Kept as the field sees it: one sector more than the image's whole sectors.
  const int sectors = image_->size / kSectorSize + 1;
  const int commands = sectors / kMaxSectorsPerErase + (sectors % kMaxSectorsPerErase != 0 ? 1 : 0);
  uint32_t address = kApplicationStart;
  for (int i = 0; i < commands; ++i) {
    const bool last = i == commands - 1;
    const int count = last && sectors % kMaxSectorsPerErase != 0 ? sectors % kMaxSectorsPerErase
                                                                 : kMaxSectorsPerErase;
    channel->SendPacket(kEraseSectors, EraseData(static_cast<uint8_t>(count), address));
    address += kEraseCommandSpan;
    SleepMs(kAfterEraseCommandMs);
    uint8_t reply[kEraseReplyLength] = {};
    channel->ReadReply(reply, kEraseReplyLength);
  }
  SleepMs(kAfterEraseMs);
}

UpdateFw::ErrType UpdateFw::WriteFw() {
  lastProgress = 0;
  if (image_->size < 1) return ErrNone;
  uint16_t offset = 0;
  uint32_t address = kApplicationStart;
  do {
    // Whole blocks only; past the buffer's end the block is zero-filled.
    uint8_t block[kWriteBlockSize] = {};
    const int available = std::min(kWriteBlockSize, kImageBufferSize - offset);
    std::copy_n(image_->buffer + offset, available, block);
    channel->SendPacket(kWriteFlash, WriteFlashData(address, block));
    offset = static_cast<uint16_t>(offset + kWriteBlockSize);
    address += kWriteBlockSize;
    SleepMs(kAfterBlockMs);
    const ErrType stopped = offset < image_->size ? ErrIncomplete : ErrNone;
    if (!channel->deviceOpen) return stopped;

    uint8_t reply[kWriteReplyLength] = {};
    channel->ReadReply(reply, kWriteReplyLength);
    // Kept as the field sees it: a rejected final block still counts as written.
    if (!WriteReplyOk(reply)) return stopped;

    const int percent = offset * 100 / image_->size;
    if (percent > lastProgress + kProgressStep) {
      LOG(INFO) << lines::kProgress << percent;
      lastProgress = percent;
      PostProgress(kProgressBase + percent * 6 / 10);
    }
  } while (offset < image_->size);
  return ErrNone;
}
// Kept as the field sees it: "form" for "from" in the first log text.
bool UpdateFw::UpgradeCheck(const std::string& version) {
  LOG(INFO) << lines::kReadVersion << version;
  LOG(INFO) << lines::kTargetVersion << targetVersion;
  if (version == targetVersion) {
    LOG(INFO) << lines::kUpgradeSuccess;
    return true;
  }
  LOG(INFO) << lines::kUpgradeFailed;
  return false;
}

}  // namespace calder
