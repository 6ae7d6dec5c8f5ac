#include "tests/host/pe_builder.h"

#include <openssl/evp.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

namespace calder::test {

namespace fs = std::filesystem;

void PutLe(Bytes& b, size_t at, uint32_t value, int width) {
  if (b.size() < at + width) b.resize(at + width);
  for (int i = 0; i < width; ++i) b[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

namespace {

void Append(Bytes& b, const std::string& text) {
  b.insert(b.end(), text.begin(), text.end());
  b.push_back(0);
}

uint32_t Rva(const Bytes& data) { return static_cast<uint32_t>(kPeDataRva + data.size()); }

Bytes DataSection(const PeSpec& spec, uint32_t* importRva) {
  const bool wide = spec.magic == 0x20B;
  const size_t width = wide ? 8 : 4;
  Bytes d(40);
  PutLe(d, 24, static_cast<uint32_t>(spec.exports.size()), 4);
  PutLe(d, 32, kPeDataRva + 40, 4);
  d.resize(40 + 4 * spec.exports.size());
  for (size_t i = 0; i < spec.exports.size(); ++i) {
    PutLe(d, 40 + 4 * i, Rva(d), 4);
    Append(d, spec.exports[i]);
  }
  const size_t descriptors = d.size();
  *importRva = Rva(d);
  d.resize(descriptors + 20 * (spec.imports.size() + 1));
  for (size_t j = 0; j < spec.imports.size(); ++j) {
    const auto& [library, entries] = spec.imports[j];
    const size_t lookup = d.size();
    d.resize(lookup + width * (entries.size() + 1));
    for (size_t k = 0; k < entries.size(); ++k) {
      const size_t at = lookup + width * k;
      if (entries[k][0] == '#') {
        const uint32_t ordinal = static_cast<uint32_t>(std::stoul(entries[k].substr(1)));
        PutLe(d, at, wide ? ordinal : ordinal | 0x80000000u, 4);
        if (wide) PutLe(d, at + 4, 0x80000000u, 4);
      } else {
        PutLe(d, at, Rva(d), 4);
        d.insert(d.end(), {0, 0});  // hint
        Append(d, entries[k]);
      }
    }
    PutLe(d, descriptors + 20 * j, kPeDataRva + static_cast<uint32_t>(lookup), 4);
    PutLe(d, descriptors + 20 * j + 16, kPeDataRva + static_cast<uint32_t>(lookup), 4);
    PutLe(d, descriptors + 20 * j + 12, Rva(d), 4);
    Append(d, library);
  }
  d.resize(d.size() + spec.zeroPadding);
  return d;
}

}  // namespace

Bytes BuildPe(const PeSpec& spec) {
  uint32_t importRva = 0;
  const Bytes data = DataSection(spec, &importRva);
  Bytes b(0x400);
  PutLe(b, 0, 0x5A4D, 2);
  PutLe(b, 0x3C, 0x40, 4);
  PutLe(b, 0x40, 0x4550, 4);
  PutLe(b, 0x44, spec.machine, 2);
  PutLe(b, 0x46, 2, 2);  // sections
  PutLe(b, 0x54, spec.optionalSize, 2);
  PutLe(b, 0x56, spec.characteristics, 2);
  const size_t optional = 0x58;
  PutLe(b, optional, spec.magic, 2);
  PutLe(b, optional + 68, spec.subsystem, 2);
  const size_t countAt = optional + (spec.magic == 0x20B ? 108 : 92);
  const uint32_t entries[2] = {spec.exportRva != 0 ? spec.exportRva : kPeDataRva, importRva};
  if (countAt + 4 <= optional + spec.optionalSize) PutLe(b, countAt, spec.directories, 4);
  for (size_t i = 0; i < 2; ++i) {
    if (countAt + 12 + 8 * i <= optional + spec.optionalSize) PutLe(b, countAt + 4 + 8 * i, entries[i], 4);
  }
  const size_t sections = optional + spec.optionalSize;
  PutLe(b, sections + 8, 0x1000, 4);  // the first: virtual only, 0x1000 to 0x2000
  PutLe(b, sections + 12, 0x1000, 4);
  PutLe(b, sections + 40 + 8, static_cast<uint32_t>(data.size() + spec.virtualExtra), 4);
  PutLe(b, sections + 40 + 12, kPeDataRva, 4);
  PutLe(b, sections + 40 + 16, static_cast<uint32_t>(data.size()), 4);
  PutLe(b, sections + 40 + 20, 0x400, 4);
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

namespace {

// A throwaway signing key and certificate, removed when the tests end.
struct SigningKey {
  SigningKey() : dir(fs::temp_directory_path() / ("calder-sign-" + std::to_string(std::random_device{}()))) {
    made = fs::create_directories(dir) &&
           std::system(("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=calder-test -keyout '" +
                        (dir / "key.pem").string() + "' -out '" + (dir / "cert.pem").string() + "' 2>/dev/null")
                           .c_str()) == 0;
  }
  ~SigningKey() { fs::remove_all(dir); }
  fs::path dir;
  bool made = false;
};

}  // namespace

Bytes SignPe(const Bytes& image, const char* hash) {
  static const SigningKey key;
  const fs::path& dir = key.dir;
  const fs::path in = dir / "in.exe";
  const fs::path out = dir / "out.exe";
  std::ofstream(in, std::ios::binary).write(reinterpret_cast<const char*>(image.data()),
                                            static_cast<std::streamsize>(image.size()));
  fs::remove(out);
  const std::string command = "osslsigncode sign -h " + std::string(hash) + " -certs '" +
                              (dir / "cert.pem").string() + "' -key '" + (dir / "key.pem").string() +
                              "' -in '" + in.string() + "' -out '" + out.string() + "' >/dev/null 2>&1";
  if (!key.made || std::system(command.c_str()) != 0) return {};
  std::ifstream signedFile(out, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(signedFile), std::istreambuf_iterator<char>());
}

std::string ReferenceSha256(const Bytes& bytes) {
  uint8_t digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr);
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < size; ++i) hex += {kDigits[digest[i] >> 4], kDigits[digest[i] & 0xF]};
  return hex;
}

}  // namespace calder::test
