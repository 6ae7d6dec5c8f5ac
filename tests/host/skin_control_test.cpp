#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "tests/host/skin_test_doubles.h"
#include "ui/skin/skin.h"

namespace calder {
namespace {

using test::RecordingCanvas;
using test::RecordingWindow;
using test::RectText;

TEST(SkinDpi, ScaleIsTheRoundedPercentOfTheDpi) {
  // dpi, its scale, 27 at that scale: the percent rounds, 40.5 rounds up, no dpi.
  const int cases[][3] = {{96, 100, 27}, {97, 101, 27}, {144, 150, 41}, {0, 0, 0}};
  CDPI dpi;
  for (const auto& c : cases) {
    dpi.SetScale(c[0]);
    EXPECT_EQ(dpi.GetScale(), c[1]) << c[0];
    EXPECT_EQ(dpi.Scale(27), c[2]) << c[0];
  }
  // The other awareness modes ignore the monitor's scale (0 by now).
  dpi.SetSystemScale(125);
  dpi.SetAwareness(kSystemDpiAware);
  EXPECT_EQ(dpi.Scale(40), 50);
  dpi.SetAwareness(kDpiUnaware);
  EXPECT_EQ(dpi.GetScale(), 100);
  EXPECT_EQ(dpi.Scale(40), 40);
  // Rounded half away from zero whichever side is negative, clamped, -1 for a zero divisor.
  const int muldiv[][4] = {{-3, 1, 2, -2}, {3, 1, -2, -2}, {5, 1, 0, -1}, {INT_MAX, 2, 1, INT_MAX}, {INT_MIN, 2, 1, INT_MIN}};
  for (const auto& m : muldiv) EXPECT_EQ(MulDivRound(m[0], m[1], m[2]), m[3]) << m[0] << " " << m[2];
}

class SkinManager : public testing::Test {
 protected:
  SkinManager() { manager.Init(&window); }

  // root (vertical) > row (horizontal, 40 high) > {a (width 100), b}
  void MakeTree() {
    auto* root = new CVerticalLayoutUI();
    row = new CHorizontalLayoutUI();
    row->SetFixedHeight(40);
    a = new CLabelUI();
    a->SetFixedWidth(100);
    b = new CLabelUI();
    row->Add(a);
    row->Add(b);
    root->Add(row);
    manager.AttachDialog(root);
    manager.UpdateLayout(UiRect{0, 0, 300, 200});
    window.invalidated.clear();
  }
  std::string Invalidated() {
    std::string out;
    for (const UiRect& r : window.invalidated) out += RectText(r) + " ";
    window.invalidated.clear();
    return out;
  }

  RecordingWindow window;
  CPaintManagerUI manager;
  CHorizontalLayoutUI* row = nullptr;
  CLabelUI* a = nullptr;
  CLabelUI* b = nullptr;
};

// Records its timer events' ids.
class TimerProbe : public CControlUI {
 public:
  void DoEvent(TEventUI& event) override {
    if (event.Type == UIEVENT_TIMER && event.pSender == this) ticks.push_back(static_cast<unsigned>(event.wParam));
  }
  std::vector<unsigned> ticks;
};

TEST_F(SkinManager, TimersAreKeptPerControlAndReachTheirOwner) {
  auto* layout = new CHorizontalLayoutUI();
  auto* first = new TimerProbe();
  auto* second = new TimerProbe();
  layout->Add(first);
  layout->Add(second);
  manager.AttachDialog(layout);
  ASSERT_TRUE(first->SetTimer(2026, 40));
  ASSERT_TRUE(second->SetTimer(2026, 33));  // same id, other control: its own native timer
  ASSERT_EQ(window.started.size(), 2u);
  const unsigned native1 = window.started[0].first, native2 = window.started[1].first;
  EXPECT_TRUE(manager.OnNativeTimer(native2, 3));
  EXPECT_FALSE(manager.OnNativeTimer(0xDEAD, 4));  // not ours: left to the window
  EXPECT_TRUE(first->ticks.empty());
  EXPECT_EQ(second->ticks, std::vector<unsigned>{2026});
  EXPECT_TRUE(first->KillTimer(2026));
  EXPECT_EQ(window.stopped, std::vector<unsigned>{native1});
  EXPECT_FALSE(manager.OnNativeTimer(native1, 5));
  window.timers_work = false;
  EXPECT_FALSE(first->SetTimer(7, 10));
  EXPECT_FALSE(manager.OnNativeTimer(window.started.back().first, 6));  // a refused start is not kept
  // A control that goes away takes its timers with it.
  ASSERT_TRUE(layout->Remove(second));
  EXPECT_EQ(window.stopped.back(), native2);
  EXPECT_FALSE(manager.OnNativeTimer(native2, 6));
}

TEST_F(SkinManager, TextVisibilityAndInvalidationRepaintWithinTheContainers) {
  MakeTree();
  EXPECT_EQ(RectText(b->GetPos()), "100,0,300,40");
  b->SetText(L"0%");
  b->SetText(L"0%");  // unchanged: no repaint
  b->SetPos(b->GetPos());  // nor an unchanged place
  a->SetVisible(true);
  EXPECT_EQ(Invalidated(), "100,0,300,40 ");
  EXPECT_FALSE(manager.IsUpdateNeeded());
  row->SetVisible(false);
  EXPECT_TRUE(manager.IsUpdateNeeded());
  EXPECT_EQ(Invalidated().substr(0, 13), "0,0,300,40 0,");  // the area it leaves, then the root
  b->SetText(L"hidden");
  EXPECT_EQ(Invalidated(), "");
  row->SetVisible(true);
  b->SetFixedHeight(500);  // taller than its row: repaints only what the row shows
  manager.UpdateLayout(UiRect{0, 0, 300, 200});
  Invalidated();
  b->Invalidate();
  EXPECT_EQ(Invalidated(), "100,0,300,40 ");
}

TEST_F(SkinManager, LayoutSharesFreeSpaceAndLetsFixedSizesOverflow) {
  auto* column = new CVerticalLayoutUI();
  std::vector<CControlUI*> kids;
  for (int h : {0, 50, 0, 0, 300}) {
    kids.push_back(new CControlUI());
    kids.back()->SetFixedHeight(h);
    column->Add(kids.back());
  }
  kids[1]->SetFixedWidth(70);
  manager.AttachDialog(column);
  const auto positions = [&] {
    std::string out;
    for (CControlUI* c : kids) out += RectText(c->GetPos()) + " ";
    return out;
  };
  manager.UpdateLayout(UiRect{10, 20, 110, 420});  // 50 left for three spacers; the last takes the odd 2
  EXPECT_EQ(positions(), "10,20,110,36 10,36,80,86 10,86,110,102 10,102,110,120 10,120,110,420 ");
  manager.UpdateLayout(UiRect{0, 0, 50, 200});  // fixed 350 in 200: spacers get nothing
  EXPECT_EQ(positions(), "0,0,50,0 0,0,50,50 0,50,50,50 0,50,50,50 0,50,50,350 ");
}

TEST_F(SkinManager, SetDpiRescalesTheWindowRelayoutsAndPosts) {
  MakeTree();
  window.rect = UiRect{10, 20, 1930, 1220};
  manager.SetDPI(144, UiRect{});
  EXPECT_EQ(window.resets, 1);
  EXPECT_EQ(window.posts, std::vector<unsigned>{1224});
  manager.UpdateLayout(UiRect{0, 0, 600, 400});
  EXPECT_EQ(RectText(a->GetPos()), "0,0,150,60");
  manager.SetDPI(96, UiRect{0, 0, 800, 600});  // a given rectangle is used as it is
  window.maximized = true;
  manager.SetDPI(192, UiRect{});  // maximised: not moved
  std::string moves;
  for (const UiRect& r : window.moves) moves += RectText(r) + " ";
  EXPECT_EQ(moves, "10,20,2890,1820 0,0,800,600 ");
}

// Marks the status-image step among the canvas calls.
class StatusProbe : public CLabelUI {
 public:
  void PaintStatusImage(Canvas& canvas) override { canvas.FillRect(rect_, 0x5); }
};

TEST_F(SkinManager, PaintRunsTheStepsInOrderThenTheChildrenClipped) {
  auto* layout = new CVerticalLayoutUI();
  layout->SetBkColor(0xFF000000);
  auto* probe = new StatusProbe();
  probe->SetFixedHeight(30);
  for (const auto& [n, v] : std::vector<std::pair<const wchar_t*, const wchar_t*>>{
           {L"bkcolor", L"#FF101010"}, {L"forecolor", L"#80202020"}, {L"text", L"50%"}, {L"textcolor", L"#FFFFFFFF"},
           {L"font", L"1"}, {L"align", L"right"}, {L"bordersize", L"1"}, {L"bordercolor", L"#FF303030"}}) {
    probe->SetAttribute(n, v);
  }
  auto* hidden = new CLabelUI();
  hidden->SetText(L"hidden");
  hidden->SetVisible(false);
  layout->Add(probe);
  layout->Add(hidden);
  manager.AttachDialog(layout);
  manager.GetDPIObj()->SetScale(144);
  RecordingCanvas canvas;
  manager.Paint(canvas, UiRect{0, 0, 200, 100}, UiRect{0, 0, 200, 100});
  manager.Paint(canvas, UiRect{0, 0, 200, 100}, UiRect{0, 50, 200, 100});  // below the probe: only the root
  EXPECT_EQ(canvas.calls, (std::vector<std::string>{
                              "fill 0,0,200,100 #FF000000", "clip 0,0,200,100", "fill 0,0,200,45 #FF101010",
                              "fill 0,0,200,45 #00000005", "fill 0,0,200,45 #80202020",
                              "text 0,0,200,45 50% font 1 #FFFFFFFF style 2086", "border 0,0,200,45 2 #FF303030",
                              "unclip", "fill 0,0,200,100 #FF000000", "clip 0,50,200,100", "unclip"}));
}

TEST(SkinControls, ProgressAndLabelAttributes) {
  CProgressUI bar;
  for (const auto& [n, v] : std::vector<std::pair<const wchar_t*, const wchar_t*>>{
           {L"MIN", L"10"}, {L"Max", L"90"}, {L"value", L"95"}, {L"align", L"center"}}) {
    bar.SetAttribute(n, v);
  }
  EXPECT_EQ(bar.GetMinValue(), 10);
  EXPECT_EQ(bar.GetValue(), 90);  // kept within the range
  EXPECT_EQ(bar.GetTextStyle(), unsigned{kTextCenter | kTextVCenter | kTextSingleLine});
  bar.SetValue(-5);
  EXPECT_EQ(bar.GetValue(), 10);
  CLabelUI label;
  const std::pair<const wchar_t*, unsigned> aligns[] = {
      {L"Right", kTextRight}, {L"middle", kTextRight}, {L"left", kTextLeft}};
  for (const auto& [value, style] : aligns) {
    label.SetAttribute(L"align", value);  // an unknown value keeps the placement
    EXPECT_EQ(label.GetTextStyle(), style | kTextVCenter | kTextSingleLine) << value;
  }
}

}  // namespace
}  // namespace calder
