#pragma once

#include <cstdint>
#include <string>

namespace calder {

struct btl_upgrade_config;

// Results of every entry point when btl_upgrade.dll cannot be bound; the
// values are Windows' own codes for the two cases.
// Kept as the field sees it: the touchpad phase logs them as its init error
// code, where the bridge answers -1.
constexpr int32_t kUpgradeLibraryNotFound = 126;    // ERROR_MOD_NOT_FOUND
constexpr int32_t kUpgradeEntryPointNotFound = 127;  // ERROR_PROC_NOT_FOUND

// The library's file and the entry points bound from it, in binding order.
inline constexpr wchar_t kUpgradeLibraryFile[] = L"btl_upgrade.dll";
enum UpgradeEntryPoint { kUpgradeInit, kUpgradeFromFile, kGetChecksum, kGetFirmwareVersion,
                         kGetChipId, kCheckNeedUpgrade, kUpgradeDeinit };
inline constexpr const char* kUpgradeLibraryEntryPoints[] = {
    "btl_upgrade_init", "btl_upgrade_from_file", "btl_get_checksum", "btl_get_firmware_version",
    "btl_get_chip_id",  "btl_check_need_upgrade", "btl_upgrade_deinit"};

// The seven entry points of the vendor's touchpad upgrade library, called in
// the library's order: Init, then (only if it returned 0) any queries, then
// Deinit. Results are the library's own: 0 success, anything else an error.
class UpgradeLibrary {
 public:
  virtual ~UpgradeLibrary() = default;
  virtual int32_t Init(btl_upgrade_config* config) = 0;
  virtual int32_t UpgradeFromFile(const char* path) = 0;
  virtual int32_t GetChecksum(uint32_t* checksum) = 0;
  virtual int32_t GetFirmwareVersion(uint8_t* version) = 0;
  virtual int32_t GetChipId(uint8_t* chipId) = 0;
  virtual int32_t CheckNeedUpgrade(const char* path, uint32_t* needUpgrade) = 0;
  virtual void Deinit() = 0;
  // Why the library could not be bound; empty while it is bound or untried.
  virtual std::string BindError() const { return std::string(); }
};

}  // namespace calder
