#pragma once

// calder-fleet still names the BIOS here; the model lives with the others.
#include "sim/behaving_bios.h"

namespace calder::check {
using sim::BehavingBios;
}  // namespace calder::check
