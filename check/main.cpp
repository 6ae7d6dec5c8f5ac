// calder-check [--json] [--log] PACKAGE_DIR: checks a release package before
// it ships. Exit code 0 ready to ship, 1 do not ship, 2 could not check.
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

#include "check/log_recorder.h"
#include "check/package_checker.h"
#include "check/report_writer.h"

namespace {

constexpr int kShip = 0;
constexpr int kDoNotShip = 1;
constexpr int kCouldNotCheck = 2;

int Usage() {
  std::fprintf(stderr, "usage: calder-check [--json] [--log] PACKAGE_DIR\n");
  return kCouldNotCheck;
}

}  // namespace

int main(int argc, char** argv) {
  bool json = false;
  bool log = false;
  std::string folder;
  bool haveFolder = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--json") {
      json = true;
    } else if (arg == "--log") {
      log = true;
    } else if (arg.empty() || arg[0] == '-' || haveFolder) {
      return Usage();
    } else {
      folder = arg;
      haveFolder = true;
    }
  }
  if (!haveFolder) return Usage();
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error)) {
    std::fprintf(stderr, "calder-check: no such folder: %s\n", folder.c_str());
    return kCouldNotCheck;
  }
  calder::check::SilenceProgramLog();
  const calder::check::PackageReport report = calder::check::CheckPackage(folder);
  const std::string text = json ? calder::check::JsonReport(report, log)
                                : calder::check::TextReport(report, log);
  std::fputs(text.c_str(), stdout);
  return report.Ship() ? kShip : kDoNotShip;
}
