#pragma once

#include "ui/skin/label.h"

namespace calder {

// Value, minimum and maximum for the progress painters built on it; this
// base draws no bar of its own.
class CProgressUI : public CLabelUI {
 public:
  std::wstring GetClass() const override;
  void* GetInterface(const wchar_t* pstrName) override;
  void SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) override;

  bool IsHorizontal() const { return horizontal_; }
  void SetHorizontal(bool horizontal);
  int GetMinValue() const { return min_; }
  void SetMinValue(int min);
  int GetMaxValue() const { return max_; }
  void SetMaxValue(int max);
  int GetValue() const { return value_; }
  // Clamped to [min, max], then repainted.
  void SetValue(int value);
  bool IsStretchForeImage() const { return stretch_fore_image_; }
  void SetStretchForeImage(bool stretch);

 protected:
  bool horizontal_ = true;
  int max_ = 100;
  int min_ = 0;
  int value_ = 0;
  bool stretch_fore_image_ = true;
};

}  // namespace calder
