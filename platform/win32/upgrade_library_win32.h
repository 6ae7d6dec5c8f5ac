#pragma once

#include <string>

#include "platform/upgrade_library.h"
#include "platform/win32/library_binding.h"

namespace calder {

// btl_upgrade.dll from the executable's folder (or a test's path), bound on
// the first call, all entry points or none.
// While unbound every call returns kUpgradeLibraryNotFound or
// kUpgradeEntryPointNotFound and BindError() says why; Deinit does nothing.
class Win32UpgradeLibrary : public UpgradeLibrary {
 public:
  explicit Win32UpgradeLibrary(const wchar_t* dllName = kUpgradeLibraryFile);

  int32_t Init(btl_upgrade_config* config) override;
  int32_t UpgradeFromFile(const char* path) override;
  int32_t GetChecksum(uint32_t* checksum) override;
  int32_t GetFirmwareVersion(uint8_t* version) override;
  int32_t GetChipId(uint8_t* chipId) override;
  int32_t CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) override;
  void Deinit() override;
  std::string BindError() const override;

  struct Table {
    int32_t (*init)(btl_upgrade_config*);
    int32_t (*upgradeFromFile)(const char*);
    int32_t (*getChecksum)(uint32_t*);
    int32_t (*getFirmwareVersion)(uint8_t*);
    int32_t (*getChipId)(uint8_t*);
    int32_t (*checkNeedUpgrade)(const char*, uint32_t*);
    void (*deinit)();
  };

 private:
  // What every call returns while the library is not bound.
  int32_t Unbound() const;

  LibraryBinding<Table> binding_;
};

// The process's one binding of btl_upgrade.dll.
UpgradeLibrary* Win32Upgrade();

}  // namespace calder
