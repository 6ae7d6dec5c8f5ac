#include "platform/win32/upgrade_library_win32.h"

namespace calder {

namespace {

void FillTable(EntryPointFinder& find, Win32UpgradeLibrary::Table* t) {
  find(kUpgradeLibraryEntryPoints[kUpgradeInit], &t->init);
  find(kUpgradeLibraryEntryPoints[kUpgradeFromFile], &t->upgradeFromFile);
  find(kUpgradeLibraryEntryPoints[kGetChecksum], &t->getChecksum);
  find(kUpgradeLibraryEntryPoints[kGetFirmwareVersion], &t->getFirmwareVersion);
  find(kUpgradeLibraryEntryPoints[kGetChipId], &t->getChipId);
  find(kUpgradeLibraryEntryPoints[kCheckNeedUpgrade], &t->checkNeedUpgrade);
  find(kUpgradeLibraryEntryPoints[kUpgradeDeinit], &t->deinit);
}

}  // namespace

Win32UpgradeLibrary::Win32UpgradeLibrary(const wchar_t* dllName)
    : binding_(dllName, LibraryFolder::kBesideExecutable, &FillTable) {}

int32_t Win32UpgradeLibrary::Unbound() const {
  return binding_.failure() == BindFailure::kEntryPointMissing ? kUpgradeEntryPointNotFound
                                                               : kUpgradeLibraryNotFound;
}

std::string Win32UpgradeLibrary::BindError() const {
  // Kept as the field sees it: this library's load error in brackets,
  // "(error 126)", where the bridge's line has ", error 126".
  if (binding_.failure() == BindFailure::kLibraryNotLoaded) {
    return binding_.FileName() + " could not be loaded (error " +
           std::to_string(binding_.loadError()) + ")";
  }
  return binding_.Missing();
}

int32_t Win32UpgradeLibrary::Init(btl_upgrade_config* config) {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->init(config) : Unbound();
}

int32_t Win32UpgradeLibrary::UpgradeFromFile(const char* path) {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->upgradeFromFile(path) : Unbound();
}

int32_t Win32UpgradeLibrary::GetChecksum(uint32_t* checksum) {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->getChecksum(checksum) : Unbound();
}

int32_t Win32UpgradeLibrary::GetFirmwareVersion(uint8_t* version) {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->getFirmwareVersion(version) : Unbound();
}

int32_t Win32UpgradeLibrary::GetChipId(uint8_t* chipId) {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->getChipId(chipId) : Unbound();
}

int32_t Win32UpgradeLibrary::CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) {
  const Table* t = binding_.Bind();
  return t != nullptr ? t->checkNeedUpgrade(path, needUpgrade) : Unbound();
}

void Win32UpgradeLibrary::Deinit() {
  // Closes what Init opened; never the call that loads the library.
  if (binding_.bound()) binding_.Bind()->deinit();
}

UpgradeLibrary* Win32Upgrade() {
  static Win32UpgradeLibrary library;
  return &library;
}

}  // namespace calder
