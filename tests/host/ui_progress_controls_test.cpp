#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/environment.h"
#include "tests/host/skin_test_doubles.h"
#include "tests/support/fake_system.h"
#include "ui/circle_progress_ui.h"
#include "ui/firm_progress_ui.h"
#include "ui/lottie_ui.h"
#include "ui/progress_controls.h"
#include "ui/shape_painter.h"
#include "ui/skin/paint_manager.h"

namespace calder {
namespace {

using test::ColorText;
using test::RectText;

std::string Num(float v) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", v);
  return text;
}

// The bar's band, corner radius and fill for a control rectangle, at several scales.
// control, scale, radius, value; track and fill rectangles ("" when nothing is drawn), radius, fill
const std::tuple<UiRect, int, int, int, const char*, int, int> kBars[] = {
    {{100, 200, 750, 210}, 100, 5, 50, "100,209,750,219 100,209,425,219", 5, 325},  // s = 1.0417: 9 down, 10 high
    {{0, 300, 975, 316}, 150, 5, 100, "0,314,975,329 0,314,975,329", 7, 975},     // 14.0625 down, 15.625 high
    {{0, 0, 650, 10}, 125, 4, 99, "0,11,650,24 0,11,643,24", 5, 643},
    {{100, 200, 750, 210}, 100, 5, 150, "100,209,750,219 100,209,1075,219", 5, 975},  // runs past the track
    {{100, 200, 750, 210}, 100, 5, -5, "100,209,750,219 100,209,100,219", 5, -32},
    {{10, 0, 10, 10}, 100, 5, 50, "", 0, 0},  // no width
    {{0, 0, 10, 10}, 9, 5, 50, "", 0, 0},    // band under one pixel
};

TEST(BarGeometry, BandRadiusAndFillAtEachScale) {
  for (const auto& [control, scale, radius, value, bands, r, fill] : kBars) {
    const BarGeometry g = ComputeBarGeometry(control, scale, radius, value);
    const std::string row = RectText(control) + " at " + std::to_string(scale);
    EXPECT_EQ(g.visible ? RectText(g.track) + " " + RectText(g.fill_rect) : "", bands) << row;
    if (!g.visible) continue;
    EXPECT_EQ(g.radius, r) << row;
    EXPECT_EQ(g.fill, fill) << row;
  }
}

std::vector<std::string> g_paint;

// Writes each painter call as a line.
class RecordingPainter : public ShapePainter {
 public:
  explicit RecordingPainter(PaintQuality q) { g_paint.push_back("open " + std::to_string(static_cast<int>(q))); }
  ~RecordingPainter() override { g_paint.push_back("close"); }
  void FillArcPath(const std::vector<PathArc>& arcs, uint32_t argb) override {
    std::string line = "path " + ColorText(argb);
    for (const PathArc& a : arcs) {
      char arc[96];
      std::snprintf(arc, sizeof arc, " (%g,%g,%g,%g,%g)", a.x, a.y, a.d, a.start, a.sweep);
      line += arc;
    }
    g_paint.push_back(line);
  }
  void DrawEllipse(int x, int y, int w, int h, float pen, uint32_t argb) override {
    g_paint.push_back("ellipse " + RectText({x, y, x + w, y + h}) + " pen " + Num(pen) + " " + ColorText(argb));
  }
  void DrawArc(int x, int y, int w, int h, float start, float sweep, float pen, uint32_t argb,
               bool round_caps) override {
    g_paint.push_back("arc " + RectText({x, y, x + w, y + h}) + " " + Num(start) + " " + Num(sweep) + " pen " +
                      Num(pen) + " " + ColorText(argb) + (round_caps ? " round" : ""));
  }
  void DrawCentredText(const UiRect& rect, const std::wstring& text, int height, const std::wstring& face) override {
    g_paint.push_back("text " + RectText(rect) + " " + WideToUtf8(text) + " " + std::to_string(height) + " " +
                      WideToUtf8(face));
  }
  void DrawPremultiplied(const uint32_t*, int width, int height, const UiRect& dest) override {
    g_paint.push_back("image " + std::to_string(width) + "x" + std::to_string(height) + " " + RectText(dest));
  }
};

std::unique_ptr<ShapePainter> MakeRecordingPainter(void*, PaintQuality quality) {
  return std::make_unique<RecordingPainter>(quality);
}

class NativeCanvas : public test::RecordingCanvas {
 public:
  void* NativeContext() override { return this; }
};

using Attrs = std::vector<std::pair<const wchar_t*, const wchar_t*>>;

class ProgressControls : public testing::Test {
 protected:
  ProgressControls() {
    g_paint.clear();
    SetShapePainterFactory(&MakeRecordingPainter);
    manager.Init(&window);
  }
  ~ProgressControls() override { SetShapePainterFactory(nullptr); }

  // Attributes as the skin builder applies them: manager first.
  template <typename T>
  std::unique_ptr<T> Make(const Attrs& attrs) {
    auto control = std::make_unique<T>();
    control->SetManager(&manager, nullptr);
    for (const auto& a : attrs) control->SetAttribute(a.first, a.second);
    return control;
  }

  test::RecordingWindow window;
  CPaintManagerUI manager;
  NativeCanvas canvas;
};

TEST_F(ProgressControls, FactoryMakesTheThreeTagsExactly) {
  std::string made;
  for (const wchar_t* tag : {L"FirmProgressUI", L"CircleProgress", L"LottieUI", L"firmprogressui", L"Lottie",
                             L"CircleProgressUI", static_cast<const wchar_t*>(nullptr)}) {
    std::unique_ptr<CControlUI> c(CreateProgressControl(tag));
    made += c == nullptr ? "- " : WideToUtf8(c->GetClass()) + (c->GetInterface(L"Progress") ? " " : "? ");
  }
  EXPECT_EQ(made, "CFirmProgressUI CircleProgress LottieUI - - - - ");  // class names asymmetric on purpose
}

TEST_F(ProgressControls, BarAttributesAreExactNames) {
  const std::pair<const wchar_t*, const char*> cases[] = {  // each set to "12": track, fill, radius
      {L"cirbjcolor", "#00000012 #00000000 5"}, {L"circolor", "#00000000 #00000012 5"},
      {L"radius", "#00000000 #00000000 12"},    {L"Circolor", "#00000000 #00000000 5"},
      {L"textFontSize", "#00000000 #00000000 5"},
  };
  for (const auto& [name, fields] : cases) {
    auto bar = Make<CFirmProgressUI>({{name, L"12"}});
    EXPECT_EQ(ColorText(bar->track_color()) + " " + ColorText(bar->fill_color()) + " " + std::to_string(bar->radius()),
              fields) << WideToUtf8(name);
  }
}

TEST_F(ProgressControls, BarPaintsTrackThenFillAsPills) {
  // The value is a percentage whatever the range; 0 draws only the track.
  const std::string track = "path #40FFFFFF (100,209,10,180,90) (740,209,10,270,90) (740,209,10,0,90) (100,209,10,90,90)|";
  const std::pair<int, std::string> cases[] = {
      {50, "open 0|" + track + "path #FF3482FF (100,209,10,180,90) (415,209,10,270,90) (415,209,10,0,90) "
                               "(100,209,10,90,90)|close|"},
      {0, "open 0|" + track + "close|"}};
  auto bar = Make<CFirmProgressUI>({{L"cirbjcolor", L"#40FFFFFF"}, {L"circolor", L"#FF3482FF"}, {L"max", L"200"}});
  bar->SetPos({100, 200, 750, 210});
  for (const auto& [value, expected] : cases) {
    bar->SetValue(value);
    g_paint.clear();
    bar->PaintStatusImage(canvas);
    std::string calls;
    for (const std::string& line : g_paint) calls += line + "|";
    EXPECT_EQ(calls, expected) << value;
  }
  g_paint.clear();
  test::RecordingCanvas plain;  // no native context: nothing to paint on
  bar->PaintStatusImage(plain);
  EXPECT_TRUE(g_paint.empty());
}

TEST_F(ProgressControls, CirclePaintsTrackArcAndPercentAtEachScale) {
  // rectangle, DPI, value; the painter calls ("" when there is no room)
  const std::tuple<UiRect, unsigned, int, const char*> cases[] = {
      {{10, 20, 111, 121}, 96, 25,  // r = 50 - 4 - 8 / 2
       "open 1|ellipse 18,28,102,112 pen 8 #40FFFFFF|arc 18,28,102,112 -90 90 pen 8 #FF3482FF round|"
       "text 10,20,111,121 25% -20 \u5FAE\u8F6F\u96C5\u9ED1|close|"},
      {{0, 0, 51, 90}, 144, 60,  // r = 25 - 6 - 12 / 2
       "open 1|ellipse 12,32,38,58 pen 12 #40FFFFFF|arc 12,32,38,58 -90 216 pen 12 #FF3482FF round|"
       "text 0,0,51,90 60% -31 \u5FAE\u8F6F\u96C5\u9ED1|close|"},
      {{10, 20, 10, 121}, 96, 25, ""},
      {{10, 20, 111, 20}, 96, 25, ""}};
  auto circle = Make<CCircleProgressUI>({{L"cirbjcolor", L"#40FFFFFF"}, {L"circolor", L"#FF3482FF"},
                                         {L"max", L"200"}, {L"textFontSize", L"20"}, {L"circlePenWidth", L"8"}});
  for (const auto& [rect, dpi, value, expected] : cases) {
    manager.GetDPIObj()->SetScale(dpi);
    circle->SetPos(rect);
    circle->SetValue(value);
    g_paint.clear();
    circle->PaintStatusImage(canvas);
    std::string calls;
    for (const std::string& line : g_paint) calls += line + "|";
    EXPECT_EQ(calls, expected) << RectText(rect);
  }
}

// The executable "lives" in a folder whose UTF-16 name the control turns into
// the UTF-8 path rlottie opens; on the host the backslash is a plain file-name character.
class LottieControl : public ProgressControls {
 protected:
  LottieControl() {
    system_.Into(&env_);
    scoped_ = std::make_unique<ScopedEnvironment>(env_);
  }
  ~LottieControl() override {
    for (const std::string& f : files_) std::remove(f.c_str());
  }

  // Puts the shipped spinner into the folder and points the module path there.
  void PlaceExe(const std::u16string& folder16, const std::string& folder8) {
    const std::string dir = testing::TempDir();
    files_.push_back(dir + folder8 + "\\loading_dark.json");
    std::ifstream in(CALDER_SOURCE_DIR "/ui/loading_dark.json");
    std::ofstream(files_.back()) << in.rdbuf();
    system_.modulePathW = std::u16string(dir.begin(), dir.end()) + folder16 + u"\\calder.exe";
  }

  test::FakeSystem system_;
  Environment env_;
  std::unique_ptr<ScopedEnvironment> scoped_;
  std::vector<std::string> files_;
};

TEST_F(LottieControl, FolderNamesConvertFromUtf16) {
  const std::pair<std::u16string, std::string> cases[] = {
      {{u'c', 0x7F, 0x80, 0x7FF, 0x800, 0x5347, 0xFFFF, 0xD7FF, 0xE000},
       "c\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xE5\x8D\x87\xEF\xBF\xBF\xED\x9F\xBF\xEE\x80\x80"},
      {{0xD800, 0xDC00, 0xD83D, 0xDE00, 0xDBFF, 0xDFFF}, "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"},
      // Unpaired surrogates become U+FFFD, as Windows converts them.
      {{0xDC00, 0xDFFF, 0xD800, u'a', 0xD800, 0xE000}, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD" "a\xEF\xBF\xBD\xEE\x80\x80"},
      {{0xD800, 0xDBFF, 0xDC00, u'c', 0xD800}, "\xEF\xBF\xBD\xF4\x8F\xB0\x80" "c\xEF\xBF\xBD"},
  };
  for (const auto& [utf16, utf8] : cases) {
    PlaceExe(utf16, utf8);
    EXPECT_TRUE(Make<CLottieUI>({{L"json", L"loading_dark.json"}})->playing()) << utf8;
  }
}

TEST_F(LottieControl, JsonBesideTheExePlaysOnItsOwnTimer) {
  PlaceExe(u"calder\\exe_dir", "calder\\exe_dir");  // the folder is all before the last backslash
  // The name is exact; a missing file plays nothing.
  for (const Attrs& attrs : {Attrs{{L"JSON", L"loading_dark.json"}}, Attrs{{L"json", L"nothing_here.json"}}}) {
    auto empty = Make<CLottieUI>(attrs);
    EXPECT_FALSE(empty->playing());
    empty->SetPos({0, 0, 110, 110});
    empty->PaintStatusImage(canvas);
  }
  EXPECT_TRUE(window.started.empty());
  auto lottie = Make<CLottieUI>({{L"json", L"loading_dark.json"}});
  ASSERT_TRUE(lottie->playing());
  EXPECT_EQ(window.started.at(0).second, 33u);
  // Timer events of its own id advance one frame each; others do nothing.
  TEventUI tick;
  for (const auto& [type, id] : {std::pair<int, unsigned>{UIEVENT_TIMER, CLottieUI::kDefaultTimerId},
                                 {UIEVENT_TIMER, 7}, {UIEVENT_TIMER + 1, CLottieUI::kDefaultTimerId}}) {
    tick.Type = type;
    tick.wParam = id;
    lottie->Event(tick);
  }
  EXPECT_EQ(lottie->player().current_frame(), 1u);
  // Drawn only inside the screen's top-left corner and with an area.
  for (const UiRect& r : {UiRect{905, 345, 1015, 455}, UiRect{-1, 345, 109, 455}, UiRect{0, -1, 110, 109},
                          UiRect{0, 0, 0, 110}, UiRect{0, 0, 110, 0}, UiRect{0, 0, 1, 1}}) {
    lottie->SetPos(r);
    lottie->PaintStatusImage(canvas);
  }
  EXPECT_EQ(g_paint, (std::vector<std::string>{"open 2", "image 343x343 905,345,1015,455", "close", "open 2",
                                               "image 343x343 0,0,1,1", "close"}));
  const unsigned native = window.started[0].first;
  lottie.reset();  // destruction stops the timer it started
  EXPECT_EQ(window.stopped, std::vector<unsigned>{native});
}

}  // namespace
}  // namespace calder
