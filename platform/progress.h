#pragma once

namespace calder {

// On the window's 0 to 100 scale: where the touchpad phase ends and the force
// write begins.
constexpr int kTouchpadProgressEnd = 20;

// Progress reports to the progress window. The Win32 side posts
// WM_UPDATE_PROGRESS only while the window exists and accepts progress.
class ProgressPoster {
 public:
  virtual ~ProgressPoster() = default;
  virtual void Post(int percent) = 0;
};

// Posts through the installed environment; does nothing when none is set.
void PostProgress(int percent);

}  // namespace calder
