#include "check/force_image_plan.h"

#include <cstdio>
#include <memory>
#include <numeric>
#include <vector>

#include "force/force_update.h"
#include "force/iic_write_read.h"
#include "force/read_firmware_content.h"
#include "force/update_fw.h"
#include "platform/environment.h"
#include "sim/simulated_laptop.h"

namespace calder::check {

namespace {

std::vector<uint8_t> FileBytes(const std::string& path) {
  std::vector<uint8_t> bytes;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return bytes;
  uint8_t chunk[4096];
  size_t got = 0;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes.insert(bytes.end(), chunk, chunk + got);
  std::fclose(file);
  return bytes;
}

// The laptop's sensor with the bridge opened, as the force procedure leaves
// it before the writer runs.
struct SensorBench {
  explicit SensorBench(const std::array<uint8_t, 4>& version) : scope(laptop.Wiring()) {
    sensor.version = version;
    sensor.btl_init_driver_7853();
    channel.deviceOpen = sensor.btl_open_device() == 0;
  }
  sim::SimulatedLaptop laptop;
  sim::ForceSensor& sensor = laptop.sensor;
  ScopedEnvironment scope;
  IICWriteRead channel{&sensor, kBridgeRetryCount};
};

}  // namespace

bool VersionBytesOf(const std::string& stem, std::array<uint8_t, 4>* bytes) {
  size_t at = 0;
  for (size_t field = 0; field < 4; ++field) {
    if (field > 0 && (at >= stem.size() || stem[at++] != '.')) return false;
    unsigned value = 0;
    size_t digits = 0;
    for (; at < stem.size() && stem[at] >= '0' && stem[at] <= '9' && digits < 4; ++at, ++digits) {
      value = value * 10 + static_cast<unsigned>(stem[at] - '0');
    }
    if (digits == 0 || value > 255) return false;
    (*bytes)[field] = static_cast<uint8_t>(value);
  }
  return at == stem.size();
}

std::string VersionTextOf(const std::array<uint8_t, 4>& bytes) {
  SensorBench bench(bytes);
  return bench.channel.ReadVersion();
}

bool IsVersionText(const std::string& stem) {
  std::array<uint8_t, 4> bytes{};
  return VersionBytesOf(stem, &bytes) && VersionTextOf(bytes) == stem;
}

ForceImagePlan PlanForceImage(const std::string& path, const std::string& targetVersion) {
  ForceImagePlan plan;
  const std::vector<uint8_t> bytes = FileBytes(path);
  plan.tagged = IsTaggedFirmwareFile(bytes.data(), bytes.size());
  auto image = std::make_unique<FirmwareImage>();
  plan.load = LoadFirmwareImage(path, image.get());
  if (plan.load != ErrNone) return plan;
  plan.imageSize = image->size;

  std::array<uint8_t, 4> version{1, 0, 0, 0};
  VersionBytesOf(targetVersion, &version);
  SensorBench bench(version);
  UpdateFw writer(targetVersion, &bench.channel, image.get());
  writer.Run(path);
  plan.blocks = static_cast<int>(bench.sensor.writtenBlocks.size());
  for (const auto& erase : bench.sensor.erases) plan.eraseSectors += erase.first;

  auto readerImage = std::make_unique<FirmwareImage>();
  ReadFirmwareContent reader(readerImage.get());
  reader.Run(path, &bench.channel);
  plan.readbackChunks = static_cast<int>(bench.sensor.flashReads.size());
  return plan;
}

}  // namespace calder::check
