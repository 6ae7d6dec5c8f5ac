#include "check/package_manifest.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <set>
#include <utility>

namespace calder::check {

const char kSumsFile[] = "SHA256SUMS";
const char kSbomFile[] = "calder.cdx.json";

namespace {

constexpr size_t kHexDigits = 64;

// (path, SHA-256 in lower case) as one manifest lists them.
using Listing = std::vector<std::pair<std::string, std::string>>;

bool IsSha256Hex(const std::string& text) {
  return text.size() == kHexDigits &&
         std::all_of(text.begin(), text.end(), [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

Finding Mismatch(const std::string& path, const std::string& message) {
  return {Severity::kError, "manifest-mismatch", path, message};
}

// sha256sum's lines: 64 hex digits, a blank, a blank or '*', the path.
Listing ReadSums(const std::string& text, std::vector<Finding>* findings) {
  Listing listing;
  size_t lineNumber = 0;
  for (size_t start = 0; start < text.size();) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    start = end + 1;
    ++lineNumber;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    const std::string hex = line.substr(0, kHexDigits);
    if (line.size() <= kHexDigits + 2 || !IsSha256Hex(hex) || line[kHexDigits] != ' ' ||
        (line[kHexDigits + 1] != ' ' && line[kHexDigits + 1] != '*')) {
      findings->push_back(Mismatch(kSumsFile, std::string(kSumsFile) + " line " + std::to_string(lineNumber) +
                                                  " is not \"<SHA-256>  <path>\""));
      continue;
    }
    listing.emplace_back(line.substr(kHexDigits + 2), Lower(hex));
  }
  return listing;
}

using Json = nlohmann::json;

// The member's value, or null when the object lacks it or is no object.
const Json* Member(const Json& object, const char* name) {
  if (!object.is_object()) return nullptr;
  const auto it = object.find(name);
  return it == object.end() ? nullptr : &*it;
}

bool IsText(const Json* value, const char* text) {
  return value != nullptr && value->is_string() && value->get_ref<const std::string&>() == text;
}

// The SHA-256 a component's hashes give, or "".
std::string ComponentSha256(const Json& component) {
  const Json* hashes = Member(component, "hashes");
  if (hashes == nullptr || !hashes->is_array()) return "";
  for (const Json& hash : *hashes) {
    const Json* content = Member(hash, "content");
    if (IsText(Member(hash, "alg"), "SHA-256") && content != nullptr && content->is_string() &&
        IsSha256Hex(content->get_ref<const std::string&>())) {
      return Lower(content->get_ref<const std::string&>());
    }
  }
  return "";
}

// The top-level components: one per shipped file, named by its path.
Listing ReadSbom(const std::string& text, std::vector<Finding>* findings) {
  Listing listing;
  // Without exceptions: a document that does not parse comes back discarded.
  const Json document = Json::parse(text, nullptr, false);
  if (document.is_discarded() || !IsText(Member(document, "bomFormat"), "CycloneDX") ||
      !IsText(Member(document, "specVersion"), "1.5")) {
    findings->push_back(Mismatch(kSbomFile, std::string(kSbomFile) + " is not a CycloneDX 1.5 JSON document"));
    return listing;
  }
  const Json* components = Member(document, "components");
  if (components == nullptr || !components->is_array()) return listing;
  for (const Json& component : *components) {
    const Json* name = Member(component, "name");
    if (name == nullptr || !name->is_string()) {
      findings->push_back(Mismatch(kSbomFile, std::string(kSbomFile) + " has a component without a name"));
      continue;
    }
    const std::string& path = name->get_ref<const std::string&>();
    const std::string sha256 = ComponentSha256(component);
    if (sha256.empty()) {
      findings->push_back(Mismatch(path, std::string(kSbomFile) + " lists " + path + " without its SHA-256"));
      continue;
    }
    listing.emplace_back(path, sha256);
  }
  return listing;
}

// The files the listing gives with their own SHA-256.
std::set<std::string> Compare(const char* manifest, const Listing& listing, const std::vector<ShippedFile>& files,
                              std::set<std::string>* listed, std::vector<Finding>* findings) {
  std::set<std::string> matching;
  for (const auto& [path, sha256] : listing) {
    const ShippedFile* file = nullptr;
    for (const ShippedFile& f : files) {
      if (f.path == path) file = &f;
    }
    if (file == nullptr) {
      findings->push_back(Mismatch(path, std::string(manifest) + " lists " + path + ", which the package does not hold"));
    } else if (file->sha256 != sha256) {
      findings->push_back(Mismatch(path, std::string(manifest) + " gives " + path +
                                             " another SHA-256 than the file has"));
    } else {
      matching.insert(path);
    }
    listed->insert(path);
  }
  return matching;
}

}  // namespace

std::vector<Finding> CheckManifests(const Manifests& manifests, const std::vector<ShippedFile>& files,
                                    std::set<std::string>* listedInBoth) {
  std::vector<Finding> findings;
  std::set<std::string> listed, inSums, inSbom;
  if (manifests.sums == nullptr) {
    findings.push_back({Severity::kWarning, "manifest-missing", kSumsFile, std::string(kSumsFile) + " is missing"});
  } else {
    inSums = Compare(kSumsFile, ReadSums(*manifests.sums, &findings), files, &listed, &findings);
  }
  if (manifests.sbom == nullptr) {
    findings.push_back({Severity::kWarning, "manifest-missing", kSbomFile, std::string(kSbomFile) + " is missing"});
  } else {
    inSbom = Compare(kSbomFile, ReadSbom(*manifests.sbom, &findings), files, &listed, &findings);
    // The SBOM cannot list itself; only SHA256SUMS can.
    if (manifests.sums == nullptr) listed.insert(kSbomFile);
  }
  for (const std::string& path : inSums) {
    if (listedInBoth != nullptr && inSbom.count(path) != 0) listedInBoth->insert(path);
  }
  if (manifests.sums == nullptr && manifests.sbom == nullptr) return findings;
  for (const ShippedFile& file : files) {
    if (listed.count(file.path) == 0) {
      findings.push_back(Mismatch(file.path, file.path + " is listed in neither " + kSumsFile + " nor " + kSbomFile));
    }
  }
  return findings;
}

}  // namespace calder::check
