#include "ui/win32/gdiplus_painter.h"

#include "ui/shape_painter.h"
#include "ui/skin/win32/gdiplus_include.h"

namespace calder {

namespace {

using namespace Gdiplus::DllExports;

class GdiPlusPainter : public ShapePainter {
 public:
  GdiPlusPainter(HDC dc, PaintQuality quality) : dc_(dc) {
    if (GdipCreateFromHDC(dc, &graphics_) != Gdiplus::Ok) {
      graphics_ = nullptr;
      return;
    }
    switch (quality) {
      case PaintQuality::kBar:
        GdipSetSmoothingMode(graphics_, Gdiplus::SmoothingModeAntiAlias);
        // The second pixel offset mode is the one that counts.
        GdipSetPixelOffsetMode(graphics_, Gdiplus::PixelOffsetModeHighQuality);
        GdipSetPixelOffsetMode(graphics_, Gdiplus::PixelOffsetModeHalf);
        break;
      case PaintQuality::kRing:
        GdipSetSmoothingMode(graphics_, Gdiplus::SmoothingModeAntiAlias);
        GdipSetPixelOffsetMode(graphics_, Gdiplus::PixelOffsetModeHighQuality);
        GdipSetTextRenderingHint(graphics_, Gdiplus::TextRenderingHintClearTypeGridFit);
        break;
      case PaintQuality::kImage:
        GdipSetSmoothingMode(graphics_, Gdiplus::SmoothingModeHighQuality);
        GdipSetInterpolationMode(graphics_, Gdiplus::InterpolationModeHighQualityBicubic);
        GdipSetPixelOffsetMode(graphics_, Gdiplus::PixelOffsetModeHighQuality);
        GdipSetPixelOffsetMode(graphics_, Gdiplus::PixelOffsetModeHalf);
        GdipSetCompositingQuality(graphics_, Gdiplus::CompositingQualityHighQuality);
        GdipSetCompositingMode(graphics_, Gdiplus::CompositingModeSourceOver);
        break;
    }
  }
  ~GdiPlusPainter() override {
    if (graphics_ != nullptr) GdipDeleteGraphics(graphics_);
  }

  void FillArcPath(const std::vector<PathArc>& arcs, uint32_t argb) override {
    if (graphics_ == nullptr) return;
    Gdiplus::GpPath* path = nullptr;
    if (GdipCreatePath(Gdiplus::FillModeAlternate, &path) != Gdiplus::Ok) return;
    // Errors stay in the path's status; a bad path simply fills nothing.
    for (const PathArc& a : arcs) GdipAddPathArc(path, a.x, a.y, a.d, a.d, a.start, a.sweep);
    GdipClosePathFigure(path);
    Gdiplus::GpSolidFill* brush = nullptr;
    if (GdipCreateSolidFill(argb, &brush) == Gdiplus::Ok) {
      GdipFillPath(graphics_, brush, path);
      GdipDeleteBrush(brush);
    }
    GdipDeletePath(path);
  }

  void DrawEllipse(int x, int y, int w, int h, float pen, uint32_t argb) override {
    Gdiplus::GpPen* p = MakePen(pen, argb);
    if (p == nullptr) return;
    GdipDrawEllipse(graphics_, p, x, y, w, h);
    GdipDeletePen(p);
  }

  void DrawArc(int x, int y, int w, int h, float start, float sweep, float pen, uint32_t argb,
               bool round_caps) override {
    Gdiplus::GpPen* p = MakePen(pen, argb);
    if (p == nullptr) return;
    if (round_caps) {
      GdipSetPenStartCap(p, Gdiplus::LineCapRound);
      GdipSetPenEndCap(p, Gdiplus::LineCapRound);
    }
    GdipDrawArc(graphics_, p, x, y, w, h, start, sweep);
    GdipDeletePen(p);
  }

  void DrawCentredText(const UiRect& rect, const std::wstring& text, int font_height,
                       const std::wstring& face) override {
    LOGFONTW lf = {};
    lf.lfHeight = font_height;
    lf.lfWeight = FW_BOLD;
    lf.lfQuality = CLEARTYPE_QUALITY;
    lstrcpynW(lf.lfFaceName, face.c_str(), LF_FACESIZE);
    HFONT font = CreateFontIndirectW(&lf);
    const int old_mode = SetBkMode(dc_, TRANSPARENT);
    const COLORREF old_color = SetTextColor(dc_, RGB(255, 255, 255));
    HGDIOBJ old_font = SelectObject(dc_, font);
    RECT rc = {rect.left, rect.top, rect.right, rect.bottom};
    DrawTextW(dc_, text.c_str(), -1, &rc, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
    SelectObject(dc_, old_font);
    SetTextColor(dc_, old_color);
    SetBkMode(dc_, old_mode);
    DeleteObject(font);
  }

  void DrawPremultiplied(const uint32_t* pixels, int width, int height,
                         const UiRect& dest) override {
    if (graphics_ == nullptr) return;
    Gdiplus::GpBitmap* bitmap = nullptr;
    // Wraps the buffer without copying it.
    if (GdipCreateBitmapFromScan0(width, height, width * 4, PixelFormat32bppPARGB,
                                  reinterpret_cast<BYTE*>(const_cast<uint32_t*>(pixels)),
                                  &bitmap) != Gdiplus::Ok) {
      return;
    }
    GdipDrawImageRectI(graphics_, bitmap, dest.left, dest.top, dest.Width(), dest.Height());
    GdipDisposeImage(bitmap);
  }

 private:
  Gdiplus::GpPen* MakePen(float width, uint32_t argb) {
    if (graphics_ == nullptr) return nullptr;
    Gdiplus::GpPen* pen = nullptr;
    if (GdipCreatePen1(argb, width, Gdiplus::UnitWorld, &pen) != Gdiplus::Ok) return nullptr;
    return pen;
  }

  HDC dc_;
  Gdiplus::GpGraphics* graphics_ = nullptr;
};

std::unique_ptr<ShapePainter> MakeGdiPlusPainter(void* native_context, PaintQuality quality) {
  return std::make_unique<GdiPlusPainter>(static_cast<HDC>(native_context), quality);
}

}  // namespace

void InstallGdiPlusPainter() { SetShapePainterFactory(&MakeGdiPlusPainter); }

}  // namespace calder
