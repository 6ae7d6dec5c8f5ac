#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "check/force_image_plan.h"
#include "check/package_checker.h"
#include "check/package_machine.h"
#include "check/pe_reader.h"
#include "check/report_writer.h"
#include "platform/bridge_library.h"
#include "platform/upgrade_library.h"
#include "tests/support/log_capture.h"
#include "tests/support/force_rig.h"

namespace calder::check {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

void Put(Bytes& b, size_t at, uint32_t value, int width) {
  if (b.size() < at + width) b.resize(at + width);
  for (int i = 0; i < width; ++i) b[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

// A PE32+ image with one section that holds the export directory and names.
Bytes Pe(uint16_t characteristics, uint16_t subsystem, const std::vector<std::string>& exports,
         uint16_t machine = 0x8664) {
  Bytes b(0x200);
  Put(b, 0, 0x5A4D, 2);
  Put(b, 0x3C, 0x40, 4);
  Put(b, 0x40, 0x4550, 4);
  Put(b, 0x44, machine, 2);
  Put(b, 0x46, 1, 2);           // sections
  Put(b, 0x54, 240, 2);         // optional header size
  Put(b, 0x56, characteristics, 2);
  Put(b, 0x58, 0x20B, 2);
  Put(b, 0x58 + 68, subsystem, 2);
  Put(b, 0x58 + 108, 16, 4);    // data directories
  Put(b, 0x58 + 112, 0x1000, 4);  // export directory RVA
  Bytes data(40 + 4 * exports.size());
  Put(data, 24, static_cast<uint32_t>(exports.size()), 4);
  Put(data, 32, 0x1000 + 40, 4);
  for (size_t i = 0; i < exports.size(); ++i) {
    Put(data, 40 + 4 * i, static_cast<uint32_t>(0x1000 + data.size()), 4);
    data.insert(data.end(), exports[i].begin(), exports[i].end());
    data.push_back(0);
  }
  const size_t section = 0x58 + 240;
  Put(b, section + 8, static_cast<uint32_t>(data.size()), 4);
  Put(b, section + 12, 0x1000, 4);
  Put(b, section + 16, static_cast<uint32_t>(data.size()), 4);
  Put(b, section + 20, 0x200, 4);
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

template <size_t N>
std::vector<std::string> Names(const char* const (&table)[N], const std::string& drop = "") {
  std::vector<std::string> names;
  for (const char* name : table) {
    if (name != drop) names.push_back(name);
  }
  return names;
}

constexpr uint16_t kExe = 0x0022;  // executable, large-address aware
constexpr uint16_t kDll = 0x2022;

struct Package {
  Package() : dir(fs::temp_directory_path() / ("calder-check-" + std::to_string(std::random_device{}()))) {
    fs::create_directories(dir / "TP");
    fs::create_directories(dir / "Force");
    Write("calder.exe", Pe(kExe, 2, {}));
    Write("btl_upgrade.dll", Pe(kDll, 2, Names(kUpgradeLibraryEntryPoints)));
    Write("btl_hid_transfer.dll", Pe(kDll, 2, Names(kBridgeLibraryEntryPoints)));
    fs::copy_file(fs::path(CALDER_SOURCE_DIR) / "ui" / "loading_dark.json", dir / "loading_dark.json");
    Write("TP/tp_fw.bin", test::PatternBytes(300, 200));
    Write("Force/1.0.2.3.bin", test::PatternBytes(1000));
  }
  ~Package() { fs::remove_all(dir); }
  void Write(const std::string& name, const Bytes& bytes) const {
    std::ofstream(dir / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  void Remove(const std::string& name) const { fs::remove_all(dir / name); }
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
  const char* code;  // the one finding expected; "" for none
  const char* inMessage;
};

class CheckFindings : public testing::TestWithParam<FindingCase> {
 protected:
  test::LogCapture log;
};

TEST_P(CheckFindings, ReportsExactlyTheFindingOfTheFault) {
  Package package;
  GetParam().breakIt(package);
  const PackageReport report = CheckPackage(package.dir);
  std::vector<std::string> codes;
  for (const Finding& f : report.findings) codes.push_back(f.code);
  const std::string code = GetParam().code;
  ASSERT_EQ(codes, code.empty() ? std::vector<std::string>{} : std::vector<std::string>{code});
  if (!code.empty()) {
    EXPECT_NE(report.findings[0].message.find(GetParam().inMessage), std::string::npos)
        << report.findings[0].message;
  }
  const bool warningOnly = code.empty() || report.findings[0].severity == Severity::kWarning;
  EXPECT_EQ(report.Ship(), warningOnly);
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
  PackageReport odd;  // quotes, backslashes and control characters are escaped
  odd.findings.push_back({Severity::kWarning, "c", "a\"\\\x1f", "m"});
  EXPECT_NE(JsonReport(odd, false).find(R"("path": "a\"\\\u001f")"), std::string::npos);
}

}  // namespace
}  // namespace calder::check
