#include "check/animation_check.h"

#include <rlottie.h>

#include <memory>
#include <system_error>

namespace calder::check {

std::string AnimationProblem(const std::filesystem::path& file) {
  std::error_code error;
  if (file.empty() || !std::filesystem::is_regular_file(file, error)) return "is missing";
  const std::unique_ptr<rlottie::Animation> animation =
      rlottie::Animation::loadFromFile(file.string(), false);
  if (animation == nullptr) return "does not load as a Lottie animation";
  if (animation->totalFrame() == 0) return "has no frames";
  if (!(animation->frameRate() > 0)) return "has no frame rate";
  return "";
}

}  // namespace calder::check
