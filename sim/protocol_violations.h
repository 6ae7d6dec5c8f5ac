#pragma once

#include <string>
#include <vector>

namespace calder::sim {

// What a device model saw that the real device would refuse. Every model
// records here; the tests' fixture fails any test during which one was
// recorded, so the protocol is enforced wherever a model is talked to.
void RecordViolation(const std::string& what);

// The violations recorded since the last call, oldest first.
std::vector<std::string> TakeViolations();

}  // namespace calder::sim
