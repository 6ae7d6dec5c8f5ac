// The force phase (UpdateForce: writer runs, read-back, calibration judge)
// against the sensor model, with the bridge's answers chosen by the fuzzer:
// replies kept, bit-flipped, replaced, zeroed or failed, and writes and
// lifecycle calls failed. Properties: the phase ends on bounded device time,
// closes what it opened, keeps progress in its share, and with an untouched
// bridge updates the sensor without breaking its protocol.

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "force/firmware_image.h"
#include "force/force_update.h"
#include "platform/bridge_library.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/progress.h"
#include "sim/force_sensor.h"
#include "sim/protocol_violations.h"
#include "sim/touch_device.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/quiet_log.h"

namespace calder {
namespace {

void Check(bool ok, const char* what) { fuzz::Check(ok, "boot_loader_reply_fuzz", what); }

// The sensor behind a bridge whose answers the fuzzer picks.
class FuzzedBridge : public BridgeLibrary {
 public:
  FuzzedBridge(sim::ForceSensor& sensor, fuzz::FuzzInput& in) : sensor_(sensor), in_(in) {}

  int btl_init_driver_7853() override { return Lifecycle("init", &sim::ForceSensor::btl_init_driver_7853); }
  int btl_open_device() override { return Lifecycle("open", &sim::ForceSensor::btl_open_device); }
  int btl_close_device() override { return Lifecycle("close", &sim::ForceSensor::btl_close_device); }
  int btl_uninstall_driver() override { return Lifecycle("uninstall", &sim::ForceSensor::btl_uninstall_driver); }

  int btl_write_data(unsigned char* buffer, int length) override {
    // One write in sixteen fails without reaching the sensor.
    if (in_.Take() % 16 == 15) {
      tampered = true;
      return sim::kSimWriteError;
    }
    return sensor_.btl_write_data(buffer, length);
  }

  int btl_read_data(unsigned char* buffer, int length) override {
    const int result = sensor_.btl_read_data(buffer, length);
    const fuzz::Tamper tamper = fuzz::TamperOf(in_.Take());
    if (tamper != fuzz::Tamper::kKeep) tampered = true;
    if (!fuzz::ApplyTamper(tamper, in_, buffer, static_cast<size_t>(length))) {
      return sim::kSimReadError;
    }
    return result;
  }

  std::vector<std::string> lifecycle;
  bool tampered = false;

 private:
  int Lifecycle(const char* name, int (sim::ForceSensor::*call)()) {
    lifecycle.push_back(name);
    const uint8_t decision = in_.Take();
    if (decision % 8 == 7) {
      tampered = true;
      return 1 + decision / 8;  // the library's own error, the sensor untouched
    }
    return (sensor_.*call)();
  }

  sim::ForceSensor& sensor_;
  fuzz::FuzzInput& in_;
};

class Posts : public ProgressPoster {
 public:
  void Post(int percent) override { posts.push_back(percent); }
  std::vector<int> posts;
};

struct ImageFile {
  std::string path;
  std::vector<uint8_t> image;  // what the sensor must hold after a good run
};

std::string WriteFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  const std::string path = "/tmp/calder_boot_fuzz_" + std::to_string(getpid()) + "_" + name;
  std::FILE* out = std::fopen(path.c_str(), "wb");
  Check(out != nullptr, "cannot write a firmware file");
  std::fwrite(bytes.data(), 1, bytes.size(), out);
  std::fclose(out);
  return path;
}

// A raw image of four blocks and a tagged one of 1000 bytes, written once.
const std::vector<ImageFile>& Images() {
  static std::vector<ImageFile> images;
  if (images.empty()) {
    std::vector<uint8_t> body(1000);
    for (size_t i = 0; i < body.size(); ++i) body[i] = static_cast<uint8_t>(1 + i * 13);
    std::vector<uint8_t> raw(body.begin(), body.begin() + 200);
    std::vector<uint8_t> tagged(72, 0x20);
    std::copy_n("AW8680", 6, tagged.begin() + 24);
    tagged.insert(tagged.end(), body.begin(), body.end());
    images.push_back({WriteFile("4.bin", raw), raw});
    images.back().image.resize(256, 0);
    images.push_back({WriteFile("tagged.bin", tagged), body});
    std::atexit([] {
      for (const ImageFile& file : images) std::remove(file.path.c_str());
    });
  }
  return images;
}

}  // namespace
}  // namespace calder

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace calder;
  fuzz::QuietLog();
  fuzz::FuzzInput in(data, size);
  const ImageFile& file = Images()[in.Take() % Images().size()];

  // A fresh process: the loaders' buffers start zero.
  WriterImage() = FirmwareImage();
  ReaderImage() = FirmwareImage();
  sim::TakeViolations();
  VirtualClock clock;
  sim::ForceSensor sensor(clock);
  sim::TouchDevice touch(clock);
  FuzzedBridge bridge(sensor, in);
  Posts progress;
  Environment env;
  env.clock = &clock;
  env.progress = &progress;
  env.bridge = &bridge;
  env.hid = &touch;
  bool result = false;
  {
    ScopedEnvironment scope(env);
    result = UpdateForce("1.0.2.3", file.path);
  }

  Check(bridge.lifecycle == std::vector<std::string>({"init", "open", "close", "uninstall"}),
        "the bridge lifecycle is not init, open, close, uninstall once each");
  Check(!progress.posts.empty() && progress.posts.back() == 90, "the phase did not end with 90");
  for (int percent : progress.posts) {
    Check(percent > 20 && percent <= 90, "a progress post outside the force share");
  }
  Check(clock.TotalSleptMs() < 120000, "the phase ran away");
  const std::vector<std::string> violations = sim::TakeViolations();
  if (!bridge.tampered) {
    Check(violations.empty(), "an untouched bridge saw a protocol violation");
    Check(result, "an untouched sensor was not updated");
    Check(sensor.ReadFlash(sim::ForceSensor::kFlashBase, file.image.size()) == file.image,
          "an untouched sensor does not hold the image");
  }
  return 0;
}
