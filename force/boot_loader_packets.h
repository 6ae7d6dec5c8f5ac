#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace calder {

using Frame = std::vector<uint8_t>;

// Boot-loader commands of the force sensor: group and code of the packet.
struct BootCommand {
  uint8_t group;
  uint8_t code;
};

constexpr BootCommand kConnect{0x01, 0x01};
constexpr BootCommand kEraseSectors{0x03, 0x21};
constexpr BootCommand kWriteFlash{0x03, 0x01};
constexpr BootCommand kReadFlash{0x03, 0x11};
constexpr BootCommand kRunApplication{0x04, 0x11};

constexpr uint32_t kApplicationStart = 0x01001000;
constexpr int kSectorSize = 512;
constexpr int kMaxSectorsPerErase = 20;
constexpr int kWriteBlockSize = 64;  // image bytes per Write flash packet
constexpr int kReadChunkSize = 40;   // flash bytes per Read flash packet
// The writer's and the reader's page size: recorded, used by no exchange.
constexpr int32_t kPageSize = 256;

// Reply lengths read after each command.
constexpr uint8_t kConnectReplyLength = 14;
constexpr uint8_t kEraseReplyLength = 10;
constexpr uint8_t kWriteReplyLength = 14;
constexpr uint8_t kReadReplyHeaderLength = 14;

// Bridge frames; the sensor-write prefix carries every payload for the sensor.
extern const uint8_t kSensorWritePrefix[4];  // FF 57 00 00
extern const uint8_t kResetAssertFrame[4];   // FF AA 00 01
extern const uint8_t kResetReleaseFrame[4];  // FF AA 00 00
extern const uint8_t kBootHoldFrame[6];      // FF 57 00 00 01 01
extern const uint8_t kVersionSelectFrame[5]; // FF 57 00 00 10

Frame SensorWriteFrame(const uint8_t* payload, int length);
Frame ReadRequestFrame(uint8_t length);  // FF 52 n 00

// A command packet (header, checksums, data) inside a sensor write frame.
Frame CommandFrame(BootCommand command, const uint8_t* data, uint16_t length);

// Data fields of the variable commands; addresses are little-endian.
Frame EraseData(uint8_t sectors, uint32_t address);
Frame WriteFlashData(uint32_t address, const uint8_t* block64);
Frame ReadFlashData(uint32_t address);
Frame RunApplicationData();

// A sensor write frame read back as the command packet it carries: false
// when it is none (no sensor-write prefix, too short, or a length that
// disagrees with the frame). Checksums are reported, not required.
struct ParsedCommand {
  BootCommand command;
  const uint8_t* data;
  uint16_t length;
  bool checksumsOk;
};
bool ParseCommandFrame(const uint8_t* frame, size_t size, ParsedCommand* parsed);

// Little-endian 32-bit value, as addresses stand in command data.
uint32_t Le32(const uint8_t* bytes);

// Reply rules: only the bytes named here are judged.
bool ConnectReplyOk(const uint8_t* reply14);
bool WriteReplyOk(const uint8_t* reply14);

// The 40-byte frames that switch the touch controller's input off and on.
Frame TouchFrame(bool disable);

}  // namespace calder
