#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
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

std::vector<std::string> g_paint;

std::string Num(float v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", static_cast<double>(v));
  return buf;
}

// Writes each painter call as a line.
class RecordingPainter : public ShapePainter {
 public:
  explicit RecordingPainter(PaintQuality quality) {
    const char* names[] = {"bar", "ring", "image"};
    g_paint.push_back(std::string("open ") + names[static_cast<int>(quality)]);
  }
  ~RecordingPainter() override { g_paint.push_back("close"); }
  void FillArcPath(const std::vector<PathArc>& arcs, uint32_t argb) override {
    std::string line = "path " + ColorText(argb);
    for (const PathArc& a : arcs) {
      line += " (" + Num(a.x) + "," + Num(a.y) + "," + Num(a.d) + "," + Num(a.start) + ")";
    }
    g_paint.push_back(line);
  }
  void DrawEllipse(int x, int y, int w, int h, float pen, uint32_t argb) override {
    g_paint.push_back("ellipse " + RectText({x, y, x + w, y + h}) + " pen " + Num(pen) + " " +
                      ColorText(argb));
  }
  void DrawArc(int x, int y, int w, int h, float start, float sweep, float pen, uint32_t argb,
               bool round_caps) override {
    g_paint.push_back("arc " + RectText({x, y, x + w, y + h}) + " " + Num(start) + " " +
                      Num(sweep) + " pen " + Num(pen) + " " + ColorText(argb) +
                      (round_caps ? " round" : ""));
  }
  void DrawCentredText(const UiRect& rect, const std::wstring& text, int font_height,
                       const std::wstring& face) override {
    g_paint.push_back("text " + RectText(rect) + " " + WideToUtf8(text) + " " +
                      std::to_string(font_height) + " " + WideToUtf8(face));
  }
  void DrawPremultiplied(const uint32_t*, int width, int height, const UiRect& dest) override {
    g_paint.push_back("image " + std::to_string(width) + "x" + std::to_string(height) + " -> " +
                      RectText(dest));
  }
};

std::unique_ptr<ShapePainter> MakeRecordingPainter(void*, PaintQuality quality) {
  return std::make_unique<RecordingPainter>(quality);
}

class NativeCanvas : public test::RecordingCanvas {
 public:
  void* NativeContext() override { return this; }
};

class ProgressControlsTest : public testing::Test {
 protected:
  void SetUp() override {
    g_paint.clear();
    SetShapePainterFactory(&MakeRecordingPainter);
    manager.Init(&window);
  }
  void TearDown() override { SetShapePainterFactory(nullptr); }

  // Runs a control's attributes as the skin builder does: manager first.
  template <typename T>
  std::unique_ptr<T> Make(const std::vector<std::pair<const wchar_t*, const wchar_t*>>& attrs) {
    auto control = std::make_unique<T>();
    control->SetManager(&manager, nullptr);
    for (const auto& a : attrs) control->SetAttribute(a.first, a.second);
    return control;
  }

  test::RecordingWindow window;
  CPaintManagerUI manager;
  NativeCanvas canvas;
};

TEST_F(ProgressControlsTest, FactoryMakesTheThreeTagsExactly) {
  std::unique_ptr<CControlUI> bar(CreateProgressControl(L"FirmProgressUI"));
  std::unique_ptr<CControlUI> circle(CreateProgressControl(L"CircleProgress"));
  std::unique_ptr<CControlUI> lottie(CreateProgressControl(L"LottieUI"));
  ASSERT_TRUE(bar && circle && lottie);
  // The class names are asymmetric on purpose.
  EXPECT_EQ(bar->GetClass(), L"CFirmProgressUI");
  EXPECT_EQ(circle->GetClass(), L"CircleProgress");
  EXPECT_EQ(lottie->GetClass(), L"LottieUI");
  EXPECT_NE(bar->GetInterface(L"Progress"), nullptr);
  EXPECT_EQ(CreateProgressControl(L"firmprogressui"), nullptr);
  EXPECT_EQ(CreateProgressControl(L"Lottie"), nullptr);
}

TEST_F(ProgressControlsTest, BarAttributes) {
  auto bar = Make<CFirmProgressUI>({{L"cirbjcolor", L"#FF323232"},
                                    {L"circolor", L"FF3482FF"},
                                    {L"Radius", L"9"},
                                    {L"min", L"0"},
                                    {L"MAX", L"200"}});
  EXPECT_EQ(bar->track_color(), 0xFF323232u);
  EXPECT_EQ(bar->fill_color(), 0xFF3482FFu);
  EXPECT_EQ(bar->radius(), 5);  // "Radius" is not its name
  EXPECT_EQ(bar->GetMaxValue(), 200);
  // Track colour and radius reach the base too, which keeps them as custom
  // attributes; the fill colour does not.
  EXPECT_STREQ(bar->GetCustomAttribute(L"cirbjcolor"), L"FF323232");
  EXPECT_EQ(bar->GetCustomAttribute(L"circolor"), nullptr);
  bar->SetAttribute(L"radius", L"7");
  bar->SetAttribute(L"cirbjcolor", L"#");
  EXPECT_EQ(bar->radius(), 7);
  EXPECT_EQ(bar->track_color(), 0u);
}

TEST_F(ProgressControlsTest, BarPaintsTrackThenFillAtTheScale) {
  auto bar = Make<CFirmProgressUI>({{L"cirbjcolor", L"#FF323232"}, {L"circolor", L"#FF3482FF"}});
  bar->SetPos({100, 200, 750, 210});
  bar->SetMaxValue(200);
  bar->SetValue(100);  // a percentage whatever the range: the bar is full
  bar->PaintStatusImage(canvas);
  EXPECT_EQ(g_paint, (std::vector<std::string>{
                         "open bar",
                         "path #FF323232 (100,209,10,180) (740,209,10,270) (740,209,10,0) "
                         "(100,209,10,90)",
                         "path #FF3482FF (100,209,10,180) (740,209,10,270) (740,209,10,0) "
                         "(100,209,10,90)",
                         "close"}));

  g_paint.clear();
  bar->SetValue(0);
  manager.GetDPIObj()->SetScale(144);  // 150 %
  bar->PaintStatusImage(canvas);
  EXPECT_EQ(g_paint, (std::vector<std::string>{
                         "open bar",
                         "path #FF323232 (100,214,14,180) (736,214,14,270) (736,215,14,0) "
                         "(100,215,14,90)",
                         "close"}));
}

TEST_F(ProgressControlsTest, CirclePaintsRingArcAndWhiteText) {
  auto circle = Make<CCircleProgressUI>({{L"textFontSize", L"20"},
                                         {L"circlePenWidth", L"8"},
                                         {L"cirbjcolor", L"#40FFFFFF"},
                                         {L"circolor", L"#FF3482FF"}});
  EXPECT_EQ(circle->text_size(), 20);
  EXPECT_EQ(circle->pen_width(), 8);
  EXPECT_STREQ(circle->GetCustomAttribute(L"textFontSize"), L"20");
  circle->SetPos({10, 20, 111, 121});
  circle->SetValue(25);
  circle->PaintStatusImage(canvas);
  EXPECT_EQ(g_paint, (std::vector<std::string>{
                         "open ring", "ellipse 18,28,102,112 pen 8 #40FFFFFF",
                         "arc 18,28,102,112 -90 90 pen 8 #FF3482FF round",
                         "text 10,20,111,121 25% -20 微软雅黑", "close"}));
}

TEST_F(ProgressControlsTest, NothingIsPaintedWithoutANativeContext) {
  auto bar = Make<CFirmProgressUI>({});
  bar->SetPos({0, 0, 100, 10});
  test::RecordingCanvas plain;
  bar->PaintStatusImage(plain);
  EXPECT_TRUE(g_paint.empty());
}

class LottieControlTest : public ProgressControlsTest {
 protected:
  void SetUp() override {
    ProgressControlsTest::SetUp();
    // The "folder" ends in a backslash, which is a plain file-name character here.
    folder_ = testing::TempDir() + "calder_exe_dir\\";
    system_.modulePathW = std::u16string(folder_.begin(), folder_.end()) + u"calder.exe";
    system_.Into(&env_);
    scoped_ = std::make_unique<ScopedEnvironment>(env_);
    std::ifstream in(std::string(CALDER_SOURCE_DIR) + "/ui/loading_dark.json");
    std::ofstream(folder_ + "loading_dark.json") << in.rdbuf();
  }
  void TearDown() override {
    std::remove((folder_ + "loading_dark.json").c_str());
    scoped_.reset();
    ProgressControlsTest::TearDown();
  }

  std::string folder_;
  test::FakeSystem system_;
  Environment env_;
  std::unique_ptr<ScopedEnvironment> scoped_;
};

TEST_F(LottieControlTest, JsonBesideTheExeStartsItsOwnTimer) {
  auto lottie = Make<CLottieUI>({{L"json", L"loading_dark.json"}, {L"autoplay", L"false"}});
  EXPECT_TRUE(lottie->playing());
  EXPECT_EQ(lottie->player().total_frames(), 90u);
  EXPECT_EQ(lottie->player().buffer_width(), 343u);
  ASSERT_EQ(window.started.size(), 1u);
  EXPECT_EQ(window.started[0].second, 33u);
  EXPECT_STREQ(lottie->GetCustomAttribute(L"autoplay"), L"false");

  // Timer events of its own id advance one frame each; others do nothing.
  TEventUI tick;
  tick.Type = UIEVENT_TIMER;
  tick.wParam = CLottieUI::kDefaultTimerId;
  lottie->Event(tick);
  EXPECT_EQ(lottie->player().current_frame(), 1u);
  tick.wParam = 7;
  lottie->Event(tick);
  EXPECT_EQ(lottie->player().current_frame(), 1u);

  lottie->SetPos({905, 345, 1015, 455});
  lottie->PaintStatusImage(canvas);
  EXPECT_EQ(g_paint, (std::vector<std::string>{"open image", "image 343x343 -> 905,345,1015,455",
                                               "close"}));
  g_paint.clear();
  lottie->SetPos({-1, 345, 109, 455});
  lottie->PaintStatusImage(canvas);
  EXPECT_TRUE(g_paint.empty());

  // Destruction stops the timer it started.
  const unsigned native = window.started[0].first;
  lottie.reset();
  EXPECT_EQ(window.stopped, std::vector<unsigned>{native});
}

TEST_F(LottieControlTest, UnknownNamesAndMissingFilesLeaveItEmpty) {
  auto upper = Make<CLottieUI>({{L"JSON", L"loading_dark.json"}});
  EXPECT_FALSE(upper->playing());
  EXPECT_FALSE(upper->player().HasAnimation());
  auto missing = Make<CLottieUI>({{L"json", L"nothing_here.json"}});
  EXPECT_FALSE(missing->playing());
  missing->SetPos({0, 0, 110, 110});
  missing->PaintStatusImage(canvas);
  EXPECT_TRUE(window.started.empty());
  EXPECT_TRUE(g_paint.empty());
}

}  // namespace
}  // namespace calder
