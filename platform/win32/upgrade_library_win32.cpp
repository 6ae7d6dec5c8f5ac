#include "platform/win32/upgrade_library_win32.h"

#include "platform/win32/library_loading.h"

namespace calder {

namespace {

template <typename Fn>
bool Resolve(HMODULE module, const char* name, Fn* slot) {
  FARPROC proc = GetProcAddress(module, name);
  *slot = reinterpret_cast<Fn>(reinterpret_cast<void*>(proc));
  return proc != nullptr;
}

}  // namespace

Win32UpgradeLibrary::Win32UpgradeLibrary(const wchar_t* dllName) : dllName_(dllName) {}

Win32UpgradeLibrary::~Win32UpgradeLibrary() {
  if (module_ != nullptr) FreeLibrary(module_);
}

int32_t Win32UpgradeLibrary::Bind() {
  if (tried_) return bindResult_;
  tried_ = true;
  module_ = LoadBesideExecutable(dllName_);
  if (module_ == nullptr) {
    bindError_ = LibraryFileName(dllName_) + " could not be loaded (error " +
                 std::to_string(GetLastError()) + ")";
    bindResult_ = kUpgradeLibraryNotFound;
    return bindResult_;
  }
  Table table = {};
  const char* missing = nullptr;
  auto need = [&](const char* name, auto* slot) {
    if (missing == nullptr && !Resolve(module_, name, slot)) missing = name;
  };
  need(kUpgradeLibraryEntryPoints[kUpgradeInit], &table.init);
  need(kUpgradeLibraryEntryPoints[kUpgradeFromFile], &table.upgradeFromFile);
  need(kUpgradeLibraryEntryPoints[kGetChecksum], &table.getChecksum);
  need(kUpgradeLibraryEntryPoints[kGetFirmwareVersion], &table.getFirmwareVersion);
  need(kUpgradeLibraryEntryPoints[kGetChipId], &table.getChipId);
  need(kUpgradeLibraryEntryPoints[kCheckNeedUpgrade], &table.checkNeedUpgrade);
  need(kUpgradeLibraryEntryPoints[kUpgradeDeinit], &table.deinit);
  if (missing != nullptr) {
    bindError_ = LibraryFileName(dllName_) + " has no entry point " + missing;
    bindResult_ = kUpgradeEntryPointNotFound;
    FreeLibrary(module_);
    module_ = nullptr;
    return bindResult_;
  }
  table_ = table;
  bound_ = true;
  return 0;
}

int32_t Win32UpgradeLibrary::Init(btl_upgrade_config* config) {
  const int32_t rc = Bind();
  return rc != 0 ? rc : table_.init(config);
}

int32_t Win32UpgradeLibrary::UpgradeFromFile(const char* path) {
  const int32_t rc = Bind();
  return rc != 0 ? rc : table_.upgradeFromFile(path);
}

int32_t Win32UpgradeLibrary::GetChecksum(uint32_t* checksum) {
  const int32_t rc = Bind();
  return rc != 0 ? rc : table_.getChecksum(checksum);
}

int32_t Win32UpgradeLibrary::GetFirmwareVersion(uint8_t* version) {
  const int32_t rc = Bind();
  return rc != 0 ? rc : table_.getFirmwareVersion(version);
}

int32_t Win32UpgradeLibrary::GetChipId(uint8_t* chipId) {
  const int32_t rc = Bind();
  return rc != 0 ? rc : table_.getChipId(chipId);
}

int32_t Win32UpgradeLibrary::CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) {
  const int32_t rc = Bind();
  return rc != 0 ? rc : table_.checkNeedUpgrade(path, needUpgrade);
}

void Win32UpgradeLibrary::Deinit() {
  if (bound_) table_.deinit();
}

UpgradeLibrary* Win32Upgrade() {
  static Win32UpgradeLibrary library;
  return &library;
}

}  // namespace calder
