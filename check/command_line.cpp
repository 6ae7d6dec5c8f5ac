#include "check/command_line.h"

#include <filesystem>
#include <system_error>

#include "check/package_checker.h"
#include "check/report_writer.h"
#include "base/tool_version.h"
#include "check/trust_file.h"

namespace calder::check {

namespace {

const char kUsage[] =
    "usage: calder-check [--json] [--log] [--release] [--trust CERT]... [--trust-tsa CERT]... PACKAGE_DIR\n"
    "       calder-check --help | --version\n";

const char kHelp[] =
    "Checks a release package folder before it ships and predicts what\n"
    "calder.exe --update will do with it.\n"
    "  --json     print one JSON object instead of the report\n"
    "  --log      add the log lines of the predicted run\n"
    "  --release  a release's rules are errors: programs signed, manifests\n"
    "             and notices present; needs --trust\n"
    "  --trust CERT\n"
    "             every signer must chain to this certificate (PEM or DER;\n"
    "             repeat for several)\n"
    "  --trust-tsa CERT\n"
    "             a timestamp's signer may also chain to this certificate\n"
    "  --help     print this help\n"
    "  --version  print the tool version\n"
    "Exit code 0: ready to ship; 1: do not ship; 2: could not check.\n";

CommandOutcome Usage() { return {kExitCouldNotCheck, "", kUsage}; }

}  // namespace

CommandOutcome RunCommand(const std::vector<std::string>& args) {
  bool json = false;
  bool log = false;
  std::string folder;
  bool haveFolder = false;
  CheckOptions options;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--help") return {kExitShip, std::string(kUsage) + kHelp, ""};
    if (arg == "--version") return {kExitShip, std::string("calder-check ") + kToolVersion + "\n", ""};
    if (arg == "--json") {
      json = true;
    } else if (arg == "--log") {
      log = true;
    } else if (arg == "--release") {
      options.release = true;
    } else if (arg == "--trust" || arg == "--trust-tsa") {
      if (++i == args.size()) return Usage();
      if (!ReadTrustFile(args[i], arg == "--trust" ? &options.trusted : &options.trustedTsa)) {
        return {kExitCouldNotCheck, "", "calder-check: cannot read a certificate from " + args[i] + "\n"};
      }
    } else if (arg.empty() || arg[0] == '-' || haveFolder) {
      return Usage();
    } else {
      folder = arg;
      haveFolder = true;
    }
  }
  if (!haveFolder) return Usage();
  // Without a trusted certificate anyone's signature would pass as the release's.
  if (options.release && options.trusted.empty()) {
    return {kExitCouldNotCheck, "", std::string("calder-check: --release needs --trust CERT: without it any signer passes\n") + kUsage};
  }
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error)) {
    return {kExitCouldNotCheck, "", "calder-check: no such folder: " + folder + "\n"};
  }
  const PackageReport report = CheckPackage(folder, options);
  return {report.Ship() ? kExitShip : kExitDoNotShip, json ? JsonReport(report, log) : TextReport(report, log), ""};
}

}  // namespace calder::check
