#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "base/log.h"
#include "check/command_line.h"
#include "check/force_image_plan.h"
#include "check/log_recorder.h"
#include "check/package_checker.h"
#include "check/package_machine.h"
#include "check/pe_reader.h"
#include "check/report_writer.h"
#include "platform/bridge_library.h"
#include "platform/upgrade_library.h"
#include "tests/host/pe_builder.h"
#include "tests/support/log_capture.h"
#include "tests/support/force_rig.h"

namespace calder::check {
namespace {

namespace fs = std::filesystem;
using test::Bytes;

Bytes Pe(uint16_t characteristics, uint16_t subsystem, const std::vector<std::string>& exports,
         uint16_t machine = 0x8664) {
  test::PeSpec spec;
  spec.characteristics = characteristics;
  spec.subsystem = subsystem;
  spec.exports = exports;
  spec.machine = machine;
  return test::BuildPe(spec);
}

template <size_t N>
std::vector<std::string> Names(const char* const (&table)[N], const std::string& drop = "") {
  std::vector<std::string> names;
  for (const char* name : table) {
    if (name != drop) names.push_back(name);
  }
  return names;
}

Bytes Text(const std::string& text) { return Bytes(text.begin(), text.end()); }

constexpr uint16_t kExe = 0x0022;  // executable, large-address aware
constexpr uint16_t kDll = test::kPeDll;
const std::vector<std::string> kLottieEntries = {"lottie_load", "lottie_render"};

// calder.exe as the release links it: rlottie.dll beside it, the rest from Windows.
Bytes Program() {
  test::PeSpec spec;
  spec.imports = {{"rlottie.dll", kLottieEntries}, {"KERNEL32.dll", {"ExitProcess", "#5"}}};
  return test::BuildPe(spec);
}

// Signing takes a process start; each image is signed once per run.
const Bytes& Signed(const Bytes& image) {
  static std::map<Bytes, Bytes> cache;
  auto it = cache.find(image);
  if (it == cache.end()) it = cache.emplace(image, test::SignPe(image)).first;
  return it->second;
}

// A package as scripts/release makes it: signed programs, notices and both
// manifests over every file.
struct Package {
  Package() : dir(fs::temp_directory_path() / ("calder-check-" + std::to_string(std::random_device{}()))) {
    fs::create_directories(dir / "TP");
    fs::create_directories(dir / "Force");
    Write("calder.exe", Signed(Program()));
    Write("rlottie.dll", Signed(Pe(kDll, 2, kLottieEntries)));
    Write("btl_upgrade.dll", Signed(Pe(kDll, 2, Names(kUpgradeLibraryEntryPoints))));
    Write("btl_hid_transfer.dll", Signed(Pe(kDll, 2, Names(kBridgeLibraryEntryPoints))));
    fs::copy_file(fs::path(CALDER_SOURCE_DIR) / "ui" / "loading_dark.json", dir / "loading_dark.json");
    Write("TP/tp_fw.bin", test::PatternBytes(300, 200));
    Write("Force/1.0.2.3.bin", test::PatternBytes(1000));
    Write("THIRD-PARTY-NOTICES.txt", Bytes(10, 'n'));
    Seal();
  }
  ~Package() { fs::remove_all(dir); }
  void Write(const std::string& name, const Bytes& bytes) const {
    std::ofstream(dir / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  Bytes Read(const std::string& name) const {
    std::ifstream in(dir / name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  void Remove(const std::string& name) const { fs::remove_all(dir / name); }
  // SHA256SUMS and the SBOM over the files as they are now.
  void Seal() const {
    std::vector<std::string> paths;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) {
      const std::string path = entry.path().lexically_relative(dir).generic_string();
      if (entry.is_regular_file() && path != "SHA256SUMS" && path != "calder.cdx.json") paths.push_back(path);
    }
    std::sort(paths.begin(), paths.end());
    std::string sbom = R"({"bomFormat": "CycloneDX", "specVersion": "1.5", "components": [)";
    for (const std::string& path : paths) {
      sbom += std::string(path == paths[0] ? "" : ",") + R"({"type": "file", "name": ")" + path +
              R"(", "hashes": [{"alg": "SHA-256", "content": ")" + test::ReferenceSha256(Read(path)) + "\"}]}";
    }
    Write("calder.cdx.json", Text(sbom + "]}"));
    paths.push_back("calder.cdx.json");
    std::sort(paths.begin(), paths.end());
    std::string sums;
    for (const std::string& path : paths) sums += test::ReferenceSha256(Read(path)) + "  " + path + "\n";
    Write("SHA256SUMS", Text(sums));
  }
  fs::path dir;
};

Bytes Tagged(size_t fileSize) {
  Bytes file = test::PatternBytes(fileSize);
  std::memcpy(file.data() + 24, "AW8680", 6);
  return file;
}

struct FindingCase {
  const char* name;
  std::function<void(const Package&)> breakIt;
  const char* code;  // the one finding expected besides unsigned ones; "" for none
  const char* inMessage;
  bool afterSealing = false;  // breaks the package behind its manifests' back
};

class CheckFindings : public testing::TestWithParam<FindingCase> {
 protected:
  test::LogCapture log;
};

TEST_P(CheckFindings, ReportsExactlyTheFindingOfTheFault) {
  Package package;
  GetParam().breakIt(package);
  if (!GetParam().afterSealing) package.Seal();
  const PackageReport report = CheckPackage(package.dir);
  const std::string code = GetParam().code;
  // A file the case replaces is not signed again.
  std::set<std::string> codes;
  bool explained = code.empty();
  for (const Finding& f : report.findings) {
    if (f.code == "unsigned" && code != "unsigned") continue;
    codes.insert(f.code);
    explained = explained || f.message.find(GetParam().inMessage) != std::string::npos;
    EXPECT_EQ(report.Ship(), f.severity == Severity::kWarning) << f.code;
  }
  ASSERT_EQ(codes, code.empty() ? std::set<std::string>{} : std::set<std::string>{code});
  EXPECT_TRUE(explained) << GetParam().inMessage;
  EXPECT_TRUE(!codes.empty() || report.Ship());
}

const FindingCase kFindingCases[] = {
    {"Good", [](const Package&) {}, "", ""},
    {"RawAtTheLargestSize", [](const Package& p) { p.Write("Force/1.0.2.3.bin", Bytes(49983, 1)); }, "", ""},
    {"NoProgram", [](const Package& p) { p.Remove("calder.exe"); }, "program-missing", "missing"},
    {"ConsoleProgram", [](const Package& p) { p.Write("calder.exe", Pe(kExe, 3, {})); },
     "program-missing", "GUI"},
    {"ProgramIsText", [](const Package& p) { p.Write("calder.exe", Bytes(10, 'M')); },
     "program-missing", "GUI"},
    {"NoUpgradeLibrary", [](const Package& p) { p.Remove("btl_upgrade.dll"); }, "library-missing",
     "btl_upgrade.dll"},
    {"Bridge32Bit",
     [](const Package& p) {
       p.Write("btl_hid_transfer.dll", Pe(kDll, 2, Names(kBridgeLibraryEntryPoints), 0x14C));
     },
     "library-missing", "btl_hid_transfer.dll"},
    {"BridgeIsAProgram",
     [](const Package& p) { p.Write("btl_hid_transfer.dll", Pe(kExe, 2, Names(kBridgeLibraryEntryPoints))); },
     "library-missing", "DLL"},
    {"BridgeLacksAnEntry",
     [](const Package& p) {
       p.Write("btl_hid_transfer.dll", Pe(kDll, 2, Names(kBridgeLibraryEntryPoints, "btl_read_data")));
     },
     "library-entry-missing", "btl_read_data"},
    {"UpgradeLacksAnEntry",
     [](const Package& p) {
       p.Write("btl_upgrade.dll", Pe(kDll, 2, Names(kUpgradeLibraryEntryPoints, "btl_upgrade_deinit")));
     },
     "library-entry-missing", "btl_upgrade_deinit"},
    {"NoTouchpadFolder", [](const Package& p) { p.Remove("TP"); }, "touchpad-missing", "TP"},
    {"TouchpadOnlySubfolder",
     [](const Package& p) { p.Remove("TP/tp_fw.bin"); fs::create_directory(p.dir / "TP" / "old"); },
     "touchpad-missing", "TP"},
    {"TwoTouchpadFiles", [](const Package& p) { p.Write("TP/Z.bin", Bytes(4, 1)); },
     "touchpad-ambiguous", "takes tp_fw.bin"},
    {"TouchpadFileFirstByName", [](const Package& p) { p.Write("TP/b.bin", Bytes(4, 1)); },
     "touchpad-ambiguous", "takes b.bin"},
    {"EmptyTouchpadFile", [](const Package& p) { p.Write("TP/tp_fw.bin", {}); }, "touchpad-empty", "empty"},
    {"NoForceFolder", [](const Package& p) { p.Remove("Force"); }, "force-missing", "Force"},
    {"TwoForceFiles", [](const Package& p) { p.Write("Force/1.0.2.4.bin", Bytes(64, 1)); },
     "force-ambiguous", "takes 1.0.2.3.bin"},
    {"VersionWithPrefix",
     [](const Package& p) { fs::rename(p.dir / "Force/1.0.2.3.bin", p.dir / "Force/v1.0.2.3.bin"); },
     "force-name-not-a-version", "v1.0.2.3"},
    {"VersionWithLeadingZero",
     [](const Package& p) { fs::rename(p.dir / "Force/1.0.2.3.bin", p.dir / "Force/1.0.2.03.bin"); },
     "force-name-not-a-version", "1.0.2.03"},
    {"VersionFieldOver255",
     [](const Package& p) { fs::rename(p.dir / "Force/1.0.2.3.bin", p.dir / "Force/1.0.256.3.bin"); },
     "force-name-not-a-version", "1.0.256.3"},
    {"ThreeFieldVersion",
     [](const Package& p) { fs::rename(p.dir / "Force/1.0.2.3.bin", p.dir / "Force/1.0.2.bin"); },
     "force-name-not-a-version", "1.0.2"},
    {"RawPaddedPastTheBuffer", [](const Package& p) { p.Write("Force/1.0.2.3.bin", Bytes(49984, 1)); },
     "force-image-too-large", "50000"},
    {"TaggedPastTheBuffer", [](const Package& p) { p.Write("Force/1.0.2.3.bin", Tagged(50073)); },
     "force-image-too-large", "50000"},
    {"TaggedShorterThanItsHeader", [](const Package& p) { p.Write("Force/1.0.2.3.bin", Tagged(71)); },
     "force-image-too-short", "header"},
    {"TaggedWithoutImage", [](const Package& p) { p.Write("Force/1.0.2.3.bin", Tagged(72)); },
     "force-image-empty", "no image"},
    {"NoAnimation", [](const Package& p) { p.Remove("loading_dark.json"); }, "animation-unusable", "missing"},
    {"AnimationNotLottie", [](const Package& p) { p.Write("loading_dark.json", Bytes(5, '{')); },
     "animation-unusable", "load"},
    {"NoRlottie", [](const Package& p) { p.Remove("rlottie.dll"); }, "library-missing", "rlottie.dll"},
    {"RlottieLacksAnImport", [](const Package& p) { p.Write("rlottie.dll", Pe(kDll, 2, {"lottie_load"})); },
     "library-entry-missing", "lottie_render, which calder.exe imports"},
    {"UnsignedRlottie", [](const Package& p) { p.Write("rlottie.dll", Pe(kDll, 2, kLottieEntries)); },
     "unsigned", "rlottie.dll"},
    {"OneByteChangedAfterSigning",
     [](const Package& p) {
       Bytes program = p.Read("calder.exe");
       program[0x400] ^= 1;
       p.Write("calder.exe", program);
     },
     "signature-invalid", "changed after signing"},
    {"FileMissingFromTheManifests", [](const Package& p) { p.Write("extra.txt", Text("x")); },
     "manifest-mismatch", "extra.txt is listed in neither", true},
    {"FileChangedAfterSealing", [](const Package& p) { p.Write("THIRD-PARTY-NOTICES.txt", Text("x")); },
     "manifest-mismatch", "another SHA-256", true},
    {"ListedFileAbsent",
     [](const Package& p) { p.Write("SHA256SUMS", Text(std::string(64, 'a') + "  gone.bin\n")); },
     "manifest-mismatch", "gone.bin, which the package does not hold", true},
    {"SumsLineMalformed", [](const Package& p) { p.Write("SHA256SUMS", Text(std::string(64, 'a') + " gone.bin\n")); },
     "manifest-mismatch", "line 1", true},
    {"SbomNotCycloneDx", [](const Package& p) { p.Write("calder.cdx.json", Text(R"({"bomFormat": "SPDX"})")); },
     "manifest-mismatch", "CycloneDX 1.5", true},
    {"OnlyTheSbom", [](const Package& p) { p.Remove("SHA256SUMS"); }, "manifest-missing", "SHA256SUMS", true},
    {"NoNotices", [](const Package& p) { p.Remove("THIRD-PARTY-NOTICES.txt"); }, "notices-missing", "missing"},
};

INSTANTIATE_TEST_SUITE_P(Packages, CheckFindings, testing::ValuesIn(kFindingCases),
                         [](const auto& info) { return std::string(info.param.name); });

struct ImageCase {
  const char* name;
  Bytes file;
  const char* format;
  int imageSize, blocks, eraseSectors, readbackChunks;
};

class CheckForceImage : public testing::TestWithParam<ImageCase> {
 protected:
  test::LogCapture log;
};

TEST_P(CheckForceImage, GivesTheImageAndItsTransferCounts) {
  Package package;
  package.Write("Force/1.0.2.3.bin", GetParam().file);
  const PackageReport report = CheckPackage(package.dir);
  ASSERT_TRUE(report.force.has_value());
  EXPECT_EQ(report.force->tagged ? "tagged" : "raw", std::string(GetParam().format));
  EXPECT_EQ(report.force->version, "1.0.2.3");
  EXPECT_EQ(report.force->imageSize, GetParam().imageSize);
  EXPECT_EQ(report.force->blocks, GetParam().blocks);
  EXPECT_EQ(report.force->eraseSectors, GetParam().eraseSectors);
  EXPECT_EQ(report.force->readbackChunks, GetParam().readbackChunks);
}

const ImageCase kImageCases[] = {
    {"Raw1000", Bytes(1000, 7), "raw", 1024, 16, 3, 26},
    {"RawAligned", Bytes(1024, 7), "raw", 1088, 17, 3, 28},
    {"RawOneByte", Bytes(1, 7), "raw", 64, 1, 1, 2},
    {"Tagged30000", Tagged(30072), "tagged", 30000, 469, 59, 750},
    {"TaggedAtTheBuffer", Tagged(50072), "tagged", 50000, 782, 98, 1250},
};

INSTANTIATE_TEST_SUITE_P(Files, CheckForceImage, testing::ValuesIn(kImageCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CheckTouchpad, GivesSizeSumAndTheLow16BitsTheInterpreterCompares) {
  test::LogCapture log;
  Package package;
  package.Write("TP/tp_fw.bin", Bytes(300, 0xFF));
  const PackageReport report = CheckPackage(package.dir);
  ASSERT_TRUE(report.touchpad.has_value());
  EXPECT_EQ(report.touchpad->file, "tp_fw.bin");
  EXPECT_EQ(report.touchpad->size, 300);
  EXPECT_EQ(report.touchpad->sum, 76500u);
  EXPECT_EQ(report.touchpad->checksum16, 10964u);
}

TEST(CheckPrediction, GoodPackageUpdatesAndAWrongNameFailsAfterThreeWrites) {
  test::LogCapture log;
  Package package;
  const UpdatePrediction good = CheckPackage(package.dir).prediction;
  EXPECT_EQ(good.result, 0);
  ASSERT_TRUE(good.forcePhaseRan);
  EXPECT_GE(good.updateMs, good.forcePhaseMs + 3000);
  EXPECT_TRUE(std::any_of(good.log.begin(), good.log.end(), [](const std::string& l) {
    return l.rfind("INFO calder.cpp ", 0) == 0 && l.find(": force update success") != std::string::npos;
  }));
  // A laptop as installed: nothing refused, nothing failed.
  EXPECT_EQ(std::count_if(good.log.begin(), good.log.end(),
                          [](const std::string& l) { return l.rfind("ERROR", 0) == 0; }),
            0);

  fs::rename(package.dir / "Force/1.0.2.3.bin", package.dir / "Force/v1.0.2.3.bin");
  const UpdatePrediction wrong = CheckPackage(package.dir).prediction;
  EXPECT_EQ(wrong.result, 1);
  EXPECT_GT(wrong.forcePhaseMs, 2 * good.forcePhaseMs);
  EXPECT_EQ(std::count_if(wrong.log.begin(), wrong.log.end(),
                          [](const std::string& l) { return l.find("update failed:") != std::string::npos; }),
            3);

  package.Write("TP/tp_fw.bin", {});
  const UpdatePrediction noTouchpad = CheckPackage(package.dir).prediction;
  EXPECT_EQ(noTouchpad.result, 1);
  EXPECT_FALSE(noTouchpad.forcePhaseRan);
}

TEST(CheckNames, CaseOrdersOnlyOtherwiseEqualNamesAndVersionFieldsStopAt255) {
  EXPECT_TRUE(NtfsNameLess("A.bin", "a.bin"));
  EXPECT_FALSE(NtfsNameLess("a.bin", "A.bin"));
  std::array<uint8_t, 4> bytes{};
  EXPECT_FALSE(VersionBytesOf("1.0.256.3", &bytes));
}

TEST(CheckReport, JsonCarriesNumbersAsNumbersAndMissingSectionsAsNull) {
  test::LogCapture log;
  Package package;
  package.Remove("TP");
  const std::string json = JsonReport(CheckPackage(package.dir), false);
  EXPECT_NE(json.find("\"verdict\": \"do-not-ship\""), std::string::npos);
  EXPECT_NE(json.find("\"touchpad\": null"), std::string::npos);
  EXPECT_NE(json.find("\"file\": \"1.0.2.3.bin\", \"version\": \"1.0.2.3\", \"format\": \"raw\", "
                      "\"image_size\": 1024, \"blocks\": 16"),
            std::string::npos);
  EXPECT_NE(json.find("\"force_phase_seconds\": null"), std::string::npos);
  EXPECT_NE(json.find("\"update_seconds\": 3.000}"), std::string::npos);
  // Quotes, backslashes and control characters are escaped; a blank, DEL
  // and UTF-8 are not.
  PackageReport odd;
  odd.findings.push_back({Severity::kWarning, "c", "a\"\\\x1f \x7f\xc3\xa9\n", "m"});
  EXPECT_NE(JsonReport(odd, false).find("\"path\": \"a\\\"\\\\\\u001f \x7f\xc3\xa9\\u000a\""), std::string::npos);
}

TEST(CheckFiles, AGoodPackageShipsWithoutFindingsAndListsEveryFileWithItsHash) {
  test::LogCapture log;
  Package package;
  const PackageReport report = CheckPackage(package.dir);
  EXPECT_TRUE(report.findings.empty());
  const std::string json = JsonReport(report, false);
  std::vector<std::string> paths;
  for (const ShippedFile& file : report.files) {
    paths.push_back(file.path);
    const std::string ext = file.path.substr(file.path.size() - 4);
    EXPECT_NE(json.find("{\"path\": \"" + file.path + "\", \"sha256\": \"" +
                        test::ReferenceSha256(package.Read(file.path)) + "\", \"signed\": " +
                        (ext == ".exe" || ext == ".dll" ? "true}" : "false}")),
              std::string::npos)
        << file.path;
  }
  EXPECT_EQ(paths, (std::vector<std::string>{"Force/1.0.2.3.bin", "THIRD-PARTY-NOTICES.txt", "TP/tp_fw.bin",
                                             "btl_hid_transfer.dll", "btl_upgrade.dll", "calder.cdx.json",
                                             "calder.exe", "loading_dark.json", "rlottie.dll"}));
}

struct CommandCase {
  const char* name;
  std::vector<std::string> args;  // "DIR" stands for a good package
  int exitCode;
  const char* out;  // what standard output holds; "" when it must be empty
  const char* err;
};

class CheckCommandLine : public testing::TestWithParam<CommandCase> {
 protected:
  test::LogCapture log;
  Package package;
};

TEST_P(CheckCommandLine, AnswersOnTheRightStreamWithTheRightExitCode) {
  std::vector<std::string> args;
  for (const std::string& arg : GetParam().args) {
    args.push_back(arg.rfind("DIR", 0) == 0 ? package.dir.string() + arg.substr(3) : arg);
  }
  const CommandOutcome outcome = RunCommand(args);
  EXPECT_EQ(outcome.exitCode, GetParam().exitCode);
  for (const auto& [stream, expected] : {std::pair(outcome.out, GetParam().out), std::pair(outcome.err, GetParam().err)}) {
    EXPECT_TRUE(*expected == 0 ? stream.empty() : stream.find(expected) != std::string::npos) << stream;
  }
}

const CommandCase kCommandCases[] = {
    {"Nothing", {}, 2, "", "usage: calder-check [--json] [--log] PACKAGE_DIR\n"},
    {"Help", {"--help"}, 0, "usage: calder-check [--json] [--log] PACKAGE_DIR\n", ""},
    {"HelpAfterAnOption", {"--json", "--help"}, 0, "usage:", ""},
    {"Version", {"--version"}, 0, "calder-check 20260422-01\n", ""},
    {"Text", {"DIR"}, 0, "verdict:    ship\n", ""},
    {"TextWithLog", {"--log", "DIR"}, 0, "log of the predicted run:", ""},
    {"Json", {"--json", "DIR"}, 0, "{\"verdict\": \"ship\"", ""},
    {"JsonWithLog", {"DIR", "--log", "--json"}, 0, "\"log\": [", ""},
    {"DoNotShip", {"DIR/TP"}, 1, "verdict:    do-not-ship\n", ""},
    {"UnknownOption", {"--jsn", "DIR"}, 2, "", "usage:"},
    {"TwoFolders", {"DIR", "DIR"}, 2, "", "usage:"},
    {"EmptyArgument", {""}, 2, "", "usage:"},
    {"NoSuchFolder", {"DIR/none"}, 2, "", "no such folder"},
};

INSTANTIATE_TEST_SUITE_P(Arguments, CheckCommandLine, testing::ValuesIn(kCommandCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CheckLogRecorder, KeepsTheLinesWhileItLivesAndGivesTheLoggerItsSettingsBack) {
  el::Logger* logger = el::Loggers::getLogger("default");
  const el::Configurations saved = *logger->configurations();
  el::Configurations off;
  off.setGlobally(el::ConfigurationType::Enabled, "false");
  el::Loggers::reconfigureLogger(logger, off);
  std::vector<std::string> lines;
  {
    LogRecorder recorder;
    LOG(INFO) << "recorded";
    lines = recorder.Lines();
  }
  const bool enabledAfter = logger->typedConfigurations()->enabled(el::Level::Info);
  el::Loggers::reconfigureLogger(logger, saved);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("INFO check_package_test.cpp ", 0), 0u) << lines[0];
  EXPECT_NE(lines[0].find(": recorded"), std::string::npos);
  EXPECT_FALSE(enabledAfter);
}

}  // namespace
}  // namespace calder::check
