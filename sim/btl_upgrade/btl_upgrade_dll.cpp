// The stand-in's scenario comes from the environment, read once at the first
// call:
//   BTL_SIM_INIT_RESULT, BTL_SIM_UPGRADE_RESULT, BTL_SIM_CHECKSUM_RESULT,
//   BTL_SIM_VERSION_RESULT, BTL_SIM_CHIP_ID_RESULT, BTL_SIM_CHECK_RESULT
//                        results that replace the entry point's own work
//   BTL_SIM_CHECKSUM_MODE "low16" (default) or "full32"
//   BTL_SIM_FLASH        a file whose content the controller already holds
//   BTL_SIM_RECORD       a file to which every call is appended, one a line
//   BTL_SIM_TRACE        a recorded trace that answers every call instead of
//                        the model
//   CALDER_SIM_VIOLATIONS  a file for the protocol violations the model records

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include "sim/trace/trace_emulation.h"
#include "sim/stand_in_violations.h"
#include "sim/touchpad_controller.h"

using calder::btl_upgrade_config;
using calder::UpgradeLibrary;
using calder::replay::TraceEmulation;
using calder::sim::ChecksumMode;
using calder::sim::TouchpadController;

namespace {

std::optional<int32_t> EnvResult(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || value[0] == '\0') return std::nullopt;
  return static_cast<int32_t>(std::strtol(value, nullptr, 0));
}

TouchpadController& Chip() {
  static TouchpadController chip = [] {
    TouchpadController c;
    c.initResult = EnvResult("BTL_SIM_INIT_RESULT");
    c.upgradeResult = EnvResult("BTL_SIM_UPGRADE_RESULT");
    c.checksumResult = EnvResult("BTL_SIM_CHECKSUM_RESULT");
    c.versionResult = EnvResult("BTL_SIM_VERSION_RESULT");
    c.chipIdResult = EnvResult("BTL_SIM_CHIP_ID_RESULT");
    c.checkResult = EnvResult("BTL_SIM_CHECK_RESULT");
    const char* mode = std::getenv("BTL_SIM_CHECKSUM_MODE");
    if (mode != nullptr && std::string(mode) == "full32") c.checksumMode = ChecksumMode::Full32;
    if (const char* flash = std::getenv("BTL_SIM_FLASH")) {
      std::ifstream in(flash, std::ios::binary);
      c.flash.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return c;
  }();
  return chip;
}

// Recorded paths are compared relative to the folder of the program that runs.
std::string ProgramFolder() {
  char path[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  const std::string program(path, length < MAX_PATH ? length : 0);
  const size_t slash = program.find_last_of("\\/");
  return slash == std::string::npos ? "." : program.substr(0, slash);
}

TraceEmulation* live = nullptr;

TraceEmulation* Emulation() {
  static const std::unique_ptr<TraceEmulation> emulation = []() -> std::unique_ptr<TraceEmulation> {
    const char* trace = std::getenv("BTL_SIM_TRACE");
    if (trace == nullptr || trace[0] == '\0') return nullptr;
    return std::make_unique<TraceEmulation>(calder::TraceLibrary::kUpgrade, trace, ProgramFolder());
  }();
  live = emulation.get();
  return live;
}

void ReportEmulation(TraceEmulation* emulation) {
  if (emulation == nullptr) return;
  for (const std::string& problem : emulation->TakeProblems()) calder::sim::RecordViolation(problem);
}

UpgradeLibrary& Library() {
  if (TraceEmulation* emulation = Emulation()) return emulation->upgrade();
  return Chip();
}

// Every entry point records its call last, so the model's violations go out
// with it.
void Record(const std::string& line) {
  ReportEmulation(Emulation());
  calder::sim::ReportViolations("btl_upgrade");
  const char* path = std::getenv("BTL_SIM_RECORD");
  if (path == nullptr || path[0] == '\0') return;
  if (std::FILE* f = std::fopen(path, "ab")) {
    std::fprintf(f, "%s\n", line.c_str());
    std::fclose(f);
  }
}

std::string Result(const char* call, int32_t rc) { return std::string(call) + " -> " + std::to_string(rc); }

}  // namespace

#define BTL_EXPORT extern "C" __declspec(dllexport)

BTL_EXPORT int32_t btl_upgrade_init(btl_upgrade_config* config) {
  const int32_t rc = Library().Init(config);
  if (Emulation() != nullptr) {
    Record(Result("btl_upgrade_init", rc));
    return rc;
  }
  const calder::sim::TpSeenConfig& seen = Chip().seenConfig;
  char line[256];
  std::snprintf(line, sizeof line,
                "btl_upgrade_init hw_id=%s chip_id=0x%02X have_boot=%d options=%d,%d,%d zero=%s "
                "callbacks=%s -> %d",
                seen.hwId.c_str(), seen.chipId, seen.haveBoot, seen.options[0], seen.options[1],
                seen.options[2], seen.zeroBytesClean && seen.lastNull ? "yes" : "no",
                seen.progressSet && seen.logSet ? "yes" : "no", rc);
  Record(line);
  return rc;
}

BTL_EXPORT int32_t btl_upgrade_from_file(const char* path) {
  const int32_t rc = Library().UpgradeFromFile(path);
  Record(Result((std::string("btl_upgrade_from_file ") + (path != nullptr ? path : "")).c_str(), rc));
  return rc;
}

BTL_EXPORT int32_t btl_get_checksum(uint32_t* checksum) {
  const int32_t rc = Library().GetChecksum(checksum);
  Record(Result("btl_get_checksum", rc));
  return rc;
}

BTL_EXPORT int32_t btl_get_firmware_version(uint8_t* version) {
  const int32_t rc = Library().GetFirmwareVersion(version);
  Record(Result("btl_get_firmware_version", rc));
  return rc;
}

BTL_EXPORT int32_t btl_get_chip_id(uint8_t* chipId) {
  const int32_t rc = Library().GetChipId(chipId);
  Record(Result("btl_get_chip_id", rc));
  return rc;
}

BTL_EXPORT int32_t btl_check_need_upgrade(const char* path, uint32_t* needUpgrade) {
  const int32_t rc = Library().CheckNeedUpgrade(path, needUpgrade);
  Record(Result("btl_check_need_upgrade", rc));
  return rc;
}

BTL_EXPORT void btl_upgrade_deinit() {
  Library().Deinit();
  Record("btl_upgrade_deinit");
}

// A run that ends short of its trace is told when the program lets go of the
// library (static objects still live here).
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_DETACH && live != nullptr) {
    live->Finish();
    ReportEmulation(live);
    calder::sim::ReportViolations("btl_upgrade");
  }
  return TRUE;
}
