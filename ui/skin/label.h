#pragma once

#include <cstdint>

#include "ui/skin/control.h"

namespace calder {

// Text on one line, vertically centred, in a font of the manager's table.
class CLabelUI : public CControlUI {
 public:
  std::wstring GetClass() const override;
  void* GetInterface(const wchar_t* pstrName) override;
  void SetAttribute(const wchar_t* pstrName, const wchar_t* pstrValue) override;
  void PaintText(Canvas& canvas) override;

  int GetFont() const { return font_; }
  void SetFont(int id);
  uint32_t GetTextColor() const { return text_color_; }
  void SetTextColor(uint32_t argb);
  unsigned GetTextStyle() const { return text_style_; }
  void SetTextStyle(unsigned style);

 protected:
  int font_ = -1;
  uint32_t text_color_ = 0;
  unsigned text_style_ = kTextVCenter | kTextSingleLine;
};

}  // namespace calder
