#include "sim/trace/trace_decoder.h"

#include <algorithm>
#include <cstdio>

#include "force/boot_loader_packets.h"
#include "platform/bridge_library.h"
#include "platform/upgrade_library.h"

namespace calder::replay {

namespace {

constexpr int32_t kAlreadyLatest = 12;
constexpr size_t kFrameHeadShown = 16;

std::string Hex32(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

std::string Result(const std::optional<int32_t>& rc) {
  if (!rc) return "";
  return *rc == 0 ? " -> ok" : " -> error " + std::to_string(*rc);
}

bool Is(const std::vector<uint8_t>& bytes, const uint8_t* frame, size_t size) {
  return bytes.size() == size && std::equal(frame, frame + size, bytes.begin());
}

bool Same(const BootCommand& a, const BootCommand& b) { return a.group == b.group && a.code == b.code; }

std::string Quoted(const std::optional<std::string>& text) {
  return text ? "\"" + *text + "\"" : "(null)";
}

std::string Bytes(const std::optional<std::vector<uint8_t>>& bytes) {
  if (!bytes) return "?";
  uint32_t value = 0;
  for (size_t i = bytes->size(); i-- > 0;) value = value << 8 | (*bytes)[i];
  char text[16];
  std::snprintf(text, sizeof text, bytes->size() == 1 ? "0x%02x" : "0x%08x", value);
  return text;
}

std::string DecodeUpgrade(const TraceLine& line) {
  if (line.cb == "progress") return "progress " + std::to_string(line.value) + "% " + Quoted(line.text);
  if (line.cb == "log") {
    static const char* const kLevels[] = {"INFO", "WARN", "ERROR"};
    const std::string level = line.value >= 0 && line.value <= 2 ? kLevels[line.value]
                                                                  : "level " + std::to_string(line.value);
    return "log " + level + " " + Quoted(line.text);
  }
  std::string out = line.fn;
  if (line.config) {
    const TraceConfig& c = *line.config;
    char chip[8];
    std::snprintf(chip, sizeof chip, "0x%02x", c.chipId);
    out += " hwId " + Quoted(c.hwId) + " chip " + chip + " boot " + std::to_string(c.haveBoot) +
           " options";
    for (size_t i = 0; i < c.options.size(); ++i) out += (i == 0 ? " " : ",") + std::to_string(c.options[i]);
    out += std::string(" callbacks ") + (c.progress ? "progress" : "-") + "," + (c.log ? "log" : "-");
  }
  if (line.path) {
    out += " " + *line.path + " (sha256 " + (line.sha256 ? line.sha256->substr(0, 12) : "unreadable") + ")";
  }
  if (line.fn == kUpgradeLibraryEntryPoints[kUpgradeFromFile] && line.rc == kAlreadyLatest) {
    return out + " -> already latest (12)";
  }
  out += Result(line.rc);
  if (line.out && line.rc == 0) out += " " + Bytes(line.out);
  return out;
}

}  // namespace

std::string TraceDecoder::Decode(const TraceLine& line) {
  if (line.refused) return "the recorder refused " + *line.refused + ": " + line.why;
  if (library_ == TraceLibrary::kUpgrade) return DecodeUpgrade(line);
  if (library_ == TraceLibrary::kHid) return hid_.Decode(line);
  if (line.fn == kBridgeLibraryEntryPoints[kWriteData]) return DecodeWrite(line);
  if (line.fn == kBridgeLibraryEntryPoints[kReadData]) return DecodeRead(line);
  return line.fn + Result(line.rc);
}

std::string TraceDecoder::DecodeWrite(const TraceLine& line) {
  const std::vector<uint8_t> frame = line.in.value_or(std::vector<uint8_t>());
  std::string name;
  ParsedCommand packet{};
  if (Is(frame, kResetAssertFrame, sizeof kResetAssertFrame)) {
    name = "restart assert";
  } else if (Is(frame, kResetReleaseFrame, sizeof kResetReleaseFrame)) {
    name = "restart release";
  } else if (Is(frame, kBootHoldFrame, sizeof kBootHoldFrame)) {
    name = "boot-hold";
  } else if (Is(frame, kVersionSelectFrame, sizeof kVersionSelectFrame)) {
    name = "version select";
    pending_ = Pending::kVersion;
  } else if (frame == ReadRequestFrame(frame.size() == 4 ? frame[2] : 0) && frame.size() == 4) {
    name = "reply request " + std::to_string(frame[2]) + " bytes";
  } else if (frame == TouchFrame(true) || frame == TouchFrame(false)) {
    name = frame == TouchFrame(true) ? "touch-off" : "touch-on";
  } else if (ParseCommandFrame(frame.data(), frame.size(), &packet)) {
    const uint32_t address = packet.length >= 6 ? Le32(packet.data + 2) : 0;
    if (Same(packet.command, kConnect)) {
      name = "connect";
      pending_ = Pending::kConnect;
    } else if (Same(packet.command, kEraseSectors) && packet.length == 6) {
      name = "erase " + std::to_string(packet.data[0]) + " sectors at " + Hex32(address);
      pending_ = Pending::kErase;
    } else if (Same(packet.command, kWriteFlash) && packet.length >= 4) {
      const uint32_t at = Le32(packet.data);
      name = "write block " + std::to_string((at - kApplicationStart) / kWriteBlockSize) + " at " +
             Hex32(at) + " length " + std::to_string(packet.length - 4);
      pending_ = Pending::kWrite;
    } else if (Same(packet.command, kReadFlash) && packet.length == 6) {
      name = "read " + std::to_string(packet.data[0]) + " bytes at " + Hex32(address);
      pending_ = Pending::kRead;
      pendingAddress_ = address;
    } else if (Same(packet.command, kRunApplication) && packet.length == 4) {
      name = "run at " + Hex32(Le32(packet.data));
    } else {
      char code[32];
      std::snprintf(code, sizeof code, "command %02x/%02x", packet.command.group, packet.command.code);
      name = std::string(code) + " length " + std::to_string(packet.length);
    }
    if (!packet.checksumsOk) name += " (bad checksum)";
  } else {
    const std::vector<uint8_t> head(frame.begin(), frame.begin() + std::min(frame.size(), kFrameHeadShown));
    name = "unknown frame " + HexText(head) + (frame.size() > kFrameHeadShown ? "..." : "");
  }
  return "write " + std::to_string(frame.size()) + ": " + name + Result(line.rc);
}

std::string TraceDecoder::DecodeRead(const TraceLine& line) {
  if (!line.out) return "read " + std::to_string(line.len.value_or(0)) + " bytes";
  const std::vector<uint8_t> reply = *line.out;
  const std::string head = "read " + std::to_string(reply.size()) + ": ";
  const Pending pending = pending_;
  if (line.rc.value_or(0) != 0) return head + "error " + std::to_string(*line.rc);
  if (std::all_of(reply.begin(), reply.end(), [](uint8_t b) { return b == 0; })) {
    return head + "no answer (all zero)";
  }
  switch (pending) {
    case Pending::kConnect:
      return head + (reply.size() >= kConnectReplyLength && ConnectReplyOk(reply.data())
                         ? "connect reply ok"
                         : "connect: wrong reply " + HexText(reply));
    case Pending::kWrite:
      return head + (reply.size() >= kWriteReplyLength && WriteReplyOk(reply.data())
                         ? "write reply ok"
                         : "write: wrong reply " + HexText(reply));
    case Pending::kErase:
      return head + "erase reply (not examined)";
    case Pending::kRead:
      return head + "flash at " + Hex32(pendingAddress_);
    case Pending::kVersion:
      if (reply.size() == 4) {
        return head + "version " + std::to_string(reply[0]) + "." + std::to_string(reply[1]) + "." +
               std::to_string(reply[2]) + "." + std::to_string(reply[3]);
      }
      break;
    case Pending::kNone:
      break;
  }
  return head + HexText(reply);
}

std::string DecodedRow(const TraceLine& line, const std::string& decoded) {
  char head[48];
  std::snprintf(head, sizeof head, "%10.3f ms  #%-6lld ", static_cast<double>(line.tUs) / 1000.0,
                static_cast<long long>(line.seq));
  return head + decoded;
}

}  // namespace calder::replay
