#pragma once

#include <cstdint>

#include "ui/lottie_player.h"
#include "ui/skin/progress.h"

namespace calder {

// Skin tag "LottieUI": plays the Lottie file named by "json" (beside the
// executable) on its own framework timer, looping from the moment it loads.
// It shows no progress; the progress base gives it the shared attribute handling.
class CLottieUI : public CProgressUI {
 public:
  static constexpr unsigned kDefaultTimerId = 2026;

  CLottieUI() = default;
  ~CLottieUI() override;

  std::wstring GetClass() const override;
  void DoEvent(TEventUI& event) override;
  void SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) override;
  void PaintStatusImage(Canvas& canvas) override;

  const LottiePlayer& player() const { return player_; }
  bool playing() const { return playing_; }
  unsigned timer_id() const { return timer_id_; }

 private:
  void Load(const std::wstring& name);

  LottiePlayer player_;
  bool playing_ = false;
  unsigned timer_id_ = kDefaultTimerId;
};

}  // namespace calder
