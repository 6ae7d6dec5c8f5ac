#include "tests/support/force_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace calder::test {

ForceRig::ForceRig() {
  env.clock = &clock;
  env.progress = &progress;
  env.bridge = &sensor;
  Install();
}

void ForceRig::Install() {
  scope.reset();
  scope = std::make_unique<ScopedEnvironment>(env);
}

std::vector<std::string> ForceRig::LinesFrom(const std::string& file) const {
  std::vector<std::string> out;
  for (const LogEntry& e : log.entries()) {
    if (e.file == file) out.push_back(e.level + " " + e.file + ": " + e.message);
  }
  return out;
}

int ForceRig::CountLines(const std::string& line) const {
  const std::vector<std::string> lines = log.Lines();
  return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

std::vector<uint32_t> RestartAndHoldPauses() { return Concat({{100}, Repeat({2}, 20), {10}}); }

std::vector<uint32_t> Concat(std::initializer_list<std::vector<uint32_t>> parts) {
  std::vector<uint32_t> out;
  for (const auto& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

std::vector<uint32_t> Repeat(const std::vector<uint32_t>& part, int times) {
  std::vector<uint32_t> out;
  for (int i = 0; i < times; ++i) out.insert(out.end(), part.begin(), part.end());
  return out;
}

std::vector<uint8_t> Hex(const std::string& text) {
  std::vector<uint8_t> out;
  std::istringstream in(text);
  std::string token;
  while (in >> token) out.push_back(static_cast<uint8_t>(std::stoul(token, nullptr, 16)));
  return out;
}

std::vector<uint8_t> PatternBytes(size_t size, uint8_t seed) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>((i * 7 + seed) % 251 + 1);
  return bytes;
}

std::vector<uint8_t> TaggedFile(const std::vector<uint8_t>& image) {
  std::vector<uint8_t> file(72 + image.size(), 0x5A);
  std::memcpy(file.data() + 24, "AW8680", 6);
  std::copy(image.begin(), image.end(), file.begin() + 72);
  return file;
}

std::string WriteTempFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  // A folder of this process's own: the name is often the version the test
  // needs, and another test run may be writing the same name.
  static const std::string folder = [] {
    const std::string made = testing::TempDir() + "calder-" + std::to_string(std::random_device{}()) + "/";
    std::filesystem::create_directories(made);
    return made;
  }();
  const std::string path = folder + name;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

}  // namespace calder::test
