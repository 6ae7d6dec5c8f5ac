#include "sim/force_sensor.h"

#include <algorithm>
#include <cstring>

#include "sim/protocol_violations.h"

namespace calder::sim {

namespace {

// The sensor's own copy of the protocol's numbers, written apart from force/
// on purpose: a wrong number there shows up as a violation here.
constexpr int kCommandHeader = 9;
constexpr int kTouchFrameLength = 40;
constexpr uint8_t kStatusOk = 0x00;
constexpr uint8_t kStatusFailed = 0x01;
constexpr int kReadChunk = 40;
constexpr int kWriteBlock = 64;
constexpr size_t kOldFirmwareSize = 4096;
constexpr uint8_t kTouchPayload[] = {0x00, 0x00, 0x02, 0x00, 0x00, 0xA1};

uint8_t Sum(const uint8_t* bytes, int count) {
  unsigned sum = 0;
  for (int i = 0; i < count; ++i) sum += bytes[i];
  return static_cast<uint8_t>(sum);
}

uint32_t Le32(const uint8_t* bytes) {
  return bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

void PutLe32(std::vector<uint8_t>& out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

std::string HexOf(const uint8_t* bytes, int count) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string out;
  for (int i = 0; i < count && i < 40; ++i) {
    if (i != 0) out += ' ';
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 0x0F];
  }
  return count > 40 ? out + " ..." : out;
}

bool StartsWith(const uint8_t* frame, int length, std::initializer_list<uint8_t> prefix) {
  return length >= static_cast<int>(prefix.size()) &&
         std::equal(prefix.begin(), prefix.end(), frame);
}

}  // namespace

const char* ModeName(ForceSensor::Mode mode) {
  switch (mode) {
    case ForceSensor::Mode::kApplication: return "application";
    case ForceSensor::Mode::kHeldInReset: return "reset";
    case ForceSensor::Mode::kBooting: return "booting";
    case ForceSensor::Mode::kBootLoader: return "bootloader";
  }
  return "?";
}

ForceSensor::ForceSensor(Clock& clock) : clock_(clock) { Reset(); }

void ForceSensor::Reset() {
  faults = ForceSensorFaults();
  version = kFactoryVersion;
  versionOffset.reset();
  mode = Mode::kApplication;
  bootWindowMs = kBootWindowMs;
  // The factory firmware, so that a write without an erase is caught.
  static const std::vector<uint8_t> kFactoryFlash = [] {
    std::vector<uint8_t> bytes(kFlashSize, 0x00);
    for (size_t i = 0; i < kOldFirmwareSize; ++i) bytes[i] = static_cast<uint8_t>(0xA5 ^ i);
    return bytes;
  }();
  flash = kFactoryFlash;
  calls.clear();
  frames.clear();
  writeCalls = readCalls = badPackets = unknownFrames = connects = 0;
  erases.clear();
  writtenBlocks.clear();
  flashReads.clear();
  runs = bootLoaderEntries = 0;
  touchFrames.clear();
  touchEnabled = true;
  open_ = silent_ = false;
  dataCalls_ = 0;
  releasedAt_ = 0;
  output_.clear();
}

int ForceSensor::btl_init_driver_7853() {
  calls.push_back("btl_init_driver_7853");
  return faults.initResult;
}

int ForceSensor::btl_open_device() {
  calls.push_back("btl_open_device");
  open_ = faults.openResult == 0;
  return faults.openResult;
}

int ForceSensor::btl_close_device() {
  calls.push_back("btl_close_device");
  SettleBoot();
  open_ = false;
  return faults.closeResult;
}

int ForceSensor::btl_uninstall_driver() {
  calls.push_back("btl_uninstall_driver");
  return faults.uninstallResult;
}

int ForceSensor::btl_write_data(unsigned char* buffer, int length) {
  ++writeCalls;
  if (!open_) return kSimNotOpen;
  if (faults.writesFail || NthCallFails()) return kSimWriteError;
  if (faults.failedWrites > 0) {
    --faults.failedWrites;
    return kSimWriteError;
  }
  if (buffer == nullptr || length < 0) return kSimWriteError;
  const bool touch = StartsWith(buffer, length, {0x22, 0x00});
  if (touch && faults.failedTouchFrames > 0) {
    --faults.failedTouchFrames;
    return kSimWriteError;
  }
  if (recordFrames) frames.emplace_back(buffer, buffer + length);
  SettleBoot();
  if (silent_ && !touch) return 0;

  if (touch) {
    HandleTouchFrame(buffer, length);
  } else if (StartsWith(buffer, length, {0xFF, 0xAA, 0x00}) && length == 4) {
    if (buffer[3] > 0x01) {
      RecordViolation("force sensor: reset frame with byte 3 neither 01 (assert) nor 00 (release): " +
                      HexOf(buffer, length));
    }
    if (buffer[3] == 0x01) {
      mode = Mode::kHeldInReset;
      output_.clear();
    } else if (mode == Mode::kHeldInReset) {
      mode = Mode::kBooting;
      releasedAt_ = clock_.NowMs();
    }
  } else if (StartsWith(buffer, length, {0xFF, 0x52}) && length == 4) {
    // Selects how much the next read returns; the reply is already waiting
    // and the bus transfer has to take all of it.
    if (!output_.empty() && buffer[2] != output_.size()) {
      RecordViolation("force sensor: read request for " + std::to_string(buffer[2]) +
                      " bytes while the reply owed is " + std::to_string(output_.size()));
    }
  } else if (StartsWith(buffer, length, {0xFF, 0x57, 0x00, 0x00}) && length > 4) {
    HandleSensorPayload(buffer + 4, length - 4);
  } else {
    ++unknownFrames;
    RecordViolation("force sensor: unknown bridge frame: " + HexOf(buffer, length));
  }
  return 0;
}

int ForceSensor::btl_read_data(unsigned char* buffer, int length) {
  ++readCalls;
  if (!open_) return kSimNotOpen;
  if (faults.readsFail || NthCallFails()) return kSimReadError;
  if (buffer == nullptr || length < 0) return kSimReadError;
  SettleBoot();
  std::memset(buffer, 0, static_cast<size_t>(length));
  if (!faults.allZeroReplies && !silent_ && mode != Mode::kHeldInReset) {
    std::copy_n(output_.begin(), std::min<size_t>(output_.size(), length), buffer);
  }
  return 0;
}

bool ForceSensor::NthCallFails() {
  ++dataCalls_;
  return faults.failEvery > 0 && dataCalls_ % faults.failEvery == 0;
}

void ForceSensor::SettleBoot() {
  // Without a boot hold in time the boot loader hands over to the application.
  if (mode == Mode::kBooting && clock_.NowMs() - releasedAt_ > bootWindowMs) StartApplication();
}

void ForceSensor::StartApplication() {
  output_.clear();
  const bool erased = std::all_of(flash.begin(), flash.begin() + kSectorSize,
                                  [this](uint8_t b) { return b == faults.erasedValue; });
  // An erased application area leaves the boot loader in charge.
  mode = erased ? Mode::kBootLoader : Mode::kApplication;
}

void ForceSensor::HandleSensorPayload(const uint8_t* payload, int length) {
  if (mode == Mode::kHeldInReset) return;
  if (mode == Mode::kBooting) {
    if (length == 2 && payload[0] == 0x01 && payload[1] == 0x01 &&
        clock_.NowMs() - releasedAt_ <= bootWindowMs) {
      mode = Mode::kBootLoader;
      output_.clear();
      ++bootLoaderEntries;
      return;
    }
    StartApplication();
  }
  if (mode == Mode::kApplication) {
    if (length == 1 && payload[0] == 0x10) {
      if (versionOffset) {
        output_ = ReadFlash(kFlashBase + *versionOffset, version.size());
      } else {
        output_.assign(version.begin(), version.end());
      }
    }
    return;
  }
  // Boot loader: a hold frame is harmless, anything else must be a valid packet.
  if (length == 2 && payload[0] == 0x01 && payload[1] == 0x01) return;
  const int dataLength = length >= kCommandHeader ? payload[5] | (payload[6] << 8) : -1;
  if (length < kCommandHeader || payload[1] != 0x01 || payload[2] != 0x81 || payload[7] != 0x01 ||
      dataLength != length - kCommandHeader || payload[0] != Sum(payload + 1, 8) ||
      payload[8] != Sum(payload + kCommandHeader, dataLength)) {
    ++badPackets;
    RecordViolation("force sensor: boot loader payload with a bad layout or checksum: " +
                    HexOf(payload, length));
    output_.clear();
    return;
  }
  HandleCommand(payload[3], payload[4], payload + kCommandHeader, dataLength);
}

void ForceSensor::HandleCommand(uint8_t group, uint8_t code, const uint8_t* data, int length) {
  if (group == 0x01 && code == 0x01 && length == 0) {
    ++connects;
    const bool wrong = faults.wrongConnectReplies > 0;
    if (wrong) --faults.wrongConnectReplies;
    Reply(0x01, 0x02, {kStatusOk, 0x02, 0x00, 0x01, static_cast<uint8_t>(wrong ? 0x01 : 0x00)});
  } else if (group == 0x03 && code == 0x21 && length == 6) {
    const int count = data[0];
    const uint32_t address = Le32(data + 2);
    erases.emplace_back(count, address);
    const bool ok = count >= 1 && count <= 20 && (address - kFlashBase) % kSectorSize == 0 &&
                    InFlash(address, count * kSectorSize);
    if (ok) {
      std::fill_n(flash.begin() + (address - kFlashBase), count * kSectorSize, faults.erasedValue);
    }
    Reply(0x03, 0x22, {ok ? kStatusOk : kStatusFailed});
  } else if (group == 0x03 && code == 0x01 && length == 4 + kWriteBlock) {
    const uint32_t address = Le32(data);
    bool ok = InFlash(address, kWriteBlock);
    if (ok) {
      // Flash takes a write only where it is erased.
      const auto target = flash.begin() + (address - kFlashBase);
      ok = std::all_of(target, target + kWriteBlock,
                       [this](uint8_t b) { return b == faults.erasedValue; });
      const int block = static_cast<int>((address - kFlashBase) / kWriteBlock);
      if (ok && block == faults.rejectedBlock && faults.rejections > 0) {
        --faults.rejections;
        ok = false;
      }
      if (ok) {
        std::copy_n(data + 4, kWriteBlock, target);
        writtenBlocks.push_back(address);
        silent_ = faults.silentAfterBlocks >= 0 &&
                  static_cast<int>(writtenBlocks.size()) >= faults.silentAfterBlocks;
      }
    }
    std::vector<uint8_t> reply;
    reply.reserve(5);
    reply.push_back(ok ? kStatusOk : kStatusFailed);
    PutLe32(reply, address);
    Reply(0x03, 0x02, reply);
  } else if (group == 0x03 && code == 0x11 && length == 6 && data[0] == kReadChunk && data[1] == 0) {
    const uint32_t address = Le32(data + 2);
    flashReads.push_back(address);
    std::vector<uint8_t> reply;
    reply.reserve(5 + kReadChunk);
    reply.push_back(kStatusOk);
    PutLe32(reply, address);
    const std::vector<uint8_t> bytes = ReadFlash(address, kReadChunk);
    reply.insert(reply.end(), bytes.begin(), bytes.end());
    Reply(0x03, 0x12, reply);
  } else if (group == 0x04 && code == 0x11 && length == 4 && Le32(data) == kFlashBase) {
    ++runs;
    StartApplication();
  } else {
    ++badPackets;
    RecordViolation("force sensor: unknown boot loader command or data: " +
                    HexOf(data - kCommandHeader, length + kCommandHeader));
    output_.clear();
  }
}

void ForceSensor::HandleTouchFrame(const uint8_t* frame, int length) {
  static const uint8_t kHead[] = {0x22, 0x00, 0x2E, 0x03, 0x23, 0x00, 0x23, 0x00, 0x0E, 0x08};
  if (length != kTouchFrameLength || !std::equal(std::begin(kHead), std::end(kHead), frame)) {
    ++unknownFrames;
    RecordViolation("force sensor: touch frame with a bad head or length: " +
                    HexOf(frame, length));
    return;
  }
  uint8_t x = 0;
  for (int i = 11; i < 18; ++i) x ^= frame[i];
  // The controller takes the report as a whole: fixed payload, one switch
  // byte, zeros to the end.
  if (frame[10] != static_cast<uint8_t>(x + 1) ||
      !std::equal(std::begin(kTouchPayload), std::end(kTouchPayload), frame + 11) ||
      frame[17] > 0x01 || std::any_of(frame + 18, frame + length, [](uint8_t b) { return b != 0; })) {
    ++badPackets;
    RecordViolation("force sensor: touch frame with a bad checksum, payload or tail: " +
                    HexOf(frame, length));
    return;
  }
  const bool disable = frame[17] == 0x01;
  touchFrames.push_back(disable);
  touchEnabled = !disable;
}

void ForceSensor::Reply(uint8_t group, uint8_t code, const std::vector<uint8_t>& data) {
  const uint16_t length = static_cast<uint16_t>(data.size());
  output_ = {0x00, 0x01, 0x82, group, code, static_cast<uint8_t>(length & 0xFF),
             static_cast<uint8_t>(length >> 8), 0x01,
             Sum(data.data(), static_cast<int>(data.size()))};
  output_[0] = Sum(output_.data() + 1, 8);
  output_.insert(output_.end(), data.begin(), data.end());
}

bool ForceSensor::InFlash(uint32_t address, uint32_t count) const {
  return address >= kFlashBase && address - kFlashBase <= kFlashSize &&
         count <= kFlashSize - (address - kFlashBase);
}

std::vector<uint8_t> ForceSensor::ReadFlash(uint32_t address, size_t count) const {
  std::vector<uint8_t> out(count, 0x00);
  for (size_t i = 0; i < count; ++i) {
    const uint64_t at = static_cast<uint64_t>(address) + i;
    if (at >= kFlashBase && at < kFlashBase + kFlashSize) out[i] = flash[at - kFlashBase];
  }
  return out;
}

}  // namespace calder::sim
