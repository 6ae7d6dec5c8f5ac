#include "sim/trace/traced_libraries.h"

#include <cstring>

#include "base/sha256.h"

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

}  // namespace calder::replay
