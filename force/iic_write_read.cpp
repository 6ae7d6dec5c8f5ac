#include "force/iic_write_read.h"

#include <algorithm>
#include <cstdio>

#include "platform/bridge_library.h"
#include "platform/environment.h"

namespace calder {

namespace {

constexpr unsigned kAfterPacketMs = 2;
constexpr unsigned kBeforeReadMs = 3;
constexpr unsigned kAfterReadMs = 1;
constexpr unsigned kBetweenVersionPassesMs = 10;
constexpr unsigned kResetPulseMs = 100;
constexpr unsigned kAfterFailedTouchFrameMs = 10;
constexpr unsigned kAfterBootHoldMs = 2;
constexpr unsigned kAfterBootHoldsMs = 10;
constexpr int kBootHolds = 20;
constexpr int kVersionPasses = 101;
constexpr int kTouchFrameAttempts = 3;

bool AnyNonZero(const uint8_t* bytes, int count) {
  return std::any_of(bytes, bytes + count, [](uint8_t b) { return b != 0; });
}

}  // namespace

IICWriteRead::IICWriteRead(BridgeLibrary* bridge, int32_t retryCount)
    : retryCount(retryCount), bridge_(bridge) {}

IICWriteRead::~IICWriteRead() = default;

bool IICWriteRead::WriteFrame(const uint8_t* frame, int length) {
  if (!deviceOpen) return false;
  // The library takes a writable buffer; never hand it our constants.
  writeCopy_.assign(frame, frame + length);
  int result = -1;
  for (int attempt = 0; attempt <= retryCount && result != 0; ++attempt) {
    result = bridge_->btl_write_data(writeCopy_.data(), length);
  }
  return result == 0;
}

bool IICWriteRead::WriteFrame(const Frame& frame) {
  return WriteFrame(frame.data(), static_cast<int>(frame.size()));
}

void IICWriteRead::SendPacket(BootCommand command, const uint8_t* data, uint16_t length) {
  const Frame frame = CommandFrame(command, data, length);
  if (!deviceOpen) return;
  WriteFrame(frame);
  SleepMs(kAfterPacketMs);
}

void IICWriteRead::SendPacket(BootCommand command, const Frame& data) {
  SendPacket(command, data.data(), static_cast<uint16_t>(data.size()));
}

void IICWriteRead::ReadReply(uint8_t* buffer, uint8_t length) {
  if (!deviceOpen) return;
  WriteFrame(ReadRequestFrame(length));
  SleepMs(kBeforeReadMs);
  for (int attempt = 0; attempt <= retryCount; ++attempt) {
    bridge_->btl_read_data(buffer, length);
    SleepMs(kAfterReadMs);
    if (AnyNonZero(buffer, length)) break;
  }
}

bool IICWriteRead::ReadVersionBytes(uint8_t out[4]) {
  if (!deviceOpen) return false;
  WriteFrame(kVersionSelectFrame, sizeof kVersionSelectFrame);
  SleepMs(kBeforeReadMs);
  WriteFrame(ReadRequestFrame(4));
  SleepMs(kBeforeReadMs);
  int result = -1;
  for (int attempt = 0; attempt <= retryCount; ++attempt) {
    result = bridge_->btl_read_data(out, 4);
    SleepMs(kAfterReadMs);
    if (result == 0 && AnyNonZero(out, 4)) return true;
  }
  // Kept as the field sees it: an all-zero answer with a success code counts as
  // read; the only reader that looks at the result code.
  return result == 0;
}

std::string IICWriteRead::ReadVersion() {
  uint8_t bytes[4] = {};
  for (int pass = 0; pass < kVersionPasses; ++pass) {
    const bool ok = ReadVersionBytes(bytes);
    SleepMs(kBetweenVersionPassesMs);
    if (ok) break;
  }
  if (!AnyNonZero(bytes, 4)) return "0.0.0.0";
  char text[32];
  std::snprintf(text, sizeof text, "%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
  return text;
}

bool IICWriteRead::ResetAssert() { return WriteFrame(kResetAssertFrame, sizeof kResetAssertFrame); }

bool IICWriteRead::ResetRelease() {
  return WriteFrame(kResetReleaseFrame, sizeof kResetReleaseFrame);
}

void IICWriteRead::RestartPulse() {
  ResetAssert();
  SleepMs(kResetPulseMs);
  ResetRelease();
}

void IICWriteRead::HoldInBootLoader() {
  for (int i = 0; i < kBootHolds && deviceOpen; ++i) {
    WriteFrame(kBootHoldFrame, sizeof kBootHoldFrame);
    SleepMs(kAfterBootHoldMs);
  }
  SleepMs(kAfterBootHoldsMs);
}

bool IICWriteRead::DisableTouch() { return WriteTouchFrame(TouchFrame(true)); }

bool IICWriteRead::EnableTouch() { return WriteTouchFrame(TouchFrame(false)); }

bool IICWriteRead::WriteTouchFrame(const Frame& frame) {
  // Kept as the field sees it: its own retry policy, not retryCount, and
  // regardless of deviceOpen.
  Frame copy = frame;
  for (int attempt = 0; attempt < kTouchFrameAttempts; ++attempt) {
    if (bridge_->btl_write_data(copy.data(), static_cast<int>(copy.size())) == 0) return true;
    SleepMs(kAfterFailedTouchFrameMs);
  }
  return false;
}

}  // namespace calder
