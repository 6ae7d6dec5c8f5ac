#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace rlottie {
class Animation;
}

namespace calder {

// The folder of the module path, backslash kept, followed by name as given
// ("%s%s"): no separator is added and the name is not checked.
std::string AnimationFilePath(const std::string& module_path, const std::string& name);

// Frames of a Lottie animation rendered by rlottie into a 3x supersampled
// premultiplied ARGB buffer, which the control later draws smaller with
// bicubic filtering.
class LottiePlayer {
 public:
  LottiePlayer();
  ~LottiePlayer();
  LottiePlayer(const LottiePlayer&) = delete;
  LottiePlayer& operator=(const LottiePlayer&) = delete;

  // Drops what was loaded, then loads utf8_path sized for the DPI scale
  // (percent) read now. True when the animation has frames and should play.
  bool Load(const std::string& utf8_path, int scale_percent);
  // Destroys the animation and clears the counters.
  // Kept as the field sees it: the buffer stays until the next Load.
  void Unload();

  // trunc(1000 / frame rate); a frame rate of 0 gives 0.
  uint32_t TimerIntervalMs() const;
  // Renders the next frame (wrapping to 0) into the cleared buffer. False
  // when there is nothing to render.
  bool AdvanceFrame();

  bool HasAnimation() const { return animation_ != nullptr; }
  const uint32_t* buffer() const { return buffer_.get(); }
  uint64_t buffer_width() const { return buffer_width_; }
  uint64_t buffer_height() const { return buffer_height_; }
  uint64_t total_frames() const { return total_frames_; }
  uint64_t current_frame() const { return current_frame_; }
  double frame_rate() const { return frame_rate_; }

 private:
  std::unique_ptr<rlottie::Animation> animation_;
  std::unique_ptr<uint32_t[]> buffer_;
  uint64_t buffer_width_ = 0;
  uint64_t buffer_height_ = 0;
  uint64_t total_frames_ = 0;
  uint64_t current_frame_ = 0;
  double frame_rate_ = 0;
};

}  // namespace calder
