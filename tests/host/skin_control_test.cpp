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

TEST(SkinDpi, ScaleIsTheRoundedPercentOfTheDpiAndFollowsTheAwareness) {
  const struct {
    unsigned dpi;
    int scale, scaled27;
  } cases[] = {{96, 100, 27}, {97, 101, 27}, {120, 125, 34}, {144, 150, 41}, {168, 175, 47}, {192, 200, 54}, {0, 0, 0}};
  CDPI dpi;
  EXPECT_EQ(dpi.GetDPIAwareness(), kPerMonitorDpiAware);
  EXPECT_EQ(dpi.GetScale(), 100);
  for (const auto& c : cases) {
    dpi.SetScale(c.dpi);
    EXPECT_EQ(dpi.GetScale(), c.scale) << c.dpi;
    EXPECT_EQ(dpi.Scale(27), c.scaled27) << c.dpi;  // 40.5 rounds up at 150 %
  }
  dpi.SetScale(144);
  dpi.SetSystemScale(125);
  dpi.SetAwareness(kSystemDpiAware);
  EXPECT_EQ(dpi.GetScale(), 125);
  EXPECT_EQ(dpi.Scale(-27), -34);
  dpi.SetAwareness(kDpiUnaware);
  EXPECT_EQ(dpi.GetScale(), 100);
  EXPECT_EQ(dpi.Scale(27), 27);
  // Rounded half away from zero, clamped, -1 for a zero divisor.
  EXPECT_EQ(MulDivRound(-3, 1, 2), -2);
  EXPECT_EQ(MulDivRound(3, 1, -2), -2);
  EXPECT_EQ(MulDivRound(5, 1, 0), -1);
  EXPECT_EQ(MulDivRound(INT_MAX, 2, 1), INT_MAX);
  EXPECT_EQ(MulDivRound(INT_MIN, 2, 1), INT_MIN);
}

class SkinManager : public testing::Test {
 protected:
  SkinManager() { manager.Init(&window); }
  ~SkinManager() override { CPaintManagerUI::ClearPlugins(); }

  // root (vertical) > row (horizontal, 40 high) > {a (width 100), b}
  void MakeTree() {
    root = new CVerticalLayoutUI();
    row = new CHorizontalLayoutUI();
    row->SetFixedHeight(40);
    a = new CLabelUI();
    a->SetName(L"a");
    a->SetFixedWidth(100);
    b = new CLabelUI();
    b->SetName(L"b");
    row->Add(a);
    row->Add(b);
    root->Add(row);
    manager.AttachDialog(root);
    manager.UpdateLayout(UiRect{0, 0, 300, 200});
    window.invalidated.clear();
  }

  RecordingWindow window;
  CPaintManagerUI manager;
  CVerticalLayoutUI* root = nullptr;
  CHorizontalLayoutUI* row = nullptr;
  CLabelUI* a = nullptr;
  CLabelUI* b = nullptr;
};

// Counts timer events per control timer id.
class TimerProbe : public CControlUI {
 public:
  void DoEvent(TEventUI& event) override {
    if (event.Type == UIEVENT_TIMER) ticks.push_back(static_cast<unsigned>(event.wParam));
    CControlUI::DoEvent(event);
  }
  std::vector<unsigned> ticks;
};

TEST_F(SkinManager, TimersAreKeptPerControlAndReachTheirOwner) {
  auto* layout = new CHorizontalLayoutUI();
  auto* first = new TimerProbe();
  auto* second = new TimerProbe();
  layout->Add(first);
  layout->Add(second);
  TimerProbe orphan;
  EXPECT_FALSE(orphan.SetTimer(2026, 40));  // no manager

  manager.AttachDialog(layout);
  ASSERT_TRUE(first->SetTimer(2026, 40));
  ASSERT_TRUE(second->SetTimer(2026, 33));  // same id, other control: its own native timer
  ASSERT_EQ(window.started.size(), 2u);
  const unsigned first_native = window.started[0].first;
  const unsigned second_native = window.started[1].first;
  EXPECT_NE(first_native, second_native);
  EXPECT_EQ(window.started[0].second, 40u);
  EXPECT_EQ(window.started[1].second, 33u);

  EXPECT_TRUE(manager.OnNativeTimer(first_native, 1));
  manager.OnNativeTimer(first_native, 2);
  manager.OnNativeTimer(second_native, 3);
  EXPECT_FALSE(manager.OnNativeTimer(0xDEAD, 4));  // not ours: left to the window
  EXPECT_EQ(first->ticks, (std::vector<unsigned>{2026, 2026}));
  EXPECT_EQ(second->ticks, (std::vector<unsigned>{2026}));

  ASSERT_TRUE(first->SetTimer(2026, 16));  // restarting keeps the native id
  EXPECT_EQ(window.started.back(), std::make_pair(first_native, 16u));

  EXPECT_TRUE(first->KillTimer(2026));
  EXPECT_FALSE(first->KillTimer(2026));
  EXPECT_EQ(window.stopped, (std::vector<unsigned>{first_native}));
  manager.OnNativeTimer(first_native, 5);
  EXPECT_EQ(first->ticks.size(), 2u);

  window.timers_work = false;
  EXPECT_FALSE(first->SetTimer(7, 10));

  // A control that goes away takes its timers with it.
  ASSERT_TRUE(layout->Remove(second));
  EXPECT_EQ(window.stopped.back(), second_native);
  manager.OnNativeTimer(second_native, 6);  // must not reach the deleted control (ASan)
}

TEST_F(SkinManager, TextAndVisibilityRepaintAndRelayout) {
  MakeTree();
  EXPECT_EQ(RectText(a->GetPos()), "0,0,100,40");
  EXPECT_EQ(RectText(b->GetPos()), "100,0,300,40");

  b->SetText(L"0%");
  ASSERT_EQ(window.invalidated.size(), 1u);
  EXPECT_EQ(RectText(window.invalidated[0]), "100,0,300,40");
  b->SetText(L"0%");  // unchanged: no repaint
  EXPECT_EQ(window.invalidated.size(), 1u);

  window.invalidated.clear();
  a->SetVisible(true);  // unchanged
  EXPECT_TRUE(window.invalidated.empty());
  EXPECT_FALSE(manager.IsUpdateNeeded());

  row->SetVisible(false);
  EXPECT_FALSE(a->IsVisible());
  EXPECT_FALSE(b->IsVisible());
  EXPECT_TRUE(manager.IsUpdateNeeded());
  EXPECT_EQ(RectText(window.invalidated.front()), "0,0,300,40");  // the area it leaves
  b->SetText(L"hidden");
  manager.UpdateLayout(UiRect{0, 0, 300, 200});

  row->SetVisible(true);
  EXPECT_TRUE(a->IsVisible());
  EXPECT_TRUE(b->IsVisible());
  a->SetVisible(false);
  manager.UpdateLayout(UiRect{0, 0, 300, 200});
  EXPECT_EQ(RectText(b->GetPos()), "0,0,300,40");  // the hidden one takes no space
}

TEST_F(SkinManager, InvalidateIsClippedToTheContainers) {
  MakeTree();
  b->SetFixedHeight(500);  // taller than its row
  manager.UpdateLayout(UiRect{0, 0, 300, 200});
  EXPECT_EQ(RectText(b->GetPos()), "100,0,300,40");  // capped at the row's height
  window.invalidated.clear();
  a->Invalidate();
  EXPECT_EQ(RectText(window.invalidated.at(0)), "0,0,100,40");
  a->SetVisible(false);
  window.invalidated.clear();
  a->Invalidate();  // hidden: nothing to repaint
  EXPECT_TRUE(window.invalidated.empty());
}

TEST_F(SkinManager, LayoutSharesFreeSpaceAndLetsFixedSizesOverflow) {
  auto* column = new CVerticalLayoutUI();
  std::vector<CControlUI*> kids;
  for (int h : {0, 50, 0, 0, 300}) {
    auto* c = new CControlUI();
    c->SetFixedHeight(h);
    column->Add(c);
    kids.push_back(c);
  }
  kids[1]->SetFixedWidth(70);
  manager.AttachDialog(column);
  manager.UpdateLayout(UiRect{10, 20, 110, 420});  // 400 high: 50 left for three spacers
  EXPECT_EQ(RectText(kids[0]->GetPos()), "10,20,110,36");
  EXPECT_EQ(RectText(kids[1]->GetPos()), "10,36,80,86");
  EXPECT_EQ(RectText(kids[2]->GetPos()), "10,86,110,102");
  EXPECT_EQ(RectText(kids[3]->GetPos()), "10,102,110,120");  // 16 + the 2 left over
  EXPECT_EQ(RectText(kids[4]->GetPos()), "10,120,110,420");

  manager.UpdateLayout(UiRect{0, 0, 50, 200});  // fixed 350 in 200: spacers get nothing
  EXPECT_EQ(RectText(kids[0]->GetPos()), "0,0,50,0");
  EXPECT_EQ(RectText(kids[1]->GetPos()), "0,0,50,50");  // width capped at the column
  EXPECT_EQ(RectText(kids[4]->GetPos()), "0,50,50,350");
}

TEST_F(SkinManager, SetDpiRescalesTheWindowRelayoutsAndPosts) {
  MakeTree();
  window.rect = UiRect{10, 20, 1930, 1220};
  manager.SetDPI(144, UiRect{});
  EXPECT_EQ(manager.GetDPIObj()->GetScale(), 150);
  EXPECT_EQ(window.resets, 1);
  ASSERT_EQ(window.moves.size(), 1u);
  EXPECT_EQ(RectText(window.moves[0]), "10,20,2890,1820");
  EXPECT_TRUE(manager.IsUpdateNeeded());
  ASSERT_EQ(window.posts.size(), 1u);
  EXPECT_EQ(window.posts[0].msg, 1224u);
  EXPECT_EQ(window.posts[0].wparam, 0u);
  EXPECT_EQ(window.posts[0].lparam, 0);

  manager.UpdateLayout(UiRect{0, 0, 600, 400});
  EXPECT_EQ(RectText(a->GetPos()), "0,0,150,60");

  manager.SetDPI(96, UiRect{0, 0, 800, 600});  // a given rectangle is used as it is
  EXPECT_EQ(RectText(window.moves.back()), "0,0,800,600");
  window.maximized = true;
  manager.SetDPI(192, UiRect{});
  EXPECT_EQ(window.moves.size(), 2u);  // maximised: not moved
  EXPECT_EQ(window.posts.size(), 3u);
  EXPECT_EQ(manager.GetDPIObj()->GetScale(), 200);
}

// Logs its paint steps.
class StepProbe : public CLabelUI {
 public:
  explicit StepProbe(std::vector<std::string>* log) : log_(log) {}
  void PaintBkColor(Canvas& c) override { log_->push_back("bkcolor"); CLabelUI::PaintBkColor(c); }
  void PaintBkImage(Canvas&) override { log_->push_back("bkimage"); }
  void PaintStatusImage(Canvas&) override { log_->push_back("status"); }
  void PaintForeColor(Canvas& c) override { log_->push_back("forecolor"); CLabelUI::PaintForeColor(c); }
  void PaintForeImage(Canvas&) override { log_->push_back("foreimage"); }
  void PaintText(Canvas& c) override { log_->push_back("text"); CLabelUI::PaintText(c); }
  void PaintBorder(Canvas& c) override { log_->push_back("border"); CLabelUI::PaintBorder(c); }

 private:
  std::vector<std::string>* log_;
};

TEST_F(SkinManager, PaintRunsTheSevenStepsInOrderThenTheChildrenClipped) {
  std::vector<std::string> steps;
  auto* layout = new CVerticalLayoutUI();
  layout->SetBkColor(0xFF000000);
  auto* probe = new StepProbe(&steps);
  probe->SetFixedHeight(30);
  for (const auto& [n, v] : std::vector<std::pair<const wchar_t*, const wchar_t*>>{
           {L"bkcolor", L"#FF101010"}, {L"forecolor", L"#80202020"}, {L"text", L"50%"},
           {L"textcolor", L"#FFFFFFFF"}, {L"font", L"1"}, {L"align", L"right"},
           {L"bordersize", L"1"}, {L"bordercolor", L"#FF303030"}}) {
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
  EXPECT_EQ(steps, (std::vector<std::string>{"bkcolor", "bkimage", "status", "forecolor", "foreimage",
                                             "text", "border"}));
  EXPECT_EQ(canvas.calls, (std::vector<std::string>{
                              "fill 0,0,200,100 #FF000000",
                              "clip 0,0,200,100",
                              "fill 0,0,200,45 #FF101010",
                              "fill 0,0,200,45 #80202020",
                              "text 0,0,200,45 50% font 1 #FFFFFFFF style 2086",
                              "border 0,0,200,45 2 #FF303030",
                              "unclip",
                          }));

  // Outside the dirty rectangle nothing is painted.
  steps.clear();
  canvas.calls.clear();
  manager.Paint(canvas, UiRect{0, 0, 200, 100}, UiRect{0, 50, 200, 100});
  EXPECT_TRUE(steps.empty());
}

TEST(SkinControls, AttributesFallThroughToCustomStorage) {
  CProgressUI bar;
  bar.SetAttribute(L"MIN", L"10");
  bar.SetAttribute(L"Max", L"90");
  bar.SetAttribute(L"value", L"95");
  bar.SetAttribute(L"hor", L"false");
  bar.SetAttribute(L"isstretchfore", L"false");
  bar.SetAttribute(L"Radius", L"9");
  bar.SetAttribute(L"Radius", L"3");
  bar.SetAttribute(L"align", L"center");  // a label attribute on a progress control
  EXPECT_EQ(bar.GetMinValue(), 10);
  EXPECT_EQ(bar.GetMaxValue(), 90);
  EXPECT_EQ(bar.GetValue(), 90);
  EXPECT_FALSE(bar.IsHorizontal());
  EXPECT_FALSE(bar.IsStretchForeImage());
  EXPECT_STREQ(bar.GetCustomAttribute(L"Radius"), L"9");
  EXPECT_EQ(bar.GetCustomAttribute(L"radius"), nullptr);
  EXPECT_EQ(bar.GetTextStyle(), unsigned{kTextCenter | kTextVCenter | kTextSingleLine});
  bar.SetValue(-5);
  EXPECT_EQ(bar.GetValue(), 10);
  EXPECT_EQ(bar.GetClass(), L"ProgressUI");
  EXPECT_EQ(bar.GetInterface(L"Progress"), &bar);
  EXPECT_EQ(bar.GetInterface(L"Label"), &bar);
  EXPECT_EQ(bar.GetInterface(L"IContainer"), nullptr);

  CLabelUI label;
  label.SetAttribute(L"align", L"center");
  label.SetAttribute(L"align", L"left");
  EXPECT_EQ(label.GetTextStyle(), unsigned{kTextLeft | kTextVCenter | kTextSingleLine});
  label.SetAttribute(L"bold", L"true");
  label.SetAttribute(L"gdiplustext", L"true");
  EXPECT_EQ(label.GetTextStyle(), unsigned{kTextLeft | kTextVCenter | kTextSingleLine});
  EXPECT_STREQ(label.GetCustomAttribute(L"bold"), L"true");
}

}  // namespace
}  // namespace calder
