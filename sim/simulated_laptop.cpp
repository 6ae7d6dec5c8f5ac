#include "sim/simulated_laptop.h"

#include "driver/calder.h"

namespace calder::sim {

SimulatedLaptop::SimulatedLaptop() : pace(clock), sensor(clock), touch(clock) {}

SimulatedLaptop::SimulatedLaptop(Clock& pace) : pace(pace), sensor(pace), touch(pace) {}

Environment SimulatedLaptop::Wiring() {
  Environment env;
  env.clock = &pace;
  env.bridge = bridge;
  env.upgrade = upgrade;
  env.hid = hid;
  env.wmi = &bios;
  env.files = files;
  env.process = process;
  env.com = com;
  env.progress = progress;
  return env;
}

int SimulatedLaptop::RunMain(const std::vector<std::string>& args) {
  return RunMain(args, Phases());
}

int SimulatedLaptop::RunMain(const std::vector<std::string>& args, const UpdatePhases& phases) {
  forcePhaseMs.reset();
  const UpdatePhases saved = Phases();
  Phases() = phases;
  Phases().forceUpgrade = [this, force = phases.forceUpgrade] {
    const uint64_t before = clock.TotalSleptMs();
    const bool result = force();
    forcePhaseMs = clock.TotalSleptMs() - before;
    return result;
  };
  std::vector<std::string> words{"calder.exe"};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  argv.push_back(nullptr);
  int result = 1;
  {
    ScopedEnvironment scope(Wiring());
    result = calder::main(static_cast<int>(words.size()), argv.data());
  }
  Phases() = saved;
  return result;
}

}  // namespace calder::sim
