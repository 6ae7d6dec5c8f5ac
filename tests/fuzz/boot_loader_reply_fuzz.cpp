// The force phase (UpdateForce: writer runs, read-back, calibration judge)
// against the sensor model, with the bridge's answers chosen by the fuzzer.
// No touch device: its answers would not be fuzzed here (hid_report_fuzz
// covers that code), so the judge always finds none. Tampering:
// replies kept, bit-flipped, replaced, zeroed or failed, and writes and
// lifecycle calls failed. Properties: the phase ends on bounded device time,
// closes what it opened, keeps progress in its share, and with an untouched
// bridge updates the sensor without breaking its protocol.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "force/firmware_image.h"
#include "force/force_update.h"
#include "platform/bridge_library.h"
#include "platform/environment.h"
#include "platform/progress.h"
#include "sim/force_sensor.h"
#include "sim/protocol_violations.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/quiet_log.h"

namespace calder {
namespace {

using Sensor = sim::ForceSensor;

void Check(bool ok, const char* what) { fuzz::Check(ok, "boot_loader_reply_fuzz", what); }

// The sensor behind a bridge whose answers the fuzzer picks.
class FuzzedBridge : public BridgeLibrary {
 public:
  FuzzedBridge(Sensor& sensor, fuzz::FuzzInput& in) : sensor_(sensor), in_(in) {}
  int btl_init_driver_7853() override { return Lifecycle(&Sensor::btl_init_driver_7853); }
  int btl_open_device() override { return Lifecycle(&Sensor::btl_open_device); }
  int btl_close_device() override { return Lifecycle(&Sensor::btl_close_device); }
  int btl_uninstall_driver() override { return Lifecycle(&Sensor::btl_uninstall_driver); }

  int btl_write_data(unsigned char* buffer, int length) override {
    if (in_.Take() % 16 != 15) return sensor_.btl_write_data(buffer, length);
    tampered = true;  // lost before it reached the sensor
    return sim::kSimWriteError;
  }

  int btl_read_data(unsigned char* buffer, int length) override {
    const int result = sensor_.btl_read_data(buffer, length);
    const fuzz::Tamper tamper = fuzz::TamperOf(in_.Take());
    tampered = tampered || tamper != fuzz::Tamper::kKeep;
    return fuzz::ApplyTamper(tamper, in_, buffer, static_cast<size_t>(length)) ? result
                                                                               : sim::kSimReadError;
  }

  std::string lifecycle;
  bool tampered = false;

 private:
  int Lifecycle(int (Sensor::*call)()) {
    lifecycle += "*";
    const uint8_t decision = in_.Take();
    if (decision % 8 != 7) return (sensor_.*call)();
    tampered = true;
    return 1 + decision / 8;  // the library's own error, the sensor untouched
  }

  Sensor& sensor_;
  fuzz::FuzzInput& in_;
};

class Posts : public ProgressPoster {
 public:
  void Post(int percent) override { posts.push_back(percent); }
  std::vector<int> posts;
};

// A tagged file with an image of two blocks, in memory so that no run
// leaves a file behind (libFuzzer ends without exit handlers).
const std::vector<uint8_t> kFile = [] {
  std::vector<uint8_t> file(72 + 128, 0x20);
  std::copy_n("AW8680", 6, file.begin() + 24);
  for (size_t i = 72; i < file.size(); ++i) file[i] = static_cast<uint8_t>(1 + i * 13);
  return file;
}();
const std::vector<uint8_t> kImage(kFile.begin() + 72, kFile.end());
const std::string kPath = [] {
  const int fd = memfd_create("calder_boot_fuzz", 0);
  Check(fd >= 0 && write(fd, kFile.data(), kFile.size()) == static_cast<ssize_t>(kFile.size()),
        "cannot write the firmware file");
  return "/proc/self/fd/" + std::to_string(fd);
}();

}  // namespace
}  // namespace calder

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace calder;
  fuzz::QuietLog();
  fuzz::FuzzInput in(data, size);
  // One clock and sensor for every input, left as new at the end of each
  // (so every run frees what it allocated): a new sensor costs more than the phase.
  static VirtualClock clock;
  static Sensor sensor(clock);
  sensor.recordFrames = false;
  for (FirmwareImage* image : {&WriterImage(), &ReaderImage()}) {  // a fresh process
    std::fill(std::begin(image->buffer), std::end(image->buffer), uint8_t{0});
    image->size = 0;
  }
  sim::TakeViolations();
  FuzzedBridge bridge(sensor, in);
  Posts progress;
  Environment env;
  env.clock = &clock;
  env.progress = &progress;
  env.bridge = &bridge;
  bool result = false;
  {
    ScopedEnvironment scope(env);
    result = UpdateForce("1.0.2.3", kPath);
  }

  Check(bridge.lifecycle == "****", "the bridge was not installed, opened, closed and removed once");
  Check(!progress.posts.empty() && progress.posts.back() == 90, "the phase did not end with 90");
  for (int percent : progress.posts) {
    Check(percent > 20 && percent <= 90, "a progress post outside the force share");
  }
  Check(clock.TotalSleptMs() < 120000, "the phase ran away");
  const std::vector<std::string> violations = sim::TakeViolations();
  if (!bridge.tampered) {
    Check(violations.empty(), "an untouched bridge saw a protocol violation");
    Check(result, "an untouched sensor was not updated");
    Check(sensor.ReadFlash(Sensor::kFlashBase, kImage.size()) == kImage,
          "an untouched sensor does not hold the image");
  }
  clock = VirtualClock();
  sensor.Reset();
  return 0;
}
