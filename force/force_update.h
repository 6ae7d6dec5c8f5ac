#pragma once

namespace calder {

// The force sensor's firmware upgrade from the "\Force" package.
bool UpgradeForceFW();

}  // namespace calder
