#include "check/package_checker.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

#include "base/firmware_discovery.h"
#include "check/animation_check.h"
#include "check/authenticode.h"
#include "check/force_image_plan.h"
#include "check/package_machine.h"
#include "check/package_manifest.h"
#include "check/pe_reader.h"
#include "base/sha256.h"
#include "check/system_libraries.h"
#include "platform/bridge_library.h"
#include "platform/environment.h"
#include "platform/upgrade_library.h"
#include "touchpad/file_byte_sum.h"

namespace calder::check {

namespace fs = std::filesystem;

namespace {

const char kProgramFile[] = "calder.exe";
const char kAnimationFile[] = "loading_dark.json";
const char kNoticesFile[] = "THIRD-PARTY-NOTICES.txt";
// What Windows would load as a program or library, by the name's extension.
const char* const kPeExtensions[] = {".exe", ".dll"};
// Any folder the program's paths are built under; mapped to the package.
const char kModuleDir[] = "C:\\package";

struct VendorLibrary {
  const wchar_t* file;
  const char* const* entryPoints;
  size_t entryCount;
};

// What only a recorder exports, and the folder its layout keeps the vendor's
// own libraries in.
const char kRecorderExport[] = "calder_recorder";
const char kRecorderVendorFolder[] = "vendor";

const VendorLibrary kVendorLibraries[] = {
    {kUpgradeLibraryFile, kUpgradeLibraryEntryPoints, std::size(kUpgradeLibraryEntryPoints)},
    {kBridgeLibraryFile, kBridgeLibraryEntryPoints, std::size(kBridgeLibraryEntryPoints)},
};

std::string Narrow(const wchar_t* text) {
  std::string out;
  for (; *text != 0; ++text) out += static_cast<char>(*text);
  return out;
}

std::string FolderName(const char* programFolder) { return std::string(programFolder).substr(1); }

// In blocks: a byte at a time costs seconds on a package's DLLs in a sanitizer build.
std::vector<uint8_t> ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<uint8_t> bytes;
  char block[1 << 16];
  while (in.read(block, sizeof block) || in.gcount() > 0) bytes.insert(bytes.end(), block, block + in.gcount());
  return bytes;
}

bool IsPeName(const std::string& path) {
  std::string lower;
  for (const char ch : path) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  return std::any_of(std::begin(kPeExtensions), std::end(kPeExtensions), [&](const char* extension) {
    const std::string ext = extension;
    return lower.size() > ext.size() && lower.compare(lower.size() - ext.size(), ext.size(), ext) == 0;
  });
}

// Every regular file below the folder, as relative paths with forward
// slashes, in byte order.
std::vector<std::string> FilesBelow(const fs::path& dir) {
  std::vector<std::string> paths;
  std::error_code error;
  for (fs::recursive_directory_iterator it(dir, fs::directory_options::skip_permission_denied, error), end;
       !error && it != end; it.increment(error)) {
    std::error_code typeError;
    if (it->is_regular_file(typeError)) paths.push_back(it->path().lexically_relative(dir).generic_u8string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

// Windows finds a file whatever the case of its name.
fs::path FindInPackage(const fs::path& dir, const std::string& name) {
  std::error_code error;
  for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error)) {
    const std::string entry = it->path().filename().string();
    if (SameNameIgnoringCase(entry, name)) return it->path();
  }
  return fs::path();
}

class Checker {
 public:
  Checker(fs::path dir, const CheckOptions& options)
      : dir_(std::move(dir)), options_(options), trust_{options.trusted, options.trustedTsa, options.now},
        machine_(dir_, kModuleDir), env_(MachineEnvironment()), scope_(env_) {}

  PackageReport Run() {
    CheckProgram();
    for (const VendorLibrary& library : kVendorLibraries) {
      const std::string name = Narrow(library.file);
      CheckLibrary(name, std::vector<std::string>(library.entryPoints, library.entryPoints + library.entryCount),
                   " lacks the entry point ", " that calder.exe binds");
    }
    CheckRecorders();
    for (const ImportedLibrary& library : program_.imports) {
      if (IsWindowsSystemLibrary(library.name)) continue;
      CheckLibrary(library.name, library.entries, " does not export ", ", which calder.exe imports from it");
    }
    CheckTouchpad();
    CheckForce();
    const std::string animation = AnimationProblem(FindInPackage(dir_, kAnimationFile));
    if (!animation.empty()) {
      Warn("animation-unusable", kAnimationFile, std::string(kAnimationFile) + " " + animation);
    }
    CheckFiles();
    const fs::path notices = FindInPackage(dir_, kNoticesFile);
    std::error_code error;
    if (!fs::is_regular_file(notices, error) || fs::file_size(notices, error) == 0) {
      Add(ReleaseRule(), "notices-missing", kNoticesFile, std::string(kNoticesFile) + " is missing or empty");
    }
    report_.prediction = PredictUpdate(dir_);
    return std::move(report_);
  }

 private:
  Environment MachineEnvironment() {
    Environment env;
    env.files = &machine_;
    env.process = &machine_;
    return env;
  }

  void Add(Severity severity, const std::string& code, const std::string& path, const std::string& message) {
    report_.findings.push_back({severity, code, path, message});
  }
  void Error(const std::string& code, const std::string& path, const std::string& message) {
    Add(Severity::kError, code, path, message);
  }
  void Warn(const std::string& code, const std::string& path, const std::string& message) {
    Add(Severity::kWarning, code, path, message);
  }
  // What only a release must have.
  Severity ReleaseRule() const { return options_.release ? Severity::kError : Severity::kWarning; }

  void CheckProgram() {
    const fs::path file = FindInPackage(dir_, kProgramFile);
    if (file.empty()) return Error("program-missing", kProgramFile, "calder.exe is missing");
    const std::vector<uint8_t> bytes = ReadAll(file);
    program_ = ReadPeImage(bytes.data(), bytes.size());
    if (!IsWindows64GuiProgram(program_)) {
      Error("program-missing", kProgramFile,
            "calder.exe is not a 64-bit Windows GUI program" +
                (program_.valid ? std::string() : " (" + program_.problem + ")"));
    }
  }

  // A library calder.exe needs beside it, with the names it takes from it.
  void CheckLibrary(const std::string& name, const std::vector<std::string>& entries, const char* lacks,
                    const char* how) {
    const fs::path file = FindInPackage(dir_, name);
    if (file.empty()) return Error("library-missing", name, name + " is missing");
    const std::vector<uint8_t> bytes = ReadAll(file);
    const PeImage image = ReadPeImage(bytes.data(), bytes.size());
    if (!IsWindows64Dll(image)) {
      return Error("library-missing", name, name + " is not a 64-bit Windows DLL" +
                                                (image.valid ? std::string() : " (" + image.problem + ")"));
    }
    for (const std::string& entry : entries) {
      if (!Exports(image, entry)) Error("library-entry-missing", name, name + lacks + entry + how);
    }
  }

  // A recording layout records a laptop's device traffic: never a release.
  void CheckRecorders() {
    for (const VendorLibrary& library : kVendorLibraries) {
      const std::string name = Narrow(library.file);
      const fs::path file = FindInPackage(dir_, name);
      if (file.empty()) continue;
      const std::vector<uint8_t> bytes = ReadAll(file);
      if (Exports(ReadPeImage(bytes.data(), bytes.size()), kRecorderExport)) {
        Error("recorder-present", name, name + " is a recorder (it exports " + kRecorderExport +
                                            "), not the vendor's library");
      }
    }
    if (!FindInPackage(dir_, kRecorderVendorFolder).empty()) {
      Error("recorder-present", kRecorderVendorFolder,
            "the package holds a vendor folder, as a recording layout does");
    }
  }

  // Hashes every shipped file, checks the signature of each program and
  // library, and compares the manifests with what is there.
  void CheckFiles() {
    std::string sums;
    std::string sbom;
    bool haveSums = false;
    bool haveSbom = false;
    std::vector<std::pair<std::string, Signature>> signatures;
    for (const std::string& path : FilesBelow(dir_)) {
      const std::vector<uint8_t> bytes = ReadAll(dir_ / fs::u8path(path));
      if (path == kSumsFile) {
        sums.assign(bytes.begin(), bytes.end());
        haveSums = true;
        continue;
      }
      if (path == kSbomFile) {
        sbom.assign(bytes.begin(), bytes.end());
        haveSbom = true;
      }
      ShippedFile file{path, Sha256Hex(bytes.data(), bytes.size()), false, std::nullopt};
      if (IsPeName(path)) {
        signatures.emplace_back(path, CheckSignature(bytes.data(), bytes.size(), trust_));
        file.isSigned = signatures.back().second.state == SignatureState::kValid;
        file.signature = signatures.back().second.details;
      }
      report_.files.push_back(file);
    }
    std::set<std::string> listedInBoth;
    std::vector<Finding> manifest =
        CheckManifests({haveSums ? &sums : nullptr, haveSbom ? &sbom : nullptr}, report_.files, &listedInBoth);
    for (const auto& [path, signature] : signatures) JudgeSignature(path, signature);
    for (Finding& finding : manifest) {
      if (finding.code == "manifest-missing") finding.severity = ReleaseRule();
    }
    report_.findings.insert(report_.findings.end(), manifest.begin(), manifest.end());
  }

  // The vendor's libraries are signed, if at all, by the vendor: a tested
  // release on the repository's list is vouched for instead. The package's
  // own manifests vouch for nothing: whoever changes a library can list it.
  const VendorRelease* Vouched(const std::string& path) const {
    const bool vendor = std::any_of(std::begin(kVendorLibraries), std::end(kVendorLibraries),
                                    [&](const VendorLibrary& library) {
                                      return SameNameIgnoringCase(path, Narrow(library.file));
                                    });
    if (!vendor) return nullptr;
    for (const ShippedFile& file : report_.files) {
      if (file.path == path) return FindVendorRelease(options_.vendorReleases, path, file.sha256);
    }
    return nullptr;
  }

  void JudgeSignature(const std::string& path, const Signature& signature) {
    const VendorRelease* vouched = Vouched(path);
    const std::string tested =
        vouched == nullptr ? "" : " (a tested vendor release, version " + vouched->version + ")";
    if (signature.state == SignatureState::kUnsigned) {
      Add(vouched ? Severity::kWarning : ReleaseRule(), "unsigned", path,
          path + " carries no Authenticode signature" + tested);
    } else if (signature.state == SignatureState::kInvalid) {
      Error("signature-invalid", path, path + "'s signature does not hold: " + signature.problem);
    } else if (signature.state == SignatureState::kUntrusted) {
      Add(vouched ? Severity::kWarning : Severity::kError, "signer-untrusted", path,
          path + "'s signer is not trusted: " + signature.problem + tested);
    }
  }

  // The file the program takes from a firmware folder, with the findings
  // about the folder itself; "" when there is none.
  std::string FirstFile(const char* programFolder, const std::string& prefix) {
    const std::string folder = FolderName(programFolder);
    const std::vector<std::string> files = machine_.RegularFiles(programFolder);
    const std::string chosen = FindFirstFileInFolder(GetModuleDir() + programFolder);
    if (chosen.empty()) {
      Error(prefix + "-missing", folder, "the " + folder + " folder is missing or holds no file");
      return "";
    }
    const std::string name = chosen.substr(chosen.find_last_of("\\/") + 1);
    if (files.size() > 1) {
      Error(prefix + "-ambiguous", folder,
            "the " + folder + " folder holds " + std::to_string(files.size()) +
                " files; calder.exe takes " + name + " (the first in name order)");
    }
    return chosen;
  }

  void CheckTouchpad() {
    const std::string chosen = FirstFile(kTouchpadFirmwareFolder, "touchpad");
    if (chosen.empty()) return;
    TouchpadSection section;
    section.file = chosen.substr(chosen.find_last_of("\\/") + 1);
    const std::string path = FolderName(kTouchpadFirmwareFolder) + "/" + section.file;
    std::FILE* file = std::fopen(machine_.RealPath(chosen).string().c_str(), "rb");
    if (file != nullptr) {
      const FileSum sum = SumFileBytes(file);
      std::fclose(file);
      section.size = sum.size;
      section.sum = sum.sum;
      // The interpreter compares the chip's checksum with these bits.
      section.checksum16 = sum.sum & 0xFFFF;
    }
    if (section.size == 0) Error("touchpad-empty", path, section.file + " is empty");
    report_.touchpad = section;
  }

  void CheckForce() {
    const std::string chosen = FirstFile(kForceFirmwareFolder, "force");
    if (chosen.empty()) return;
    ForceSection section;
    section.file = chosen.substr(chosen.find_last_of("\\/") + 1);
    const std::string path = FolderName(kForceFirmwareFolder) + "/" + section.file;
    const std::string stem = GetFileStem(chosen);
    if (IsVersionText(stem)) {
      section.version = stem;
    } else {
      Error("force-name-not-a-version", path,
            "the name's stem \"" + stem +
                "\" is not a version as the sensor reports one (four numbers 0-255, "
                "like 1.0.2.3), so the version check after writing can never pass");
    }
    const fs::path real = machine_.RealPath(chosen);
    const ForceImagePlan plan = PlanForceImage(real.string(), stem);
    section.tagged = plan.tagged;
    std::error_code error;
    const uintmax_t fileSize = fs::file_size(real, error);
    if (plan.load == ErrImageSize && plan.tagged && fileSize <= kImageBufferSize) {
      Error("force-image-too-short", path, section.file + " is tagged but shorter than its header");
    } else if (plan.load == ErrImageSize) {
      Error("force-image-too-large", path,
            section.file + " does not fit the loader's " + std::to_string(kImageBufferSize) +
                "-byte image buffer");
    } else if (plan.load != ErrNone) {
      Error("force-missing", path, section.file + " cannot be read");
    } else {
      if (plan.imageSize == 0) Error("force-image-empty", path, section.file + " carries no image");
      section.imageSize = plan.imageSize;
      section.blocks = plan.blocks;
      section.eraseSectors = plan.eraseSectors;
      section.readbackChunks = plan.readbackChunks;
    }
    report_.force = section;
  }

  fs::path dir_;
  const CheckOptions& options_;
  const TrustSettings trust_;
  PeImage program_;
  PackageMachine machine_;
  Environment env_;
  ScopedEnvironment scope_;
  PackageReport report_;
};

}  // namespace

bool PackageReport::Ship() const {
  for (const Finding& finding : findings) {
    if (finding.severity == Severity::kError) return false;
  }
  return true;
}

PackageReport CheckPackage(const fs::path& packageDir, const CheckOptions& options) {
  return Checker(packageDir, options).Run();
}

}  // namespace calder::check
