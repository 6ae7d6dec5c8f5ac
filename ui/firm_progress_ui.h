#pragma once

#include <cstdint>

#include "ui/skin/progress.h"

namespace calder {

// Skin tag "FirmProgressUI": a flat pill-shaped bar, track and fill rounded.
// The value is read as a percentage whatever the range; callers clamp.
class CFirmProgressUI : public CProgressUI {
 public:
  std::wstring GetClass() const override;
  void SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) override;
  void PaintStatusImage(Canvas& canvas) override;

  uint32_t fill_color() const { return fill_color_; }
  uint32_t track_color() const { return track_color_; }
  int radius() const { return radius_; }

 private:
  uint32_t fill_color_ = 0;
  uint32_t track_color_ = 0;
  int radius_ = 5;
};

}  // namespace calder
