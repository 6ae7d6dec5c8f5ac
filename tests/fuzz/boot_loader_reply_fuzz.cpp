// The force phase (UpdateForce: writer runs, read-back, calibration judge)
// against the sensor simulator, with the bridge's answers chosen by the
// fuzzer: replies kept, bit-flipped, replaced, zeroed or failed, and writes
// and lifecycle calls failed. Every reply rule and retry path sees them.

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "force/boot_loader_packets.h"
#include "force/firmware_image.h"
#include "force/force_update.h"
#include "platform/bridge_library.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/progress.h"
#include "sim/force_sensor.h"
#include "sim/touch_device.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/quiet_log.h"

namespace calder {
namespace {

constexpr char kTarget[] = "boot_loader_reply_fuzz";

void Check(bool ok, const char* what) { fuzz::Check(ok, kTarget, what); }

// The sensor behind a bridge whose answers the fuzzer picks.
class FuzzedBridge : public BridgeLibrary {
 public:
  FuzzedBridge(sim::ForceSensor& sensor, fuzz::FuzzInput& in) : sensor_(sensor), in_(in) {}

  int btl_init_driver_7853() override {
    return Lifecycle("init", [&] { return sensor_.btl_init_driver_7853(); });
  }
  int btl_open_device() override {
    return Lifecycle("open", [&] { return sensor_.btl_open_device(); });
  }
  int btl_close_device() override {
    return Lifecycle("close", [&] { return sensor_.btl_close_device(); });
  }
  int btl_uninstall_driver() override {
    return Lifecycle("uninstall", [&] { return sensor_.btl_uninstall_driver(); });
  }

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
  template <typename Call>
  int Lifecycle(const char* name, Call call) {
    lifecycle.push_back(name);
    const uint8_t decision = in_.Take();
    if (decision % 8 == 7) {
      tampered = true;
      return 1 + decision / 8;  // the library's own error, the sensor untouched
    }
    return call();
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

const char* const kFileNames[] = {"1.bin", "4.bin", "tagged.bin"};

std::string FilePath(const std::string& name) {
  return "/tmp/calder_boot_fuzz_" + std::to_string(getpid()) + "_" + name;
}

void RemoveFiles() {
  for (const char* name : kFileNames) std::remove(FilePath(name).c_str());
}

std::string WriteFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  const std::string path = FilePath(name);
  std::FILE* out = std::fopen(path.c_str(), "wb");
  Check(out != nullptr, "cannot write a firmware file");
  std::fwrite(bytes.data(), 1, bytes.size(), out);
  std::fclose(out);
  return path;
}

std::vector<uint8_t> Pattern(size_t count, uint8_t seed) {
  std::vector<uint8_t> bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 13);
  return bytes;
}

// A raw image of one block, a raw one of four, and a tagged one of 1000 bytes.
const std::vector<ImageFile>& Images() {
  static const std::vector<ImageFile> images = [] {
    std::vector<ImageFile> out;
    std::vector<uint8_t> one = Pattern(40, 1);
    std::vector<uint8_t> padded = one;
    padded.resize(64, 0);
    out.push_back({WriteFile(kFileNames[0], one), padded});
    std::vector<uint8_t> four = Pattern(200, 9);
    padded = four;
    padded.resize(256, 0);
    out.push_back({WriteFile(kFileNames[1], four), padded});
    std::vector<uint8_t> tagged(72, 0x20);
    const std::vector<uint8_t> body = Pattern(1000, 77);
    std::copy_n("AW8680", 6, tagged.begin() + 24);
    tagged.insert(tagged.end(), body.begin(), body.end());
    out.push_back({WriteFile(kFileNames[2], tagged), body});
    std::atexit(RemoveFiles);
    return out;
  }();
  return images;
}

uint8_t Sum8(const uint8_t* bytes, size_t count) {
  unsigned sum = 0;
  for (size_t i = 0; i < count; ++i) sum += bytes[i];
  return static_cast<uint8_t>(sum);
}

// One of the bridge frames the tool may send, with correct checksums.
bool WellFormed(const std::vector<uint8_t>& f) {
  if (f == TouchFrame(true) || f == TouchFrame(false)) return true;
  if (f.size() == 4 && f[0] == 0xFF && (f[1] == 0x52 || f[1] == 0xAA)) return f[3] <= 1;
  if (f.size() < 5 || f[0] != 0xFF || f[1] != 0x57 || f[2] != 0 || f[3] != 0) return false;
  const uint8_t* p = f.data() + 4;
  const size_t n = f.size() - 4;
  if ((n == 2 && p[0] == 0x01 && p[1] == 0x01) || (n == 1 && p[0] == 0x10)) return true;
  return n >= 9 && p[1] == 0x01 && p[2] == 0x81 && p[7] == 0x01 &&
         static_cast<size_t>(p[5] | p[6] << 8) == n - 9 && p[0] == Sum8(p + 1, 8) &&
         p[8] == Sum8(p + 9, n - 9);
}

int Count(const std::vector<std::vector<uint8_t>>& frames, BootCommand command) {
  int count = 0;
  for (const auto& f : frames) {
    count += f.size() >= 13 && f[0] == 0xFF && f[1] == 0x57 && f[5] == 0x01 && f[6] == 0x81 &&
             f[7] == command.group && f[8] == command.code;
  }
  return count;
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
  // Whatever the replies, every frame the tool sends is well formed (the
  // sensor's own count also holds valid packets that came in the wrong mode).
  for (const auto& frame : sensor.frames) Check(WellFormed(frame), "a malformed frame was sent");
  const int blocks = static_cast<int>(file.image.size() + 63) / 64;
  Check(Count(sensor.frames, kWriteFlash) <= 3 * blocks,
        "more Write flash packets than three runs");
  Check(!progress.posts.empty() && progress.posts.back() == 90, "the phase did not end with 90");
  // The last block runs past a size that is not a multiple of 64, so its
  // percentage can pass 100 (1000 bytes: 102, posted as 81).
  const int lastPercent = blocks * 64 * 100 / static_cast<int>(file.image.size());
  for (size_t i = 0; i + 1 < progress.posts.size(); ++i) {
    Check(progress.posts[i] > 20 && progress.posts[i] <= 20 + lastPercent * 6 / 10,
          "a write progress outside its share");
  }
  // Three writer runs, each with 101 version passes, and a timed-out
  // calibration read stay well inside two minutes of device time.
  Check(clock.TotalSleptMs() < 120000, "the phase ran away");
  if (!bridge.tampered) {
    Check(result, "an untouched sensor was not updated");
    Check(sensor.ReadFlash(sim::ForceSensor::kFlashBase, file.image.size()) == file.image,
          "an untouched sensor does not hold the image");
  }
  return 0;
}
