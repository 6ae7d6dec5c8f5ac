#include "sim/trace/traced_libraries.h"

#include <algorithm>
#include <cstring>

#include "base/sha256.h"
#include "base/utf8.h"

namespace calder::replay {

int TracedBridge::Simple(BridgeEntryPoint entry) {
  std::vector<const TraceLine*> callbacks;
  const TraceLine* recorded = player.Next(CallLine(kBridgeLibraryEntryPoints[entry]), &callbacks);
  return recorded != nullptr ? *recorded->rc : kDeadDeviceResult;
}

int TracedBridge::btl_write_data(unsigned char* buffer, int length) {
  TraceLine call = CallLine(kBridgeLibraryEntryPoints[kWriteData]);
  call.len = length;
  call.in = BytesOf(buffer, length);
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
  if (buffer != nullptr && recorded->out) std::memcpy(buffer, recorded->out->data(), recorded->out->size());
  return *recorded->rc;
}

int32_t TracedUpgrade::Play(TraceLine actual, void* value, size_t size) {
  actual.in = BytesOf(value, static_cast<long long>(size));  // the host is little-endian, like the record
  std::vector<const TraceLine*> callbacks;
  const TraceLine* recorded = player.Next(std::move(actual), &callbacks);
  if (recorded == nullptr) return kDeadDeviceResult;
  for (const TraceLine* cb : callbacks) {
    const char* text = cb->text ? cb->text->c_str() : nullptr;
    if (cb->cb == "progress" && progress_ != nullptr) progress_(cb->value, text);
    if (cb->cb == "log" && log_ != nullptr) log_(cb->value, text);
  }
  if (value != nullptr && recorded->out && recorded->out->size() == size) {
    std::memcpy(value, recorded->out->data(), size);
  }
  return recorded->rc.value_or(0);
}

int32_t TracedUpgrade::Init(btl_upgrade_config* config) {
  progress_ = config != nullptr ? config->progress : nullptr;
  log_ = config != nullptr ? config->log : nullptr;
  TraceLine call = CallLine(kUpgradeLibraryEntryPoints[kUpgradeInit]);
  call.config = RecordedConfig(config);
  return Play(call, nullptr, 0);
}

int32_t TracedUpgrade::UpgradeFromFile(const char* path) {
  TraceLine call = CallLine(kUpgradeLibraryEntryPoints[kUpgradeFromFile]);
  call.path = TextOf(path);
  call.sha256 = path != nullptr ? check::FileSha256(path) : std::nullopt;
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
  call.path = TextOf(path);
  call.sha256 = path != nullptr ? check::FileSha256(path) : std::nullopt;
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

TraceLine HidLine(HidCall call, HidHandle handle) {
  TraceLine line = CallLine(kHidCalls[call]);
  line.dev = DevOf(handle);
  return line;
}

}  // namespace

const TraceLine* TracedHid::Play(TraceLine actual) {
  std::vector<const TraceLine*> callbacks;
  const TraceLine* recorded = player.Next(std::move(actual), &callbacks);
  // The device's own time in the call, carried over to the next whole ms.
  if (recorded != nullptr && recorded->retUs) {
    inCallUs_ += static_cast<uint64_t>(*recorded->retUs - recorded->tUs);
    clock_.Advance(inCallUs_ / 1000);
    inCallUs_ %= 1000;
  }
  return recorded;
}

std::vector<std::u16string> TracedHid::InterfacePaths() {
  std::vector<std::u16string> paths;
  if (const TraceLine* recorded = Play(CallLine(kHidCalls[kHidInterfaces]))) {
    for (const std::string& path : recorded->paths) paths.push_back(Utf8ToUtf16(path));
  }
  return paths;
}

bool TracedHid::ProbeAttributes(const std::u16string& path, HidAttributes* attributes) {
  TraceLine call = CallLine(kHidCalls[kHidAttributes]);
  call.path = Utf16ToUtf8(path);
  const TraceLine* recorded = Play(call);
  if (recorded == nullptr || recorded->rc.value_or(0) == 0 || !recorded->out) return false;
  const std::vector<uint8_t>& ids = *recorded->out;
  attributes->vendorId = static_cast<uint16_t>(ids[0] | ids[1] << 8);
  attributes->productId = static_cast<uint16_t>(ids[2] | ids[3] << 8);
  return true;
}

HidHandle TracedHid::OpenReadWrite(const std::u16string& path) {
  TraceLine call = CallLine(kHidCalls[kHidOpen]);
  call.path = Utf16ToUtf8(path);
  const TraceLine* recorded = Play(call);
  return recorded != nullptr ? HandleOf(recorded->dev.value_or(0)) : InvalidHidHandle();
}

bool TracedHid::Close(HidHandle handle) {
  const TraceLine* recorded = Play(HidLine(kHidClose, handle));
  return recorded != nullptr && recorded->rc.value_or(0) != 0;
}

bool TracedHid::SetOutputReport(HidHandle handle, const uint8_t* report, size_t size) {
  TraceLine call = HidLine(kHidSetOutputReport, handle);
  call.in = BytesOf(report, static_cast<long long>(size));
  call.len = static_cast<int64_t>(size);
  const TraceLine* recorded = Play(call);
  return recorded != nullptr && recorded->rc.value_or(0) != 0;
}

bool TracedHid::GetInputReport(HidHandle handle, uint8_t* report, size_t size) {
  TraceLine call = HidLine(kHidGetInputReport, handle);
  call.reportId = report != nullptr && size > 0 ? report[0] : 0;
  call.len = static_cast<int64_t>(size);
  const TraceLine* recorded = Play(call);
  if (recorded == nullptr) return false;
  // The recorded bytes of the length the run asked for, which matched.
  if (report != nullptr && recorded->out) std::copy(recorded->out->begin(), recorded->out->end(), report);
  return recorded->rc.value_or(0) != 0;
}

}  // namespace calder::replay
