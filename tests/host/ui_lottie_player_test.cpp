#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "ui/lottie_player.h"

namespace calder {
namespace {

const std::string kSpinner = CALDER_SOURCE_DIR "/ui/loading_dark.json";

class LottiePlayerTest : public testing::Test {
 protected:
  // An animation with no layers: only its rate, length and canvas count here.
  std::string Write(int fps, int frames, const std::string& body = "") {
    const std::string path = testing::TempDir() + "calder_anim_" + std::to_string(files_.size()) + ".json";
    std::ofstream(path) << (body.empty() ? R"({"v":"5.5.2","fr":)" + std::to_string(fps) + R"(,"ip":0,"op":)" +
                                               std::to_string(frames) + R"(,"w":110,"h":110,"layers":[]})"
                                         : body);
    files_.push_back(path);
    return path;
  }
  ~LottiePlayerTest() override {
    for (const std::string& f : files_) std::remove(f.c_str());
  }

  LottiePlayer player;
  std::vector<std::string> files_;
};

TEST_F(LottiePlayerTest, BufferIsThreeTimesTheCanvasAtTheLoadScaleAndStartsClear) {
  const std::pair<int, uint64_t> cases[] = {{100, 343}, {150, 515}};
  const std::string path = Write(25, 10);
  for (const auto& c : cases) {
    ASSERT_TRUE(player.Load(path, c.first));
    EXPECT_EQ(player.buffer_width(), c.second) << c.first;
    EXPECT_EQ(player.buffer_height(), c.second) << c.first;
    EXPECT_TRUE(std::all_of(player.buffer(), player.buffer() + c.second * c.second, [](uint32_t p) { return !p; }));
  }
  EXPECT_EQ(player.total_frames(), 10u);
}

TEST_F(LottiePlayerTest, TimerFromTheFrameRateFramesFromOneWrappingToZero) {
  // frame rate, frame count, timer period, the frames four steps show
  const std::tuple<int, int, uint32_t, std::vector<uint64_t>> cases[] = {
      {25, 3, 40, {1, 2, 0, 1}}, {30, 1, 33, {0, 0, 0, 0}}, {60, 2, 16, {1, 0, 1, 0}}, {1, 5, 1000, {1, 2, 3, 4}}};
  for (const auto& [fps, frames, interval, expected] : cases) {
    ASSERT_TRUE(player.Load(Write(fps, frames), 100));
    EXPECT_EQ(player.TimerIntervalMs(), interval) << fps;
    std::vector<uint64_t> seen;
    for (int i = 0; i < 4 && player.AdvanceFrame(); ++i) seen.push_back(player.current_frame());
    EXPECT_EQ(seen, expected) << fps;
  }
  player.Unload();
  EXPECT_EQ(player.TimerIntervalMs(), 0u);       // no frame rate: the shortest period
  EXPECT_FALSE(player.Load(Write(25, 0), 100));  // no frames: nothing to play
}

TEST_F(LottiePlayerTest, RendersEachFrameOfTheSpinnerIntoTheBuffer) {
  ASSERT_TRUE(player.Load(kSpinner, 100));
  const size_t count = player.buffer_width() * player.buffer_height();
  ASSERT_TRUE(player.AdvanceFrame());
  const std::vector<uint32_t> first(player.buffer(), player.buffer() + count);
  for (int i = 0; i < 20; ++i) player.AdvanceFrame();
  const std::vector<uint32_t> later(player.buffer(), player.buffer() + count);
  EXPECT_GT(std::count_if(first.begin(), first.end(), [](uint32_t p) { return p >> 24; }), 1000);
  EXPECT_NE(first, later);
}

TEST_F(LottiePlayerTest, MissingOrBrokenFilesLeaveItEmpty) {
  ASSERT_TRUE(player.Load(Write(25, 10), 100));
  for (const std::string& path : {testing::TempDir() + "calder_no_such.json", Write(0, 0, "{\"v\":")}) {
    EXPECT_FALSE(player.Load(path, 100));
    EXPECT_FALSE(player.HasAnimation());
    EXPECT_EQ(player.buffer(), nullptr);
    EXPECT_FALSE(player.AdvanceFrame());
  }
}

}  // namespace
}  // namespace calder
