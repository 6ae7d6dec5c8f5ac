#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "force/boot_loader_packets.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/progress.h"
#include "sim/force_sensor.h"
#include "tests/support/log_capture.h"

namespace calder::test {

class RecordingPoster : public ProgressPoster {
 public:
  void Post(int percent) override { posts.push_back(percent); }
  std::vector<int> posts;
};

// The force sensor on a virtual clock, installed as the bridge, with the
// progress posts and the log captured.
struct ForceRig {
  ForceRig();

  // Sensor frames of one boot-loader command, in order.
  std::vector<Frame> CommandFrames(BootCommand command) const;
  std::vector<std::string> LinesFrom(const std::string& file) const;

  VirtualClock clock;
  sim::ForceSensor sensor{clock};
  RecordingPoster progress;
  Environment env;
  std::unique_ptr<ScopedEnvironment> scope;
  LogCapture log;
};

// The pauses of each exchange, to spell out expected sequences.
std::vector<uint32_t> RestartAndHoldPauses();  // 100, twenty 2s, 10
std::vector<uint32_t> Concat(std::initializer_list<std::vector<uint32_t>> parts);
std::vector<uint32_t> Repeat(const std::vector<uint32_t>& part, int times);

}  // namespace calder::test
