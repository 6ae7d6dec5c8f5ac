#include "force/boot_loader_packets.h"

#include <algorithm>

namespace calder {

const uint8_t kSensorWritePrefix[4] = {0xFF, 0x57, 0x00, 0x00};
const uint8_t kResetAssertFrame[4] = {0xFF, 0xAA, 0x00, 0x01};
const uint8_t kResetReleaseFrame[4] = {0xFF, 0xAA, 0x00, 0x00};
const uint8_t kBootHoldFrame[6] = {0xFF, 0x57, 0x00, 0x00, 0x01, 0x01};
const uint8_t kVersionSelectFrame[5] = {0xFF, 0x57, 0x00, 0x00, 0x10};

namespace {

constexpr int kPacketHeaderLength = 9;

uint8_t Sum8(const uint8_t* bytes, int length) {
  unsigned sum = 0;
  for (int i = 0; i < length; ++i) sum += bytes[i];
  return static_cast<uint8_t>(sum);
}

// Every builder allocates its frame once: a phase sends hundreds of them.
uint8_t ByteOf(uint32_t value, int shift) { return static_cast<uint8_t>(value >> shift); }

void PutLe32(uint8_t* out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) *out++ = ByteOf(value, shift);
}

// Touch controller output report: SET_REPORT for report 0x0E through the
// HID-over-I2C command and data registers.
constexpr uint8_t kTouchFrameHead[10] = {0x22, 0x00, 0x2E, 0x03, 0x23, 0x00, 0x23, 0x00, 0x0E, 0x08};
constexpr int kTouchFrameLength = 40;

}  // namespace

Frame SensorWriteFrame(const uint8_t* payload, int length) {
  Frame frame(sizeof kSensorWritePrefix + static_cast<size_t>(length));
  std::copy_n(kSensorWritePrefix, sizeof kSensorWritePrefix, frame.begin());
  std::copy_n(payload, length, frame.begin() + sizeof kSensorWritePrefix);
  return frame;
}

Frame ReadRequestFrame(uint8_t length) { return {0xFF, 0x52, length, 0x00}; }

Frame CommandFrame(BootCommand command, const uint8_t* data, uint16_t length) {
  Frame frame(sizeof kSensorWritePrefix + kPacketHeaderLength + length);
  std::copy_n(kSensorWritePrefix, sizeof kSensorWritePrefix, frame.begin());
  uint8_t* packet = frame.data() + sizeof kSensorWritePrefix;
  const uint8_t header[kPacketHeaderLength] = {0x00,
                                               0x01,
                                               0x81,
                                               command.group,
                                               command.code,
                                               static_cast<uint8_t>(length & 0xFF),
                                               static_cast<uint8_t>(length >> 8),
                                               0x01,
                                               Sum8(data, length)};
  std::copy_n(header, kPacketHeaderLength, packet);
  packet[0] = Sum8(packet + 1, kPacketHeaderLength - 1);
  std::copy_n(data, length, packet + kPacketHeaderLength);
  return frame;
}

bool ParseCommandFrame(const uint8_t* frame, size_t size, ParsedCommand* parsed) {
  constexpr size_t kHead = sizeof kSensorWritePrefix + kPacketHeaderLength;
  if (size < kHead || !std::equal(kSensorWritePrefix, kSensorWritePrefix + 4, frame)) return false;
  const uint8_t* packet = frame + sizeof kSensorWritePrefix;
  if (packet[1] != 0x01 || packet[2] != 0x81 || packet[7] != 0x01) return false;
  const uint16_t length = static_cast<uint16_t>(packet[5] | packet[6] << 8);
  if (size != kHead + length) return false;
  *parsed = ParsedCommand{{packet[3], packet[4]}, packet + kPacketHeaderLength, length,
                          packet[0] == Sum8(packet + 1, kPacketHeaderLength - 1) &&
                              packet[8] == Sum8(packet + kPacketHeaderLength, length)};
  return true;
}

uint32_t Le32(const uint8_t* bytes) {
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

Frame EraseData(uint8_t sectors, uint32_t address) {
  return {sectors, 0x00, ByteOf(address, 0), ByteOf(address, 8), ByteOf(address, 16),
          ByteOf(address, 24)};
}

Frame WriteFlashData(uint32_t address, const uint8_t* block64) {
  Frame data(4 + kWriteBlockSize);
  PutLe32(data.data(), address);
  std::copy_n(block64, kWriteBlockSize, data.begin() + 4);
  return data;
}

Frame ReadFlashData(uint32_t address) {
  return {static_cast<uint8_t>(kReadChunkSize), 0x00, ByteOf(address, 0), ByteOf(address, 8),
          ByteOf(address, 16), ByteOf(address, 24)};
}

Frame RunApplicationData() {
  return {ByteOf(kApplicationStart, 0), ByteOf(kApplicationStart, 8),
          ByteOf(kApplicationStart, 16), ByteOf(kApplicationStart, 24)};
}

bool ConnectReplyOk(const uint8_t* reply) {
  return reply[9] == 0x00 && reply[10] == 0x02 && reply[11] == 0x00 && reply[12] == 0x01 &&
         reply[13] == 0x00;
}

bool WriteReplyOk(const uint8_t* reply) {
  return reply[3] == 0x03 && reply[4] == 0x02 && reply[9] == 0x00;
}

Frame TouchFrame(bool disable) {
  const uint8_t payload[7] = {0x00, 0x00, 0x02, 0x00, 0x00, 0xA1, disable ? uint8_t{1} : uint8_t{0}};
  uint8_t x = 0;
  for (uint8_t b : payload) x ^= b;
  Frame frame(kTouchFrameLength, 0x00);
  std::copy_n(kTouchFrameHead, sizeof kTouchFrameHead, frame.begin());
  frame[sizeof kTouchFrameHead] = static_cast<uint8_t>(x + 1);
  std::copy_n(payload, sizeof payload, frame.begin() + sizeof kTouchFrameHead + 1);
  return frame;
}

}  // namespace calder
