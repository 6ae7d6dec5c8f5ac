#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "check/authenticode.h"
#include "check/update_prediction.h"

namespace calder::check {

enum class Severity { kError, kWarning };

struct Finding {
  Severity severity = Severity::kError;
  std::string code;  // stable, for release CI
  std::string path;  // inside the package
  std::string message;
};

// The numbers the touchpad interpreter will compare after the upgrade.
struct TouchpadSection {
  std::string file;
  int64_t size = 0;
  uint32_t sum = 0;
  uint32_t checksum16 = 0;
};

// The force image as the loader builds it; the counts are absent when the
// loader refuses the file.
struct ForceSection {
  std::string file;
  std::optional<std::string> version;
  bool tagged = false;
  std::optional<int> imageSize;
  std::optional<int> blocks;
  std::optional<int> eraseSectors;
  std::optional<int> readbackChunks;
};

// One file as it ships: every regular file but SHA256SUMS.
struct ShippedFile {
  std::string path;  // relative, forward slashes
  std::string sha256;
  bool isSigned = false;  // a PE file whose signature still matches it
  std::optional<SignatureDetails> signature;  // once its signer's signature verified
};

struct PackageReport {
  std::vector<Finding> findings;
  std::vector<ShippedFile> files;  // sorted by path
  std::optional<TouchpadSection> touchpad;
  std::optional<ForceSection> force;
  UpdatePrediction prediction;

  bool Ship() const;
};

}  // namespace calder::check
