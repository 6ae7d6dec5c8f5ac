// calder-report over a simulated fleet of 100,000 logs: runs per second,
// peak memory, and the time against grep -rc "main returned" over the same
// files in the same run (both with the files in the page cache).
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

extern char** environ;
namespace fs = std::filesystem;

namespace {

constexpr long kFleet = 100000;

struct Measured {
  double seconds = 0;
  long peakKiB = 0;
  int status = -1;
};

// Runs a program with its output to /dev/null; wall time and peak memory.
Measured Measure(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  const auto start = std::chrono::steady_clock::now();
  pid_t pid;
  Measured m;
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) return m;
  struct rusage usage {};
  wait4(pid, &m.status, 0, &usage);
  m.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  m.peakKiB = usage.ru_maxrss;
  posix_spawn_file_actions_destroy(&actions);
  return m;
}

}  // namespace

int main(int, char** argv) {
  const fs::path tools = fs::canonical("/proc/self/exe").parent_path();
  const fs::path fleet = tools / "report-fleet";
  if (!fs::exists(fleet / "99" / "Calder_2026-05-01_000000_0.done")) {
    fs::remove_all(fleet);
    if (Measure({(tools / "calder-fleet").string(), fleet.string(), std::to_string(kFleet)}).status != 0) {
      std::fprintf(stderr, "%s: calder-fleet failed\n", argv[0]);
      return 1;
    }
    std::FILE* done = std::fopen((fleet / "99" / "Calder_2026-05-01_000000_0.done").c_str(), "w");
    if (done != nullptr) std::fclose(done);
  }
  const std::vector<std::string> grep = {"grep", "-rc", "main returned", fleet.string()};
  Measure(grep);  // both read from the page cache
  const Measured g = Measure(grep);
  const Measured r = Measure({(tools / "calder-report").string(), fleet.string()});
  if (r.status != 0) {
    std::fprintf(stderr, "%s: calder-report failed\n", argv[0]);
    return 1;
  }
  std::printf("BENCH\treport: 100,000 logs\t%.2f\ts\n", r.seconds);
  std::printf("BENCH\treport: runs per second\t%.0f\truns/s\n", kFleet / r.seconds);
  std::printf("BENCH\treport: peak memory\t%.1f\tMiB\n", r.peakKiB / 1024.0);
  std::printf("BENCH\treport: grep -rc \"main returned\", same files\t%.2f\ts\n", g.seconds);
  std::printf("BENCH\treport: time against grep\t%.1f\tx\n", r.seconds / g.seconds);
  return 0;
}
