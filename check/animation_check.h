#pragma once

#include <filesystem>
#include <string>

namespace calder::check {

// Why the progress window could not play this animation, or "" when it can:
// it loads with rlottie and has frames and a frame rate.
std::string AnimationProblem(const std::filesystem::path& file);

}  // namespace calder::check
