#pragma once

#include <cstdint>

#include "ui/skin/progress.h"

namespace calder {

// Skin tag "CircleProgress": a ring, a round-capped arc clockwise from twelve
// o'clock and the percentage in the middle.
class CCircleProgressUI : public CProgressUI {
 public:
  std::wstring GetClass() const override;
  void SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) override;
  void PaintStatusImage(Canvas& canvas) override;

  int text_size() const { return text_size_; }
  int pen_width() const { return pen_width_; }
  uint32_t arc_color() const { return arc_color_; }
  uint32_t ring_color() const { return ring_color_; }

 private:
  int text_size_ = 0;
  int pen_width_ = 0;
  uint32_t arc_color_ = 0;
  uint32_t ring_color_ = 0;
};

}  // namespace calder
