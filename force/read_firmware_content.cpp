#include "force/read_firmware_content.h"

#include <vector>

#include "base/log.h"
#include "force/boot_loader_packets.h"
#include "force/connect_exchange.h"
#include "force/iic_write_read.h"
#include "platform/environment.h"

namespace calder {

namespace {

constexpr int kConnectAttempts = 3;
constexpr unsigned kAfterFailedConnectMs = 200;
constexpr unsigned kBeforeReadBackMs = 20;
constexpr unsigned kAfterReadPacketMs = 10;
constexpr unsigned kAfterRunApplicationMs = 10;
constexpr unsigned kApplicationStartupMs = 500;

}  // namespace

ReadFirmwareContent::ReadFirmwareContent(FirmwareImage* image) : image_(image) {}

ReadFirmwareContent::~ReadFirmwareContent() = default;

double ReadFirmwareContent::Run(std::string path, IICWriteRead* lent) {
  // An unreadable file leaves the image as it was; the read-back still runs.
  LoadFile(path);
  channel = lent;
  for (int attempt = 0; attempt < kConnectAttempts; ++attempt) {
    channel->RestartPulse();
    channel->HoldInBootLoader();
    const ErrType result = ConnectCmd();
    if (result == ErrNone) break;
    SleepMs(kAfterFailedConnectMs);  // Kept as the field sees it: two blanks before the code below.
    LOG(INFO) << "ReadFirmwareContent::Run ConnectCmd error:  " << result;
  }
  SleepMs(kBeforeReadBackMs);
  ReadChecksum();
  channel->SendPacket(kRunApplication, RunApplicationData());
  SleepMs(kAfterRunApplicationMs);
  channel->RestartPulse();
  SleepMs(kApplicationStartupMs);
  return chipChecksum;
}

ReadFirmwareContent::ErrType ReadFirmwareContent::LoadFile(const std::string& path) {
  const ErrType result = LoadFirmwareImage(path, image_);
  if (result == ErrNone) fileChecksum += ImageChecksum(*image_);
  return result;
}

ReadFirmwareContent::ErrType ReadFirmwareContent::ConnectCmd() {
  std::string replyLine;
  const ConnectVerdict verdict = ExchangeConnect(channel, &replyLine);
  if (verdict == ConnectVerdict::kNotOpen) return ErrConnect;
  LOG(INFO) << replyLine;
  LOG(INFO) << (verdict == ConnectVerdict::kOk ? "ConnectCmd Ok" : "ConnectCmd Error");
  return verdict == ConnectVerdict::kOk ? ErrNone : ErrConnect;
}

ReadFirmwareContent::ErrType ReadFirmwareContent::ReadChecksum() {
  if (image_->size < 1) {
    chipChecksum = 0.0;
    return ErrNone;
  }
  uint16_t offset = 0;
  uint32_t address = kApplicationStart;
  int32_t sum = 0;
  // Kept as the field sees it: whole chunks, so up to 39 bytes past the image
  // are read and counted, and the sums may then differ.
  std::vector<uint8_t> reply(kReadReplyHeaderLength + kReadChunkSize, 0);
  do {
    channel->SendPacket(kReadFlash, ReadFlashData(address));
    SleepMs(kAfterReadPacketMs);
    channel->ReadReply(reply.data(), static_cast<uint8_t>(reply.size()));
    for (size_t i = kReadReplyHeaderLength; i < reply.size(); ++i) sum += reply[i];
    offset = static_cast<uint16_t>(offset + kReadChunkSize);
    address += kReadChunkSize;
  } while (offset < image_->size);
  chipChecksum = static_cast<double>(sum);
  return ErrNone;
}

}  // namespace calder
