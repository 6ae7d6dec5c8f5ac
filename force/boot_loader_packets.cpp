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

void AppendLe32(Frame& out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<uint8_t>(value >> shift));
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
  Frame packet = {0x00,
                  0x01,
                  0x81,
                  command.group,
                  command.code,
                  static_cast<uint8_t>(length & 0xFF),
                  static_cast<uint8_t>(length >> 8),
                  0x01,
                  Sum8(data, length)};
  packet[0] = Sum8(&packet[1], kPacketHeaderLength - 1);
  packet.insert(packet.end(), data, data + length);
  return SensorWriteFrame(packet.data(), static_cast<int>(packet.size()));
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
  Frame data = {sectors, 0x00};
  AppendLe32(data, address);
  return data;
}

Frame WriteFlashData(uint32_t address, const uint8_t* block64) {
  Frame data;
  AppendLe32(data, address);
  data.insert(data.end(), block64, block64 + kWriteBlockSize);
  return data;
}

Frame ReadFlashData(uint32_t address) {
  Frame data = {static_cast<uint8_t>(kReadChunkSize), 0x00};
  AppendLe32(data, address);
  return data;
}

Frame RunApplicationData() {
  Frame data;
  AppendLe32(data, kApplicationStart);
  return data;
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
  Frame frame(kTouchFrameHead, kTouchFrameHead + sizeof kTouchFrameHead);
  frame.push_back(static_cast<uint8_t>(x + 1));
  frame.insert(frame.end(), payload, payload + 7);
  frame.resize(kTouchFrameLength, 0x00);
  return frame;
}

}  // namespace calder
