#include "sim/trace/traced_libraries.h"

#include <cstdio>
#include <cstring>

#include "base/sha256.h"
#include "base/utf8.h"
#include "hid/recording_hid_host.h"

namespace calder::replay {

namespace {

std::vector<uint8_t> LeBytes(const void* value, size_t size) {
  const uint8_t* bytes = static_cast<const uint8_t*>(value);
  return std::vector<uint8_t>(bytes, bytes + size);  // the host is little-endian, like the record
}

}  // namespace

std::optional<std::string> FileSha256(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return std::nullopt;
  check::Sha256 sha;
  uint8_t chunk[65536];
  size_t got = 0;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) sha.Update(chunk, got);
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) return std::nullopt;
  const auto digest = sha.Finish();
  return check::HexOf(digest.data(), digest.size());
}

TraceLine CallLine(const char* fn) {
  TraceLine line;
  line.fn = fn;
  return line;
}

TraceConfig ConfigLine(const btl_upgrade_config* config) {
  TraceConfig c;
  if (config == nullptr) return c;
  if (config->hwId != nullptr) c.hwId = std::string(config->hwId);
  c.chipId = config->chipId;
  c.haveBoot = config->haveBoot;
  c.options = {config->option1, config->option2, config->option3};
  c.progress = config->progress != nullptr;
  c.log = config->log != nullptr;
  return c;
}

int TracedBridge::Simple(BridgeEntryPoint entry) {
  std::vector<const TraceLine*> callbacks;
  const TraceLine* recorded = player.Next(CallLine(kBridgeLibraryEntryPoints[entry]), &callbacks);
  return recorded != nullptr ? *recorded->rc : kDeadDeviceResult;
}

int TracedBridge::btl_write_data(unsigned char* buffer, int length) {
  TraceLine call = CallLine(kBridgeLibraryEntryPoints[kWriteData]);
  call.len = length;
  call.in = length > 0 && buffer != nullptr ? std::vector<uint8_t>(buffer, buffer + length)
                                             : std::vector<uint8_t>();
  std::vector<const TraceLine*> callbacks;
  const TraceLine* recorded = player.Next(call, &callbacks);
  return recorded != nullptr ? *recorded->rc : kDeadDeviceResult;
}

int TracedBridge::btl_read_data(unsigned char* buffer, int length) {
  TraceLine call = CallLine(kBridgeLibraryEntryPoints[kReadData]);
  call.len = length;
  std::vector<const TraceLine*> callbacks;
  const TraceLine* recorded = player.Next(call, &callbacks);
  if (recorded == nullptr) return kDeadDeviceResult;
  if (buffer != nullptr) std::memcpy(buffer, recorded->out->data(), recorded->out->size());
  return *recorded->rc;
}

int32_t TracedUpgrade::Play(TraceLine actual, void* value, size_t size) {
  if (value != nullptr) actual.in = LeBytes(value, size);
  std::vector<const TraceLine*> callbacks;
  const TraceLine* recorded = player.Next(std::move(actual), &callbacks);
  if (recorded == nullptr) return kDeadDeviceResult;
  for (const TraceLine* cb : callbacks) {
    const char* text = cb->text ? cb->text->c_str() : nullptr;
    if (cb->cb == "progress" && progress_ != nullptr) progress_(cb->value, text);
    if (cb->cb == "log" && log_ != nullptr) log_(cb->value, text);
  }
  if (value != nullptr && recorded->out) std::memcpy(value, recorded->out->data(), size);
  return recorded->rc.value_or(0);
}

int32_t TracedUpgrade::Init(btl_upgrade_config* config) {
  progress_ = config != nullptr ? config->progress : nullptr;
  log_ = config != nullptr ? config->log : nullptr;
  TraceLine call = CallLine(kUpgradeLibraryEntryPoints[kUpgradeInit]);
  call.config = ConfigLine(config);
  return Play(call, nullptr, 0);
}

int32_t TracedUpgrade::UpgradeFromFile(const char* path) {
  TraceLine call = CallLine(kUpgradeLibraryEntryPoints[kUpgradeFromFile]);
  call.path = path != nullptr ? path : "";
  call.sha256 = FileSha256(*call.path);
  return Play(call, nullptr, 0);
}

int32_t TracedUpgrade::GetChecksum(uint32_t* checksum) {
  return Play(CallLine(kUpgradeLibraryEntryPoints[kGetChecksum]), checksum, sizeof *checksum);
}

int32_t TracedUpgrade::GetFirmwareVersion(uint8_t* version) {
  return Play(CallLine(kUpgradeLibraryEntryPoints[kGetFirmwareVersion]), version, 1);
}

int32_t TracedUpgrade::GetChipId(uint8_t* chipId) {
  return Play(CallLine(kUpgradeLibraryEntryPoints[kGetChipId]), chipId, 1);
}

int32_t TracedUpgrade::CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) {
  TraceLine call = CallLine(kUpgradeLibraryEntryPoints[kCheckNeedUpgrade]);
  call.path = path != nullptr ? path : "";
  call.sha256 = FileSha256(*call.path);
  return Play(call, needUpgrade, sizeof *needUpgrade);
}

void TracedUpgrade::Deinit() { Play(CallLine(kUpgradeLibraryEntryPoints[kUpgradeDeinit]), nullptr, 0); }

namespace {

// A recorded dev number as the handle the run holds, and back; 0 is no open's.
HidHandle HandleOf(int64_t dev) {
  return dev > 0 ? reinterpret_cast<HidHandle>(static_cast<uintptr_t>(dev)) : InvalidHidHandle();
}

int64_t DevOf(HidHandle handle) {
  return handle == InvalidHidHandle() ? 0 : static_cast<int64_t>(reinterpret_cast<uintptr_t>(handle));
}

TraceLine HidCall(const char* fn, HidHandle handle) {
  TraceLine call = CallLine(fn);
  call.dev = DevOf(handle);
  return call;
}

}  // namespace

const TraceLine* TracedHid::Play(TraceLine actual) {
  std::vector<const TraceLine*> callbacks;
  return player.Next(std::move(actual), &callbacks);
}

std::vector<std::u16string> TracedHid::InterfacePaths() {
  std::vector<std::u16string> paths;
  if (const TraceLine* recorded = Play(CallLine(kHidInterfaces))) {
    for (const std::string& path : recorded->paths) paths.push_back(Utf8ToUtf16(path));
  }
  return paths;
}

bool TracedHid::ProbeAttributes(const std::u16string& path, HidAttributes* attributes) {
  TraceLine call = CallLine(kHidAttributes);
  call.path = Utf16ToUtf8(path);
  const TraceLine* recorded = Play(call);
  if (recorded == nullptr || *recorded->rc == 0) return false;
  const std::vector<uint8_t>& ids = *recorded->out;
  attributes->vendorId = static_cast<uint16_t>(ids[0] | ids[1] << 8);
  attributes->productId = static_cast<uint16_t>(ids[2] | ids[3] << 8);
  return true;
}

HidHandle TracedHid::OpenReadWrite(const std::u16string& path) {
  TraceLine call = CallLine(kHidOpen);
  call.path = Utf16ToUtf8(path);
  const TraceLine* recorded = Play(call);
  return recorded != nullptr ? HandleOf(*recorded->dev) : InvalidHidHandle();
}

bool TracedHid::Close(HidHandle handle) {
  const TraceLine* recorded = Play(HidCall(kHidClose, handle));
  return recorded != nullptr && *recorded->rc != 0;
}

bool TracedHid::SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) {
  TraceLine call = HidCall(kHidSetOutputReport, handle);
  call.in = std::vector<uint8_t>(report, report + size);
  call.len = static_cast<int64_t>(size);
  const TraceLine* recorded = Play(call);
  return recorded != nullptr && *recorded->rc != 0;
}

bool TracedHid::GetInputReport(HidHandle handle, uint8_t* report, size_t size) {
  TraceLine call = HidCall(kHidGetInputReport, handle);
  call.in = size > 0 ? std::vector<uint8_t>(report, report + 1) : std::vector<uint8_t>();
  call.len = static_cast<int64_t>(size);
  const TraceLine* recorded = Play(call);
  if (recorded == nullptr) return false;
  std::copy(recorded->out->begin(), recorded->out->end(), report);
  return *recorded->rc != 0;
}

}  // namespace calder::replay
