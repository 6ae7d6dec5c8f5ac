#include <gtest/gtest.h>

#include "ui/progress_geometry.h"

namespace calder {
namespace {

// The skin's bar: 650 x 10 at the top of its 27-pixel row.
const UiRect kBar{100, 200, 750, 210};

TEST(BarGeometry, AtOneHundredPercentScale) {
  const BarGeometry g = ComputeBarGeometry(kBar, 100, 5, 50);
  ASSERT_TRUE(g.visible);
  // s = 100 / 96: offset trunc(9.375) = 9, height trunc(10.4167) = 10, radius 5.
  EXPECT_EQ(g.track, (UiRect{100, 209, 750, 219}));
  EXPECT_EQ(g.radius, 5);
  // Half of the control's width, never scaled.
  EXPECT_EQ(g.fill, 325);
  EXPECT_EQ(g.fill_rect, (UiRect{100, 209, 425, 219}));
}

TEST(BarGeometry, AtOneHundredFiftyPercentScale) {
  const BarGeometry g = ComputeBarGeometry({0, 300, 975, 316}, 150, 5, 100);
  ASSERT_TRUE(g.visible);
  EXPECT_EQ(g.track.top, 314);     // trunc(300 + 14.0625)
  EXPECT_EQ(g.track.bottom, 329);  // trunc(15.625 + 314)
  EXPECT_EQ(g.radius, 7);          // trunc(5 * 1.5625)
  EXPECT_EQ(g.fill, 975);
}

TEST(BarGeometry, ValueIsAPercentageWhateverTheRange) {
  EXPECT_EQ(ComputeBarGeometry(kBar, 100, 5, 0).fill, 0);
  EXPECT_EQ(ComputeBarGeometry(kBar, 100, 5, 150).fill, 975);  // past the track's end
  EXPECT_EQ(ComputeBarGeometry(kBar, 100, 5, 150).fill_rect.right, 1075);
  EXPECT_EQ(ComputeBarGeometry(kBar, 100, 5, -5).fill, -32);
  EXPECT_EQ(ComputeBarGeometry(kBar, 100, 5, -5).fill_rect.right, 100);
}

TEST(BarGeometry, NothingForAnEmptyWidthOrBand) {
  EXPECT_FALSE(ComputeBarGeometry({10, 0, 10, 10}, 100, 5, 50).visible);
  EXPECT_FALSE(ComputeBarGeometry({20, 0, 10, 10}, 100, 5, 50).visible);
  EXPECT_FALSE(ComputeBarGeometry({0, 0, 10, 10}, 0, 5, 50).visible);
}

TEST(RoundedRect, FourQuarterArcsClockwiseFromTopLeft) {
  const std::vector<PathArc> arcs = RoundedRectArcs(100, 209, 650, 10, 5);
  ASSERT_EQ(arcs.size(), 4u);
  const float expected[4][5] = {{100, 209, 10, 180, 90},
                                {740, 209, 10, 270, 90},
                                {740, 209, 10, 0, 90},
                                {100, 209, 10, 90, 90}};
  for (int i = 0; i < 4; ++i) {
    EXPECT_FLOAT_EQ(arcs[i].x, expected[i][0]) << i;
    EXPECT_FLOAT_EQ(arcs[i].y, expected[i][1]) << i;
    EXPECT_FLOAT_EQ(arcs[i].d, expected[i][2]) << i;
    EXPECT_FLOAT_EQ(arcs[i].start, expected[i][3]) << i;
    EXPECT_FLOAT_EQ(arcs[i].sweep, expected[i][4]) << i;
  }
}

TEST(CircleGeometry, RadiusKeepsTheScaledMarginAndHalfTheStroke) {
  const CircleGeometry g = ComputeCircleGeometry({10, 20, 111, 121}, 100, 8, 20, 25);
  ASSERT_TRUE(g.visible);
  EXPECT_EQ(g.cx, 60);
  EXPECT_EQ(g.cy, 70);
  EXPECT_EQ(g.pen, 8);                  // trunc(8 * 1.0417)
  EXPECT_EQ(g.r, 50 - 4 - 4);           // trunc(4.1667) = 4, 8 / 2 = 4
  EXPECT_FLOAT_EQ(g.start, -90.0f);
  EXPECT_FLOAT_EQ(g.sweep, 90.0f);
  EXPECT_EQ(g.font_height, -20);        // -trunc(20.833)

  const CircleGeometry big = ComputeCircleGeometry({0, 0, 200, 100}, 200, 7, 10, 100);
  EXPECT_EQ(big.pen, 14);               // trunc(7 * 2.0833)
  EXPECT_EQ(big.r, 50 - 8 - 7);
  EXPECT_FLOAT_EQ(big.sweep, 360.0f);
  EXPECT_EQ(big.font_height, -20);
}

TEST(CircleGeometry, NothingBelowOnePixel) {
  EXPECT_FALSE(ComputeCircleGeometry({0, 0, 0, 10}, 100, 8, 20, 25).visible);
  EXPECT_FALSE(ComputeCircleGeometry({0, 0, 10, 0}, 100, 8, 20, 25).visible);
}

}  // namespace
}  // namespace calder
