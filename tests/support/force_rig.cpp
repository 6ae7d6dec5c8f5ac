#include "tests/support/force_rig.h"

namespace calder::test {

ForceRig::ForceRig() {
  env.clock = &clock;
  env.progress = &progress;
  env.bridge = &sensor;
  scope = std::make_unique<ScopedEnvironment>(env);
}

std::vector<Frame> ForceRig::CommandFrames(BootCommand command) const {
  std::vector<Frame> out;
  for (const auto& frame : sensor.frames) {
    if (frame.size() >= 13 && frame[0] == 0xFF && frame[1] == 0x57 && frame[7] == command.group &&
        frame[8] == command.code && frame[5] == 0x01 && frame[6] == 0x81) {
      out.push_back(frame);
    }
  }
  return out;
}

std::vector<std::string> ForceRig::LinesFrom(const std::string& file) const {
  std::vector<std::string> out;
  for (const LogEntry& e : log.entries()) {
    if (e.file == file) out.push_back(e.level + " " + e.file + ": " + e.message);
  }
  return out;
}

std::vector<uint32_t> RestartAndHoldPauses() {
  return Concat({{100}, Repeat({2}, 20), {10}});
}

std::vector<uint32_t> Concat(std::initializer_list<std::vector<uint32_t>> parts) {
  std::vector<uint32_t> out;
  for (const auto& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

std::vector<uint32_t> Repeat(const std::vector<uint32_t>& part, int times) {
  std::vector<uint32_t> out;
  for (int i = 0; i < times; ++i) out.insert(out.end(), part.begin(), part.end());
  return out;
}

}  // namespace calder::test
