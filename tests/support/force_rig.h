#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "force/boot_loader_packets.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/progress.h"
#include "sim/simulated_laptop.h"
#include "tests/support/log_capture.h"

namespace calder::test {

class RecordingPoster : public ProgressPoster {
 public:
  void Post(int percent) override { posts.push_back(percent); }
  std::vector<int> posts;
};

// The laptop's force sensor and clock, installed as the bridge, with the
// progress posts and the log captured.
struct ForceRig {
  ForceRig();
  void Install();  // again, after env changed

  std::vector<std::string> LinesFrom(const std::string& file) const;
  int CountLines(const std::string& line) const;

  sim::SimulatedLaptop laptop;
  VirtualClock& clock = laptop.clock;
  sim::ForceSensor& sensor = laptop.sensor;
  RecordingPoster progress;
  Environment env;
  std::unique_ptr<ScopedEnvironment> scope;
  LogCapture log;
};

// Pauses of recurring exchanges, to spell out expected sequences.
std::vector<uint32_t> RestartAndHoldPauses();  // 100, twenty 2s, 10
std::vector<uint32_t> Concat(std::initializer_list<std::vector<uint32_t>> parts);
std::vector<uint32_t> Repeat(const std::vector<uint32_t>& part, int times);

// "FF 57 00" as bytes, so frames read like the protocol tables.
std::vector<uint8_t> Hex(const std::string& text);

// Firmware files: a raw image with a repeating non-zero pattern, or an image
// behind a 72-byte "AW8680" header; written under the test's temporary folder.
std::vector<uint8_t> PatternBytes(size_t size, uint8_t seed = 1);
std::vector<uint8_t> TaggedFile(const std::vector<uint8_t>& image);
std::string WriteTempFile(const std::string& name, const std::vector<uint8_t>& bytes);

}  // namespace calder::test
