#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "ui/lottie_player.h"

namespace calder {
namespace {

// One filled square over the whole canvas, at the given frame rate and count.
std::string SquareAnimation(int fps, int frames, int size = 110) {
  const std::string n = std::to_string(size);
  return R"({"v":"5.5.2","fr":)" + std::to_string(fps) + R"(,"ip":0,"op":)" +
         std::to_string(frames) + R"(,"w":)" + n + R"(,"h":)" + n +
         R"(,"layers":[{"ty":4,"ind":1,"ip":0,"op":)" + std::to_string(frames) +
         R"(,"st":0,"sr":1,"ks":{"o":{"a":0,"k":100},"r":{"a":0,"k":0},"p":{"a":0,"k":[0,0,0]},)"
         R"("a":{"a":0,"k":[0,0,0]},"s":{"a":0,"k":[100,100,100]}},"shapes":[{"ty":"gr","it":[)"
         R"({"ty":"rc","d":1,"p":{"a":0,"k":[)" + std::to_string(size / 2) + "," +
         std::to_string(size / 2) + R"(]},"s":{"a":0,"k":[)" + n + "," + n +
         R"(]},"r":{"a":0,"k":0}},{"ty":"fl","c":{"a":0,"k":[1,0,0,1]},"o":{"a":0,"k":50}},)"
         R"({"ty":"tr","p":{"a":0,"k":[0,0]},"a":{"a":0,"k":[0,0]},"s":{"a":0,"k":[100,100]},)"
         R"("r":{"a":0,"k":0},"o":{"a":0,"k":100}}]}]}]})";
}

class LottiePlayerTest : public testing::Test {
 protected:
  std::string Write(const std::string& name, const std::string& json) {
    const std::string path = testing::TempDir() + "calder_" + name;
    std::ofstream(path) << json;
    files_.push_back(path);
    return path;
  }
  void TearDown() override {
    for (const std::string& f : files_) std::remove(f.c_str());
  }

 private:
  std::vector<std::string> files_;
};

TEST_F(LottiePlayerTest, BufferIsThreeTimesTheCanvasAtTheLoadScale) {
  LottiePlayer player;
  const std::string path = Write("square.json", SquareAnimation(25, 10));
  ASSERT_TRUE(player.Load(path, 100));
  EXPECT_EQ(player.buffer_width(), 343u);  // trunc(110 * 100/96 * 3)
  EXPECT_EQ(player.buffer_height(), 343u);
  ASSERT_TRUE(player.Load(path, 150));
  EXPECT_EQ(player.buffer_width(), 515u);  // trunc(110 * 1.5625 * 3)
  EXPECT_EQ(player.total_frames(), 10u);
  EXPECT_DOUBLE_EQ(player.frame_rate(), 25.0);
  // Nothing is rendered before the first advance.
  const uint32_t* px = player.buffer();
  EXPECT_TRUE(std::all_of(px, px + 515 * 515, [](uint32_t p) { return p == 0; }));
}

TEST_F(LottiePlayerTest, TimerIntervalComesFromTheFrameRate) {
  LottiePlayer player;
  const std::pair<int, uint32_t> cases[] = {{25, 40}, {30, 33}, {60, 16}};
  for (const auto& c : cases) {
    ASSERT_TRUE(player.Load(Write("rate.json", SquareAnimation(c.first, 5)), 100));
    EXPECT_EQ(player.TimerIntervalMs(), c.second) << c.first;
  }
  player.Unload();
  EXPECT_EQ(player.TimerIntervalMs(), 0u);  // no frame rate: the shortest period
}

TEST_F(LottiePlayerTest, FramesStartAtOneAndWrapToZero) {
  LottiePlayer player;
  ASSERT_TRUE(player.Load(Write("three.json", SquareAnimation(25, 3)), 100));
  std::vector<uint64_t> frames;
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(player.AdvanceFrame());
    frames.push_back(player.current_frame());
  }
  EXPECT_EQ(frames, (std::vector<uint64_t>{1, 2, 0, 1, 2}));

  ASSERT_TRUE(player.Load(Write("one.json", SquareAnimation(25, 1)), 100));
  ASSERT_TRUE(player.AdvanceFrame());
  ASSERT_TRUE(player.AdvanceFrame());
  EXPECT_EQ(player.current_frame(), 0u);
}

TEST_F(LottiePlayerTest, RendersPremultipliedPixels) {
  LottiePlayer player;
  ASSERT_TRUE(player.Load(Write("half.json", SquareAnimation(25, 2)), 96));
  ASSERT_EQ(player.buffer_width(), 330u);
  ASSERT_TRUE(player.AdvanceFrame());
  // Red at 50 % opacity: alpha about 0x80 and red premultiplied to match.
  const uint32_t centre = player.buffer()[165 * 330 + 165];
  const uint32_t alpha = centre >> 24;
  const uint32_t red = (centre >> 16) & 0xFF;
  EXPECT_NEAR(alpha, 0x80, 2);
  EXPECT_NEAR(red, alpha, 2);
  EXPECT_EQ(centre & 0xFFFF, 0u);
}

TEST_F(LottiePlayerTest, MissingOrBrokenFilesLeaveItEmpty) {
  LottiePlayer player;
  EXPECT_FALSE(player.Load(testing::TempDir() + "calder_no_such.json", 100));
  EXPECT_FALSE(player.HasAnimation());
  EXPECT_FALSE(player.AdvanceFrame());
  EXPECT_FALSE(player.Load(Write("broken.json", "{\"v\":"), 100));
  EXPECT_FALSE(player.HasAnimation());
}

TEST(AnimationFilePath, FolderOfTheModuleWithTheNameAsGiven) {
  EXPECT_EQ(AnimationFilePath("C:\\Tools\\calder.exe", "loading_dark.json"),
            "C:\\Tools\\loading_dark.json");
  EXPECT_EQ(AnimationFilePath("C:\\Tools\\calder.exe", "..\\x.json"), "C:\\Tools\\..\\x.json");
  EXPECT_EQ(AnimationFilePath("calder.exe", "a.json"), "calder.exea.json");
}

// The spinner we ship.
std::string ShippedAnimation() { return std::string(CALDER_SOURCE_DIR) + "/ui/loading_dark.json"; }

TEST(ShippedSpinner, LoadsAtItsCanvasAndMoves) {
  const std::string path = ShippedAnimation();
  LottiePlayer player;
  ASSERT_TRUE(player.Load(path, 100));
  EXPECT_EQ(player.buffer_width(), 343u);
  EXPECT_EQ(player.TimerIntervalMs(), 33u);
  EXPECT_EQ(player.total_frames(), 90u);
  const size_t count = player.buffer_width() * player.buffer_height();
  ASSERT_TRUE(player.AdvanceFrame());
  const std::vector<uint32_t> first(player.buffer(), player.buffer() + count);
  for (int i = 0; i < 20; ++i) player.AdvanceFrame();
  const std::vector<uint32_t> later(player.buffer(), player.buffer() + count);
  EXPECT_GT(std::count_if(first.begin(), first.end(), [](uint32_t p) { return p >> 24; }), 1000);
  EXPECT_NE(first, later);
  // Square canvas centre stays clear: a ring, not a disc.
  EXPECT_EQ(first[(343 / 2) * 343 + 343 / 2], 0u);
}

}  // namespace
}  // namespace calder
