// calder-report [--json] [--html FILE] [--gate PERCENT] PATH...: what happened
// on a fleet, from its logs. Exit code 0; 2 when no input could be read or the
// arguments are bad; 3 when the gate fails.
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/tool_version.h"
#include "report/fleet_reader.h"
#include "report/html_page.h"
#include "report/platform_input.h"
#include "report/summary_text.h"

namespace {

constexpr int kDone = 0;
constexpr int kCannotReport = 2;
constexpr int kGateFailed = 3;

const char kUsage[] =
    "usage: calder-report [--json] [--html FILE] [--gate PERCENT] PATH...\n"
    "  PATH          a log file, a folder searched for Calder_*.log, or an .ndjson file\n"
    "                of earlier --json output\n"
    "  --json        one JSON record per run and line instead of the summary\n"
    "  --html FILE   also write the summary as a self-contained page\n"
    "  --gate PERCENT  exit 3 when the update success rate is below PERCENT, no update\n"
    "                run is conclusive, more than 1 % of the inputs could not be read,\n"
    "                or a folder could not be walked to its end (a link not followed)\n"
    "  --help, --version\n";

int BadArguments(const std::string& why) {
  std::fprintf(stderr, "calder-report: %s\n%s", why.c_str(), kUsage);
  return kCannotReport;
}

bool ParsePercent(const std::string& text, double* percent) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *percent);
  return error == std::errc() && end == text.data() + text.size() && *percent >= 0.0 && *percent <= 100.0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args = calder::report::ProgramArguments(argc, argv);
  bool json = false;
  std::string html;
  bool gate = false;
  double gatePercent = 0.0;
  std::vector<std::string> paths;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--help") {
      std::fputs(kUsage, stdout);
      return kDone;
    }
    if (arg == "--version") {
      std::printf("calder-report %s\n", calder::kToolVersion);
      return kDone;
    }
    if (arg == "--json") {
      json = true;
    } else if (arg == "--html" || arg == "--gate") {
      if (i + 1 >= args.size()) return BadArguments(arg + " needs a value");
      const std::string& value = args[++i];
      if (arg == "--html") {
        html = value;
      } else if (!ParsePercent(value, &gatePercent)) {
        return BadArguments("--gate takes a percentage from 0 to 100, not \"" + value + "\"");
      } else {
        gate = true;
      }
    } else if (!arg.empty() && arg[0] == '-') {
      return BadArguments("unknown option " + arg);
    } else {
      paths.push_back(arg);
    }
  }
  if (paths.empty()) return BadArguments("no PATH given");

  const calder::report::FleetRead read = calder::report::ReadFleet(paths, json, stdout, stderr);
  if (read.inputsRead == 0) {
    std::fprintf(stderr, "calder-report: no input could be read\n");
    return kCannotReport;
  }
  const calder::report::FleetSummary& summary = read.summary;
  if (!json) std::fputs(calder::report::SummaryText(summary).c_str(), stdout);
  std::fflush(stdout);
  if (!html.empty()) {
    std::ofstream page(std::filesystem::u8path(html), std::ios::binary | std::ios::trunc);
    page << calder::report::HtmlPage(summary);
    page.close();
    if (!page) {
      std::fprintf(stderr, "calder-report: cannot write %s\n", html.c_str());
      return kCannotReport;
    }
  }
  if (!gate) return kDone;
  switch (summary.Gate(gatePercent)) {
    case calder::report::GateVerdict::kPass:
      return kDone;
    case calder::report::GateVerdict::kFoldersNotSeen:
      // Whatever they hold is unknown, so no proportion can excuse them.
      std::fprintf(stderr, "calder-report: gate failed: %llu folders could not be walked to their end:\n",
                   static_cast<unsigned long long>(summary.foldersNotSeen));
      for (const std::string& folder : summary.unseenFolders) {
        std::fprintf(stderr, "  %s\n", calder::report::ControlsEscaped(folder).c_str());
      }
      break;
    case calder::report::GateVerdict::kNoEvidence:
      std::fprintf(stderr, "calder-report: gate failed: no conclusive update run\n");
      break;
    case calder::report::GateVerdict::kTooManyUnreadable:
      std::fprintf(stderr, "calder-report: gate failed: %llu of %llu inputs could not be read, more than 1 %%\n",
                   static_cast<unsigned long long>(summary.UnreadableInputs()),
                   static_cast<unsigned long long>(summary.Inputs()));
      break;
    case calder::report::GateVerdict::kBelow:
      std::fprintf(stderr, "calder-report: gate failed: success rate %s %% is below %g %%\n",
                   calder::report::RateText(summary).c_str(), gatePercent);
      break;
  }
  return kGateFailed;
}
