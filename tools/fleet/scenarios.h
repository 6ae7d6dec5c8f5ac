#pragma once

#include <string>
#include <vector>

#include "tools/fleet/simulated_machine.h"

namespace calder::fleet {

// One way a run can go on a laptop: the arguments calder.exe gets and the
// faults its machine shows. Weights say how often a simulated fleet sees it.
struct Scenario {
  const char* name;
  int weight;
  std::vector<std::string> args;
  void (*arrange)(SimulatedMachine& machine);
};

const std::vector<Scenario>& Scenarios();
const Scenario* FindScenario(const std::string& name);

// The firmware a fleet is given: the force file's name is its version.
void UseForceVersion(SimulatedMachine& machine, int minor);

}  // namespace calder::fleet
