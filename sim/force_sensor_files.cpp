#include "sim/force_sensor_files.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>

namespace calder::sim {

namespace {

bool ParseInt(const std::string& text, int* value) {
  if (text.empty()) return false;
  char* end = nullptr;
  const long parsed = std::strtol(text.c_str(), &end, 0);
  if (*end != '\0') return false;
  *value = static_cast<int>(parsed);
  return true;
}

bool ParseVersion(const std::string& text, std::array<uint8_t, 4>* version) {
  unsigned a, b, c, d;
  char tail;
  if (std::sscanf(text.c_str(), "%u.%u.%u.%u%c", &a, &b, &c, &d, &tail) != 4) return false;
  if (a > 255 || b > 255 || c > 255 || d > 255) return false;
  *version = {static_cast<uint8_t>(a), static_cast<uint8_t>(b), static_cast<uint8_t>(c),
              static_cast<uint8_t>(d)};
  return true;
}

std::string VersionText(const std::array<uint8_t, 4>& v) {
  return std::to_string(v[0]) + "." + std::to_string(v[1]) + "." + std::to_string(v[2]) + "." +
         std::to_string(v[3]);
}

// Calls visit(key, value) per meaningful line; stops at the first false.
bool ForEachSetting(const std::string& text,
                    const std::function<bool(const std::string&, const std::string&)>& visit,
                    std::string* badLine) {
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t hash = line.find('#');
    if (hash != std::string::npos) line.erase(hash);
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos) continue;
    const size_t eq = line.find('=');
    const auto trim = [](std::string s) {
      const size_t b = s.find_first_not_of(" \t");
      const size_t e = s.find_last_not_of(" \t");
      return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
    };
    if (eq == std::string::npos || !visit(trim(line.substr(0, eq)), trim(line.substr(eq + 1)))) {
      if (badLine != nullptr) *badLine = line;
      return false;
    }
  }
  return true;
}

}  // namespace

bool ApplyScenario(const std::string& text, ForceSensor* sensor, std::string* error) {
  ForceSensorFaults& f = sensor->faults;
  const std::map<std::string, int*> numbers = {
      {"init_result", &f.initResult},
      {"open_result", &f.openResult},
      {"close_result", &f.closeResult},
      {"uninstall_result", &f.uninstallResult},
      {"failed_writes", &f.failedWrites},
      {"wrong_connect_replies", &f.wrongConnectReplies},
      {"rejected_block", &f.rejectedBlock},
      {"rejections", &f.rejections},
      {"failed_touch_frames", &f.failedTouchFrames},
      {"fail_every", &f.failEvery},
      {"silent_after_blocks", &f.silentAfterBlocks},
  };
  const std::map<std::string, bool*> flags = {
      {"writes_fail", &f.writesFail},
      {"reads_fail", &f.readsFail},
      {"all_zero_replies", &f.allZeroReplies},
  };
  return ForEachSetting(
      text,
      [&](const std::string& key, const std::string& value) {
        int number = 0;
        if (key == "version") return ParseVersion(value, &sensor->version);
        if (!ParseInt(value, &number)) return false;
        if (numbers.count(key) != 0) {
          *numbers.at(key) = number;
        } else if (flags.count(key) != 0) {
          *flags.at(key) = number != 0;
        } else if (key == "erased_value" && number >= 0 && number <= 255) {
          f.erasedValue = static_cast<uint8_t>(number);
        } else if (key == "version_offset" && number >= 0 &&
                   static_cast<uint32_t>(number) <= ForceSensor::kFlashSize - 4) {
          sensor->versionOffset = static_cast<uint32_t>(number);
        } else {
          return false;
        }
        return true;
      },
      error);
}

std::string FormatState(const ForceSensor& sensor) {
  std::ostringstream out;
  out << "mode=" << ModeName(sensor.mode) << "\n"
      << "version=" << VersionText(sensor.version) << "\n"
      << "connects=" << sensor.connects << "\n"
      << "erase_commands=" << sensor.erases.size() << "\n"
      << "written_blocks=" << sensor.writtenBlocks.size() << "\n"
      << "flash_reads=" << sensor.flashReads.size() << "\n"
      << "runs=" << sensor.runs << "\n"
      << "boot_loader_entries=" << sensor.bootLoaderEntries << "\n"
      << "bad_packets=" << sensor.badPackets << "\n"
      << "unknown_frames=" << sensor.unknownFrames << "\n"
      << "touch_enabled=" << (sensor.touchEnabled ? 1 : 0) << "\n"
      << "touch_frames=" << sensor.touchFrames.size() << "\n"
      << "calls=";
  for (size_t i = 0; i < sensor.calls.size(); ++i) out << (i ? "," : "") << sensor.calls[i];
  out << "\n";
  return out.str();
}

bool RestoreState(const std::string& text, ForceSensor* sensor) {
  const std::map<std::string, ForceSensor::Mode> modes = {
      {"application", ForceSensor::Mode::kApplication},
      {"reset", ForceSensor::Mode::kHeldInReset},
      {"booting", ForceSensor::Mode::kBooting},
      {"bootloader", ForceSensor::Mode::kBootLoader},
  };
  ForceSensor::Mode mode = sensor->mode;
  std::array<uint8_t, 4> version = sensor->version;
  const bool ok = ForEachSetting(
      text,
      [&](const std::string& key, const std::string& value) {
        if (key == "mode") {
          if (modes.count(value) == 0) return false;
          mode = modes.at(value);
        } else if (key == "version") {
          return ParseVersion(value, &version);
        }
        return true;  // the records are for readers, not restored
      },
      nullptr);
  if (!ok) return false;
  sensor->mode = mode;
  sensor->version = version;
  return true;
}

}  // namespace calder::sim
