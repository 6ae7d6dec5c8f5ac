#include "check/trust_file.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>

namespace calder::check {

namespace {

const char kBegin[] = "-----BEGIN CERTIFICATE-----";
const char kEnd[] = "-----END CERTIFICATE-----";
// Anything larger is not a certificate file.
constexpr uintmax_t kMaxFileSize = 1 << 20;

int Base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

// Base64 with line breaks; false on any other character or a bad ending.
bool DecodeBase64(const std::string& text, std::vector<uint8_t>* out) {
  uint32_t bits = 0;
  int count = 0;
  size_t padding = 0;
  for (const char c : text) {
    if (c == '\n' || c == '\r' || c == ' ' || c == '\t') continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const int value = Base64Value(c);
    if (value < 0 || padding > 0) return false;
    bits = bits << 6 | static_cast<uint32_t>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out->push_back(static_cast<uint8_t>(bits >> count));
    }
  }
  return padding <= 2 && count < 6 && !out->empty();
}

bool Add(const std::vector<uint8_t>& der, std::vector<Certificate>* certificates) {
  Certificate certificate;
  if (!ReadCertificate(der.data(), der.size(), &certificate)) return false;
  certificates->push_back(std::move(certificate));
  return true;
}

}  // namespace

bool ReadTrustFile(const std::filesystem::path& path, std::vector<Certificate>* certificates) {
  std::error_code error;
  const uintmax_t size = std::filesystem::file_size(path, error);
  if (error || size == 0 || size > kMaxFileSize) return false;
  std::ifstream in(path, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (!in || text.size() != size) return false;
  if (text.find(kBegin) == std::string::npos) return Add(std::vector<uint8_t>(text.begin(), text.end()), certificates);
  for (size_t at = text.find(kBegin); at != std::string::npos; at = text.find(kBegin, at)) {
    at += sizeof kBegin - 1;
    const size_t end = text.find(kEnd, at);
    std::vector<uint8_t> der;
    if (end == std::string::npos || !DecodeBase64(text.substr(at, end - at), &der) || !Add(der, certificates)) {
      return false;
    }
    at = end;
  }
  return true;
}

}  // namespace calder::check
