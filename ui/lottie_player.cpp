#include "ui/lottie_player.h"

#include <rlottie.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "ui/progress_geometry.h"

namespace calder {

namespace {

constexpr float kSupersample = 3.0f;

uint64_t ScaledLength(size_t length, float scale) {
  const float scaled = static_cast<float>(length) * scale * kSupersample;
  if (!(scaled > 0.0f)) return 0;
  if (scaled >= static_cast<float>(std::numeric_limits<uint32_t>::max())) {
    return std::numeric_limits<uint32_t>::max();
  }
  return static_cast<uint64_t>(scaled);
}

// Zero-filled, or null when the size overflows or cannot be had.
std::unique_ptr<uint32_t[]> AllocatePixels(uint64_t width, uint64_t height) {
  if (width == 0 || height == 0) return nullptr;
  if (width > std::numeric_limits<size_t>::max() / 4 / height) return nullptr;
  return std::unique_ptr<uint32_t[]>(new (std::nothrow) uint32_t[width * height]());
}

}  // namespace

std::string AnimationFilePath(const std::string& module_path, const std::string& name) {
  const size_t slash = module_path.rfind('\\');
  const std::string folder =
      slash == std::string::npos ? module_path : module_path.substr(0, slash + 1);
  return folder + name;
}

LottiePlayer::LottiePlayer() = default;

LottiePlayer::~LottiePlayer() = default;

bool LottiePlayer::Load(const std::string& utf8_path, int scale_percent) {
  buffer_.reset();
  buffer_width_ = buffer_height_ = 0;
  Unload();
  animation_ = rlottie::Animation::loadFromFile(utf8_path, false);
  if (!animation_) return false;
  total_frames_ = animation_->totalFrame();
  frame_rate_ = animation_->frameRate();
  size_t width = 0;
  size_t height = 0;
  animation_->size(width, height);
  // Sized once for the scale at load time; later DPI changes keep it.
  const float s = PainterScale(scale_percent);
  buffer_width_ = ScaledLength(width, s);
  buffer_height_ = ScaledLength(height, s);
  buffer_ = AllocatePixels(buffer_width_, buffer_height_);
  if (!buffer_) buffer_width_ = buffer_height_ = 0;
  return total_frames_ > 0;
}

void LottiePlayer::Unload() {
  total_frames_ = 0;
  current_frame_ = 0;
  frame_rate_ = 0;
  animation_.reset();
}

uint32_t LottiePlayer::TimerIntervalMs() const {
  const double interval = 1000.0 / frame_rate_;
  // Zero or odd frame rates give 0, the platform's shortest timer period.
  if (!std::isfinite(interval) || interval < 0 ||
      interval >= static_cast<double>(std::numeric_limits<uint32_t>::max())) {
    return 0;
  }
  return static_cast<uint32_t>(interval);
}

bool LottiePlayer::AdvanceFrame() {
  if (!animation_ || total_frames_ == 0) return false;
  current_frame_ = current_frame_ + 1 >= total_frames_ ? 0 : current_frame_ + 1;
  if (!buffer_) return false;
  std::memset(buffer_.get(), 0, buffer_width_ * buffer_height_ * 4);
  rlottie::Surface surface(buffer_.get(), buffer_width_, buffer_height_, buffer_width_ * 4);
  animation_->renderSync(current_frame_, surface, true);
  return true;
}

}  // namespace calder
