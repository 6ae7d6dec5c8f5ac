#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "base/log.h"
#include "check/authenticode.h"
#include "check/command_line.h"
#include "check/crypto.h"
#include "check/der_reader.h"
#include "check/force_image_plan.h"
#include "check/log_recorder.h"
#include "check/package_checker.h"
#include "check/package_machine.h"
#include "check/pe_reader.h"
#include "check/report_writer.h"
#include "base/sha256.h"
#include "check/trust_file.h"
#include "platform/bridge_library.h"
#include "platform/upgrade_library.h"
#include "tests/support/force_rig.h"
#include "tests/support/log_capture.h"

namespace calder::check {

// Test images and references, made here so no binary comes from elsewhere.
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

// A PE image: the headers at 0, an empty first section spanning RVAs 0x1000
// to 0x2000, and a data section at RVA 0x2000 (file offset 0x400) with the
// export directory, then the imports.
struct PeLayout {
  uint16_t machine = 0x8664;
  uint16_t characteristics = 0x0022;  // executable, large-address aware
  uint16_t subsystem = 2;
  uint16_t magic = 0x20B;
  uint16_t optionalSize = 240;
  uint32_t directories = 16;
  std::vector<std::string> exports;
  std::vector<std::pair<std::string, std::vector<std::string>>> imports;  // "#N": ordinal N
  size_t zeroPadding = 0;     // zero bytes closing the data section
  uint32_t exportRva = 0;     // where the export entry points, when not 0
  uint32_t virtualExtra = 0;  // virtual size beyond the raw data
};

constexpr uint32_t kPeDataRva = 0x2000;
constexpr uint16_t kPeDll = 0x2022;

void PutLe(Bytes& b, size_t at, uint32_t value, int width) {
  if (b.size() < at + width) b.resize(at + width);
  for (int i = 0; i < width; ++i) b[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

// Appends a NUL-terminated name and gives its RVA.
uint32_t AddName(Bytes& d, const std::string& name, bool hint = false) {
  const uint32_t rva = static_cast<uint32_t>(kPeDataRva + d.size());
  if (hint) d.insert(d.end(), {0, 0});
  d.insert(d.end(), name.begin(), name.end());
  d.push_back(0);
  return rva;
}

Bytes DataSection(const PeLayout& layout, uint32_t* importRva) {
  const size_t width = layout.magic == 0x20B ? 8 : 4;
  Bytes d(40 + 4 * layout.exports.size());
  PutLe(d, 24, static_cast<uint32_t>(layout.exports.size()), 4);
  PutLe(d, 32, kPeDataRva + 40, 4);
  for (size_t i = 0; i < layout.exports.size(); ++i) PutLe(d, 40 + 4 * i, AddName(d, layout.exports[i]), 4);
  const size_t descriptors = d.size();
  *importRva = static_cast<uint32_t>(kPeDataRva + descriptors);
  d.resize(descriptors + 20 * (layout.imports.size() + 1));
  for (size_t j = 0; j < layout.imports.size(); ++j) {
    const auto& [library, entries] = layout.imports[j];
    const size_t lookup = d.size();
    d.resize(lookup + width * (entries.size() + 1));
    for (size_t k = 0; k < entries.size(); ++k) {
      const bool ordinal = entries[k][0] == '#';
      const uint32_t value = ordinal ? static_cast<uint32_t>(std::stoul(entries[k].substr(1))) : AddName(d, entries[k], true);
      PutLe(d, lookup + width * k, ordinal && width == 4 ? value | 0x80000000u : value, 4);
      if (ordinal && width == 8) PutLe(d, lookup + width * k + 4, 0x80000000u, 4);
    }
    for (const size_t field : {0, 16}) PutLe(d, descriptors + 20 * j + field, kPeDataRva + static_cast<uint32_t>(lookup), 4);
    PutLe(d, descriptors + 20 * j + 12, AddName(d, library), 4);
  }
  d.resize(d.size() + layout.zeroPadding);
  return d;
}

Bytes BuildPe(const PeLayout& layout) {
  uint32_t importRva = 0;
  const Bytes data = DataSection(layout, &importRva);
  const size_t optional = 0x58;
  const size_t headerEnd = optional + layout.optionalSize;
  const size_t countAt = optional + (layout.magic == 0x20B ? 108 : 92);
  Bytes b(0x400);
  // Offset, value, width.
  const std::tuple<size_t, uint32_t, int> fields[] = {
      {0, 0x5A4D, 2}, {0x3C, 0x40, 4}, {0x40, 0x4550, 4}, {0x44, layout.machine, 2}, {0x46, 2, 2},
      {0x54, layout.optionalSize, 2}, {0x56, layout.characteristics, 2}, {optional, layout.magic, 2},
      {optional + 68, layout.subsystem, 2}, {headerEnd + 8, 0x1000, 4}, {headerEnd + 12, 0x1000, 4},
      {headerEnd + 48, static_cast<uint32_t>(data.size() + layout.virtualExtra), 4}, {headerEnd + 52, kPeDataRva, 4},
      {headerEnd + 56, static_cast<uint32_t>(data.size()), 4}, {headerEnd + 60, 0x400, 4}};
  for (const auto& [at, value, width] : fields) PutLe(b, at, value, width);
  // Only what the optional header holds: the sections follow it.
  const std::pair<size_t, uint32_t> directories[] = {
      {countAt, layout.directories}, {countAt + 4, layout.exportRva ? layout.exportRva : kPeDataRva}, {countAt + 12, importRva}};
  for (const auto& [at, value] : directories) {
    if (at + 4 <= headerEnd) PutLe(b, at, value, 4);
  }
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

// Throwaway keys and certificates (tests/support/signing-material), made
// once per run and removed when the tests end; `time` is when they were made.
struct Keys {
  fs::path dir = fs::temp_directory_path() / ("calder-sign-" + std::to_string(std::random_device{}()));
  bool made = fs::create_directories(dir) &&
              std::system(("'" CALDER_SOURCE_DIR "/tests/support/signing-material' '" + dir.string() + "'").c_str()) == 0;
  int64_t time = static_cast<int64_t>(std::time(nullptr)) + 60;
  ~Keys() { fs::remove_all(dir); }
};

const Keys& SigningKeys() {
  static const Keys keys;
  return keys;
}

// Signed by osslsigncode with a throwaway key and the certificates it
// carries; empty when that fails. Each image is signed once per run: signing
// takes a process start.
Bytes SignPe(const Bytes& image, const char* hash = "sha256", const std::string& key = "key.pem",
             const std::string& certs = "cert.pem", const std::string& more = "") {
  static std::map<std::vector<std::string>, Bytes> cache;
  Bytes& signedImage = cache[{std::string(image.begin(), image.end()), hash, key, certs, more}];
  if (!signedImage.empty()) return signedImage;
  std::ofstream(SigningKeys().dir / "in.exe", std::ios::binary)
      .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
  const std::string sign = "cd '" + SigningKeys().dir.string() + "' && rm -f out.exe && osslsigncode sign -h " + hash +
                           " -certs " + certs + " -key " + key + " " + more + " -in in.exe -out out.exe >/dev/null 2>&1";
  if (!SigningKeys().made || std::system(sign.c_str()) != 0) return {};
  std::ifstream in(SigningKeys().dir / "out.exe", std::ios::binary);
  return signedImage = Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string ReferenceSha256(const Bytes& bytes) {
  uint8_t digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr);
  return HexOf(digest, size);
}

PeLayout Good() { return {0x8664, 0x0022, 2, 0x20B, 240, 16, {"a", "b"}, {{"x.dll", {"c", "#7", "d"}}}}; }

Bytes With(const std::function<void(PeLayout&)>& change, long resize = 0) {
  PeLayout layout = Good();
  change(layout);
  Bytes image = BuildPe(layout);
  image.resize(resize > 0 ? size_t(resize) : image.size() + size_t(-resize));
  return image;
}

Bytes Cut(long size) { return With([](PeLayout&) {}, size); }

// No exports; the export entry points `back` bytes before the end of the data
// section, whose last `padding` bytes are zero.
Bytes ExportDirectoryAtTheEnd(size_t padding, size_t back, uint32_t virtualExtra = 0, long tail = 0) {
  PeLayout layout = Good();
  layout.exports = {}, layout.zeroPadding = padding, layout.virtualExtra = virtualExtra;
  layout.exportRva = static_cast<uint32_t>(kPeDataRva + BuildPe(layout).size() - 0x400 - back);
  return With([&](PeLayout& s) { s = layout; }, -tail);
}

std::vector<std::string> Numbered(size_t count) {
  std::vector<std::string> names(count);
  for (size_t i = 0; i < count; ++i) names[i] = "n" + std::to_string(i);
  return names;
}

TEST(PeReaderBounds, ReadsUpToEachEdgeAndNotOnePast) {
  const std::string exportsOutside = "export table outside the file";
  const std::string importsOutside = "import table outside the file";
  const long goodSize = long(BuildPe(Good()).size());
  // Image, the problem ("" when valid), export names, imported names.
  const std::tuple<const char*, Bytes, std::string, size_t, size_t> cases[] = {
      {"good", Cut(goodSize), "", 2, 2},
      {"PE32", With([](PeLayout& s) { s.magic = 0x10B, s.optionalSize = 224; }), "", 2, 2},
      {"only MZ", Cut(2), "no PE signature", 0, 0},
      {"signature cut by one", Cut(0x43), "no PE signature", 0, 0},
      {"file header right after the signature", Cut(0x44), "file header cut short", 0, 0},
      {"optional header right after the file header", Cut(0x58), "optional header cut short", 0, 0},
      {"optional header ends at the subsystem", With([](PeLayout& s) { s.optionalSize = 70; }), "", 0, 0},
      {"optional header ends in the subsystem", With([](PeLayout& s) { s.optionalSize = 69; }),
       "optional header cut short", 0, 0},
      {"header holds only the export entry", With([](PeLayout& s) { s.optionalSize = 120; }), "", 2, 0},
      {"header cut in the export entry", With([](PeLayout& s) { s.optionalSize = 119; }), "", 0, 0},
      {"count says one directory", With([](PeLayout& s) { s.directories = 1; }), "", 2, 0},
      {"section table cut short", Cut(0x58 + 240 + 40 + 23), "section table cut short", 0, 0},
      {"last name cut before its NUL", Cut(goodSize - 1), importsOutside, 0, 0},
      {"import terminator cut by one", With([](PeLayout& s) { s.exports = {}, s.imports = {}; }, 0x400 + 59),
       importsOutside, 0, 0},
      {"export directory ends the section", ExportDirectoryAtTheEnd(40, 40), "", 0, 2},
      {"export directory cut by one", ExportDirectoryAtTheEnd(39, 39), exportsOutside, 0, 0},
      {"export directory past the raw data", ExportDirectoryAtTheEnd(0, 0, 0x100, 0x100), exportsOutside, 0, 0},
      {"longest name", With([](PeLayout& s) { s.exports = {std::string(1023, 'n')}; }), "", 1, 2},
      {"name one too long", With([](PeLayout& s) { s.exports = {std::string(1024, 'n')}; }), exportsOutside, 0, 0},
      {"most exports", With([](PeLayout& s) { s.exports = Numbered(65536); }), "", 65536, 2},
      {"one export too many", With([](PeLayout& s) { s.exports = Numbered(65537); }), exportsOutside, 0, 0},
      {"most imported names", With([](PeLayout& s) { s.imports = {{"x.dll", Numbered(65536)}}; }), "", 2, 65536},
      {"one imported name too many", With([](PeLayout& s) { s.imports = {{"x.dll", Numbered(65537)}}; }),
       importsOutside, 0, 0},
      {"most imported libraries", With([](PeLayout& s) { s.imports.assign(4096, {"x.dll", {}}); }), "", 2, 0},
      {"one imported library too many", With([](PeLayout& s) { s.imports.assign(4097, {"x.dll", {}}); }),
       importsOutside, 0, 0},
  };
  for (const auto& [name, image, problem, exports, imports] : cases) {
    const PeImage pe = ReadPeImage(image.data(), image.size());
    size_t names = 0;
    for (const ImportedLibrary& library : pe.imports) names += library.entries.size();
    EXPECT_EQ(std::make_tuple(pe.problem, pe.exportNames.size(), names), std::make_tuple(problem, exports, imports))
        << name;
  }
}

TEST(DerReader, EntersOnlyDerThatTheBufferHolds) {
  const auto sized = [](Bytes header, size_t content) { return (header.resize(header.size() + content, 7), header); };
  const std::string ber = "long form where the short one fits", integer = "INTEGER with a superfluous leading byte";
  // Element, whether its first element can be entered, and what keeps it
  // from being DER ("" when nothing does).
  const std::tuple<Bytes, bool, std::string> cases[] = {
      {{0x04, 0x00}, true, ""}, {{0x04, 0x02, 1, 2}, true, ""}, {sized({0x04, 0x81, 0x80}, 128), true, ""},
      {{0x02, 0x02, 0x00, 0x80}, true, ""}, {{0x02, 0x01, 0x80}, true, ""},
      {{0x04}, false, "cut short"}, {{0x04, 0x03, 1, 2}, false, "past the end"}, {{0x04, 0x82, 0x01}, false, "cut short"},
      {{0x04, 0x85, 0, 0, 0, 0, 1, 9}, false, "beyond 4 GiB"}, {{0x04, 0x81, 0x02, 1, 2}, false, ber},
      {sized({0x04, 0x82, 0x00, 0x80}, 128), false, "leading zero byte"},
      {{0x30, 0x80, 0x02, 0x01, 0x01, 0x00, 0x00}, false, "indefinite length"},
      {{0x02, 0x02, 0x00, 0x7F}, false, integer}, {{0x02, 0x02, 0xFF, 0x80}, false, integer}, {{0x02, 0x00}, false, integer},
      {{0x1F, 0x01, 0x00}, false, "tag in the long form"},
      {{0x04, 0x01, 0xAA, 0x00}, true, "bytes after the end"},
      {{0x30, 0x04, 0x04, 0x81, 0x01, 0xAA}, true, ber},  // within a SEQUENCE
      {{0x24, 0x03, 0x04, 0x01, 0xAA}, true, "constructed form"},
  };
  for (const auto& [der, enters, problem] : cases) {
    DerReader reader(der.data(), der.size()), inside;
    const std::string got = DerProblem(der.data(), der.size());
    EXPECT_TRUE(reader.Enter(der[0], &inside) == enters && (problem.empty() ? got.empty() : got.find(problem) != std::string::npos))
        << testing::PrintToString(der) << ": " << got;
  }
}

TEST(Sha256, AgreesWithOpenSslAcrossEveryPaddingBoundaryAndSplit) {
  Bytes data(200);
  std::iota(data.begin(), data.end(), uint8_t{0});
  for (size_t size = 0; size <= data.size(); ++size) {
    const Bytes part(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size));
    Sha256 split;
    split.Update(part.data(), size / 3);
    split.Update(part.data() + size / 3, size - size / 3);
    const auto digest = split.Finish();
    ASSERT_EQ(HexOf(digest.data(), digest.size()), ReferenceSha256(part)) << size;
  }
}

TEST(AuthenticodeDigest, CoversEveryByteButTheChecksumTheEntryAndTheTable) {
  const Bytes good = SignPe(BuildPe(Good()));
  ASSERT_FALSE(good.empty()) << "osslsigncode could not sign";
  const PeImage pe = ReadPeImage(good.data(), good.size());
  const size_t sum = pe.checksumOffset, entry = pe.certificateEntryOffset, table = pe.certificateTableOffset;
  const auto flip = [&](size_t at) { Bytes b = good; b[at] ^= 0x40; return b; };
  const auto put = [&](size_t at, size_t value) { Bytes b = good; PutLe(b, at, uint32_t(value), 4); return b; };
  // An X.509 entry of 9 bytes, padded to 16, before the PKCS#7 one.
  Bytes otherFirst = put(entry + 4, pe.certificateTableSize + 16);
  const Bytes x509 = {9, 0, 0, 0, 0, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  otherFirst.insert(otherFirst.begin() + long(table), x509.begin(), x509.end());
  const std::string changed = "changed after signing", outside = "outside the file";
  // Image, and "valid", "unsigned" or what the problem says.
  const std::tuple<const char*, Bytes, std::string> cases[] = {
      {"as signed", good, "valid"},
      {"unsigned", BuildPe(Good()), "unsigned"},
      {"byte before the checksum", flip(sum - 1), changed},
      {"checksum's first byte", flip(sum), "valid"},
      {"checksum's last byte", flip(sum + 3), "valid"},
      {"byte after the checksum", flip(sum + 4), changed},
      {"byte before the entry", flip(entry - 1), changed},
      {"byte after the entry", flip(entry + 8), changed},
      {"last byte before the table", flip(table - 1), changed},
      {"bytes after the table", put(good.size(), 0), changed},
      {"table one past the file", put(entry + 4, pe.certificateTableSize + 1), outside},
      {"table over the entry", put(entry, entry + 7), outside},
      {"certificate longer than the table", put(table, pe.certificateTableSize + 1), "can be read"},
      {"another certificate first", otherFirst, "valid"},
      {"signed with SHA-1", SignPe(BuildPe(Good()), "sha1"), "other than SHA-256"},
  };
  for (const auto& [name, image, expected] : cases) {
    const Signature signature = CheckSignature(image.data(), image.size(), {{}, {}, SigningKeys().time});
    const std::string got = signature.state == SignatureState::kInvalid ? signature.problem
                            : signature.state == SignatureState::kValid ? "valid" : "unsigned";
    EXPECT_NE(got.find(expected), std::string::npos) << name << ": " << got;
  }
}

Bytes Sha256Bytes(const Bytes& bytes) {
  Bytes digest(32);
  EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
  return digest;
}

Bytes Replaced(Bytes b, const Bytes& from, const Bytes& to) {
  const auto at = std::search(b.begin(), b.end(), from.begin(), from.end());
  if (at != b.end()) std::copy(to.begin(), to.end(), at);
  return b;
}

// A byte of the image changed and its new Authenticode digest written over
// the one the signature records; with `attributes`, the signed attributes'
// message digest of that content rewritten too.
Bytes DigestRewritten(const Bytes& signedImage, bool attributes) {
  const auto authenticode = [](const Bytes& b) {
    const PeImage pe = ReadPeImage(b.data(), b.size());
    const size_t entry = pe.certificateEntryOffset, table = pe.certificateTableOffset;
    Bytes covered(b.begin(), b.begin() + long(pe.checksumOffset));
    covered.insert(covered.end(), b.begin() + long(pe.checksumOffset) + 4, b.begin() + long(entry));
    covered.insert(covered.end(), b.begin() + long(entry) + 8, b.begin() + long(table));
    return Sha256Bytes(covered);
  };
  Bytes changed = signedImage;
  changed[0x400] ^= 1;
  changed = Replaced(changed, authenticode(signedImage), authenticode(changed));
  // The content's value follows its type, SPC_INDIRECT_DATA.
  const Bytes type = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x02, 0x01, 0x04};
  const size_t at = size_t(std::search(changed.begin(), changed.end(), type.begin(), type.end()) - changed.begin());
  DerReader reader(changed.data() + at + type.size(), changed.size() - at - type.size()), wrapper, value;
  if (!attributes || !reader.Enter(kDerExplicit0, &wrapper) || !wrapper.Enter(kDerSequence, &value)) return changed;
  const Bytes content(value.data(), value.data() + value.size());
  const Bytes before(signedImage.begin() + (value.data() - changed.data()),
                     signedImage.begin() + (value.data() - changed.data()) + long(value.size()));
  return Replaced(changed, Sha256Bytes(before), Sha256Bytes(content));
}

std::vector<Certificate> Trusted(const std::vector<std::string>& files) {
  std::vector<Certificate> certificates;
  for (const std::string& file : files) EXPECT_TRUE(ReadTrustFile(SigningKeys().dir / file, &certificates)) << file;
  return certificates;
}

TEST(AuthenticodeSigner, SignatureOverTheAttributesVerifiesAndTheSignerChainsToATrustedCertificate) {
  const Bytes image = BuildPe(Good());
  const Bytes rsa = SignPe(image), p256 = SignPe(image, "sha256", "ec.key", "ec.pem");
  const Bytes leaf = SignPe(image, "sha256", "leaf.key", "chain.pem");
  ASSERT_FALSE(rsa.empty() || p256.empty() || leaf.empty()) << "osslsigncode could not sign";
  const std::string moved = "not that of the signed content", forged = "does not verify with the signing certificate",
                    untrusted = "untrusted: its signing certificate does not chain";
  const auto times = [](size_t n, const char* file, std::vector<std::string> then) {
    then.insert(then.begin(), n, file);
    return then;
  };
  // Image, the certificates trusted, and "valid" or what the problem says.
  const std::tuple<const char*, Bytes, std::vector<std::string>, std::string> cases[] = {
      {"RSA 2048", rsa, {}, "valid"},
      {"P-256", p256, {}, "valid"},
      {"RSA 3072", leaf, {}, "valid"},
      {"digest rewritten", DigestRewritten(rsa, false), {}, moved},
      {"attributes rewritten, RSA", DigestRewritten(rsa, true), {}, forged},
      {"attributes rewritten, P-256", DigestRewritten(p256, true), {}, forged},
      {"signer trusted itself", rsa, {"cert.pem"}, "valid"},
      {"another certificate trusted", rsa, {"ec.pem"}, untrusted},
      {"intermediate trusted", leaf, {"ec.pem", "mid.pem"}, "valid"},
      {"root trusted: RSA 4096 over P-256 over the leaf", leaf, {"root.pem"}, "valid"},
      {"intermediate not carried", SignPe(image, "sha256", "leaf.key", "leaf.pem"), {"root.pem"}, untrusted},
      {"intermediate from the trust list", SignPe(image, "sha256", "leaf.key", "leaf.pem"), {"root.pem", "mid.pem"},
       "valid"},
      {"intermediate not issued by the root", SignPe(image, "sha256", "leaf.key", "fakechain.pem"), {"root.pem"},
       untrusted},
      {"30 impostors of the root before it", leaf, times(30, "fake.pem", {"root.pem"}), "valid"},
      {"issued by a leaf", SignPe(image, "sha256", "mid.key", "underchain.pem"), {"root.pem"}, untrusted},
  };
  for (const auto& [name, signedImage, trusted, expected] : cases) {
    const Signature signature =
        CheckSignature(signedImage.data(), signedImage.size(), {Trusted(trusted), {}, SigningKeys().time});
    const std::string got = signature.state == SignatureState::kValid ? "valid"
                            : signature.state == SignatureState::kUntrusted ? "untrusted: " + signature.problem
                                                                            : signature.problem;
    EXPECT_NE(got.find(expected), std::string::npos) << name << ": " << got;
  }
}

std::string Verdict(const Signature& signature, int64_t now, int64_t stamp) {
  if (signature.state != SignatureState::kValid) {
    return (signature.state == SignatureState::kUntrusted ? "untrusted: " : "") + signature.problem;
  }
  const SignatureDetails& d = *signature.details;
  return d.timestamped && d.judgedAt == stamp ? "valid at the stamp" : !d.timestamped && d.judgedAt == now ? "valid now" : "?";
}

TEST(AuthenticodeTime, ChainsAsASigningServiceIssuesThemHoldAtTheirTimestamp) {
  const Bytes image = BuildPe(Good());
  const int64_t made = SigningKeys().time, day = 86400, week = made + 7 * day;
  const auto stamped = [&](const char* key, const char* certs, int64_t at) {
    return SignPe(image, "sha384", key, certs, "-TSA-certs tsachain.pem -TSA-key tsa.key -TSA-time " + std::to_string(at));
  };
  const Bytes service = stamped("sleaf.key", "schain.pem", made + day);
  const std::string expired = "untrusted: the certificate \"CN=Maker Ltd, O=Maker\" was not valid at ";
  // Image, trusted, trusted for timestamps, the check's time, and what it shows.
  const std::tuple<const char*, Bytes, std::vector<std::string>, std::vector<std::string>, int64_t, std::string> cases[] = {
      {"RSA 4096 > 3072 > 3072, SHA-384, stamped, a week later", service, {"sroot.pem"}, {"troot.pem"}, week,
       "valid at the stamp"},
      {"the stamp's root trusted for all", service, {"sroot.pem", "troot.pem"}, {}, week, "valid at the stamp"},
      {"nothing trusted: any signer, any stamp", service, {}, {}, week, "valid at the stamp"},
      {"stamp by an untrusted authority", service, {"sroot.pem"}, {}, week, "untrusted: its timestamp's signer"},
      {"stamped after the leaf expired", stamped("sleaf.key", "schain.pem", made + 5 * day), {"sroot.pem"},
       {"troot.pem"}, week, expired + TimeText(made + 5 * day)},
      {"no stamp, a week later", SignPe(image, "sha384", "sleaf.key", "schain.pem"), {"sroot.pem"}, {}, week,
       expired + TimeText(week)},
      {"no stamp, in its days", SignPe(image, "sha384", "sleaf.key", "schain.pem"), {"sroot.pem"}, {}, made,
       "valid now"},
      {"P-384 under P-384, SHA-384", SignPe(image, "sha384", "eleaf.key", "eleaf.pem"), {"eroot.pem"}, {}, made,
       "valid now"},
      {"SHA-512 file digest", SignPe(image, "sha512", "sleaf.key", "schain.pem"), {"sroot.pem"}, {}, made, "valid now"},
      {"a leaf for servers", SignPe(image, "sha384", "sleaf.key", "sserverchain.pem"), {"sroot.pem"}, {}, made,
       "untrusted: its signing certificate is not for code signing"},
      {"an issuer past its path length", SignPe(image, "sha384", "sleaf.key", "sdeepchain.pem"), {"sroot.pem"}, {},
       made, "untrusted: its signing certificate does not chain"},
  };
  for (const auto& [name, signedImage, trusted, tsa, now, expected] : cases) {
    ASSERT_FALSE(signedImage.empty()) << name << ": osslsigncode could not sign";
    const Signature signature = CheckSignature(signedImage.data(), signedImage.size(), {Trusted(trusted), Trusted(tsa), now});
    EXPECT_EQ(Verdict(signature, now, made + day).substr(0, expected.size()), expected) << name << ": " << signature.problem;
  }
  const Signature shown = CheckSignature(service.data(), service.size(), {Trusted({"sroot.pem"}), Trusted({"troot.pem"}), week});
  ASSERT_TRUE(shown.details.has_value());
  EXPECT_EQ(std::make_tuple(shown.details->signer, shown.details->issuers, shown.details->algorithm),
            std::make_tuple(std::string("CN=Maker Ltd, O=Maker"),
                            std::vector<std::string>{"CN=Service Code Signing CA", "CN=Service Root"},
                            std::string("RSA-3072 with SHA-384")));
}

// A DER element as a tree, to rebuild a signature with a part changed.
struct Element {
  uint8_t tag = 0;
  Bytes content;  // a primitive one's
  std::vector<Element> children;
  bool longLength = false;  // BER's long form where the short one fits
};

Element ReadElement(DerReader* reader) {
  Element element;
  DerReader inside;
  element.tag = reader->data()[0];
  EXPECT_TRUE(reader->Enter(element.tag, &inside));
  if ((element.tag & 0x20) == 0) element.content = inside.Bytes();
  while ((element.tag & 0x20) != 0 && inside.size() > 0) element.children.push_back(ReadElement(&inside));
  return element;
}

Bytes Encode(const Element& element) {
  Bytes content = element.content;
  for (const Element& child : element.children) {
    const Bytes bytes = Encode(child);
    content.insert(content.end(), bytes.begin(), bytes.end());
  }
  const size_t n = content.size();
  Bytes out = {element.tag}, length;
  for (size_t rest = n; rest > 0; rest >>= 8) length.insert(length.begin(), uint8_t(rest));
  if (n < 0x80 && !element.longLength) {
    out.push_back(uint8_t(n));
  } else {
    if (length.empty()) length = {0};
    out.push_back(uint8_t(0x80 | length.size()));
    out.insert(out.end(), length.begin(), length.end());
  }
  out.insert(out.end(), content.begin(), content.end());
  return out;
}

// The signed image with its PKCS#7 changed, `tail` after it, and, when
// `key` names one, its signed attributes signed again.
Bytes Rebuilt(const Bytes& signedImage, const std::function<void(Element& signer)>& change, const Bytes& tail = {},
              const std::string& key = "key.pem") {
  const PeImage pe = ReadPeImage(signedImage.data(), signedImage.size());
  DerReader table(signedImage.data() + pe.certificateTableOffset + 8, pe.certificateTableSize - 8);
  Element pkcs7 = ReadElement(&table);
  Element& signer = pkcs7.children[1].children[0].children.back().children[0];
  change(signer);
  if (!key.empty()) {
    Element attributes = signer.children[3];
    attributes.tag = kDerSet;
    const Bytes message = Encode(attributes);
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen((SigningKeys().dir / key).c_str(), "r"), std::fclose);
    std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> pkey(PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    size_t size = 0;
    EVP_DigestSignInit(ctx.get(), nullptr, EVP_sha256(), nullptr, pkey.get());
    EVP_DigestSign(ctx.get(), nullptr, &size, message.data(), message.size());
    Bytes& signature = signer.children[5].content;
    signature.resize(size);
    EVP_DigestSign(ctx.get(), signature.data(), &size, message.data(), message.size());
  }
  Bytes der = Encode(pkcs7);
  der.insert(der.end(), tail.begin(), tail.end());
  der.resize((der.size() + 7) / 8 * 8);
  Bytes out(signedImage.begin(), signedImage.begin() + long(pe.certificateTableOffset));
  const size_t at = out.size();
  PutLe(out, at, uint32_t(der.size() + 8), 4);
  PutLe(out, at + 4, 0x00020200, 4);
  out.insert(out.end(), der.begin(), der.end());
  PutLe(out, pe.certificateEntryOffset + 4, uint32_t(der.size() + 8), 4);
  return out;
}

TEST(AuthenticodeDer, ASignatureIsRefusedForEachBerFormAndEachRepeatedAttribute) {
  const Bytes good = SignPe(BuildPe(Good()));
  ASSERT_FALSE(good.empty()) << "osslsigncode could not sign";
  const auto attribute = [](const Element& signer, const Bytes& oid) {
    size_t at = 0;
    while (signer.children[3].children[at].children[0].content != oid) ++at;
    return at;
  };
  const Bytes messageDigest = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x04};
  const Bytes contentType = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x03};
  const auto twice = [&](const Bytes& oid) {
    return [&, oid](Element& signer) {
      auto& list = signer.children[3].children;
      list.push_back(list[attribute(signer, oid)]);
    };
  };
  // Image, and "valid" or what the problem says.
  const std::tuple<const char*, Bytes, std::string> cases[] = {
      {"rebuilt as it was", Rebuilt(good, [](Element&) {}), "valid"},
      {"message digest twice", Rebuilt(good, twice(messageDigest)), "give the message digest more than once"},
      {"content type twice", Rebuilt(good, twice(contentType)), "give the content type more than once"},
      {"message digest with two values", Rebuilt(good, [&](Element& signer) {
         auto& values = signer.children[3].children[attribute(signer, messageDigest)].children[1].children;
         values.push_back(values[0]);
       }), "give the message digest without a single value"},
      {"a long form where the short one fits", Rebuilt(good, [](Element& signer) { signer.children[0].longLength = true; }, {}, ""),
       "not DER: a length in the long form where the short one fits"},
      {"an INTEGER with a leading zero", Rebuilt(good, [](Element& signer) {
         signer.children[0].content.insert(signer.children[0].content.begin(), 0);
       }, {}, ""), "not DER: an INTEGER with a superfluous leading byte"},
      {"a byte after the signature", Rebuilt(good, [](Element&) {}, {1}, ""), "not DER: bytes after the end"},
      {"zeros to the next 8 bytes", Rebuilt(good, [](Element&) {}, {0}, ""), "valid"},
  };
  for (const auto& [name, image, expected] : cases) {
    const Signature signature = CheckSignature(image.data(), image.size(), {{}, {}, SigningKeys().time});
    const std::string got = signature.state == SignatureState::kValid ? "valid" : signature.problem;
    EXPECT_NE(got.find(expected), std::string::npos) << name << ": " << got;
  }
}

// A signature made with the raw private key operation over `message`.
Bytes RawRsa(const Bytes& message) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen((SigningKeys().dir / "key.pem").c_str(), "r"), std::fclose);
  std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> pkey(PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
  std::unique_ptr<EVP_PKEY_CTX, void (*)(EVP_PKEY_CTX*)> ctx(EVP_PKEY_CTX_new(pkey.get(), nullptr), EVP_PKEY_CTX_free);
  Bytes out(256);
  size_t size = out.size();
  EVP_PKEY_sign_init(ctx.get());
  EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_NO_PADDING);
  EXPECT_EQ(EVP_PKEY_sign(ctx.get(), out.data(), &size, message.data(), message.size()), 1);
  return out;
}

TEST(SignaturePrimitives, RefuseWhatIsNotExactlyASignature) {
  std::vector<Certificate> rsa = Trusted({"cert.pem"}), ec = Trusted({"ec.pem"});
  const Bytes hash = Sha256Bytes({'c', 'a', 'l', 'd', 'e', 'r'});
  const Bytes rsaOid = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B};
  const Bytes ecOid = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02};
  // PKCS#1 v1.5: 00 01 FF.. 00 DigestInfo(SHA-256).
  const Bytes digestInfo = {0x30, 0x31, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  const auto padded = [&](uint8_t type, uint8_t fill) {
    Bytes block = {0x00, type};
    block.resize(256 - digestInfo.size() - hash.size() - 1, fill);
    block.push_back(0);
    block.insert(block.end(), digestInfo.begin(), digestInfo.end());
    block.insert(block.end(), hash.begin(), hash.end());
    return block;
  };
  const Bytes good = RawRsa(padded(1, 0xFF));
  // P-256's order n, as an INTEGER's content, and a DER signature of r and s.
  Bytes n = {0x00};
  for (const char* at = "FFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551"; *at != 0; at += 2) {
    n.push_back(uint8_t(std::stoi(std::string(at, 2), nullptr, 16)));
  }
  const auto ecdsa = [](const Bytes& r, const Bytes& s) {
    Element pair{kDerSequence, {}, {{kDerInteger, r, {}, false}, {kDerInteger, s, {}, false}}, false};
    return Encode(pair);
  };
  const Bytes one = {1};
  // The public key's point: a BIT STRING of 66 bytes, uncompressed.
  Bytes offCurve = ec[0].der;
  const Bytes point = {0x03, 0x42, 0x00, 0x04};
  offCurve[size_t(std::search(offCurve.begin(), offCurve.end(), point.begin(), point.end()) - offCurve.begin()) + 10] ^= 1;
  Certificate unused;
  EXPECT_FALSE(ReadCertificate(offCurve.data(), offCurve.size(), &unused)) << "a key off the curve";
  // Key, algorithm, signature, and "" when it verifies or what the problem says.
  const std::tuple<const char*, const Certificate&, const Bytes&, Bytes, std::string> cases[] = {
      {"PKCS#1 v1.5", rsa[0], rsaOid, good, ""},
      {"block type 2", rsa[0], rsaOid, RawRsa(padded(2, 0xFF)), "does not verify"},
      {"a padding byte not FF", rsa[0], rsaOid, RawRsa([&] { Bytes b = padded(1, 0xFF); b[9] = 0xFE; return b; }()),
       "does not verify"},
      {"one byte short", rsa[0], rsaOid, Bytes(good.begin() + 1, good.end()), "not as long as its key"},
      {"one byte long", rsa[0], rsaOid, [&] { Bytes b = good; b.insert(b.begin(), 0); return b; }(), "not as long as its key"},
      {"r equal to n", ec[0], ecOid, ecdsa(n, one), "does not verify"},
      {"s equal to n", ec[0], ecOid, ecdsa(one, n), "does not verify"},
      {"r zero", ec[0], ecOid, ecdsa({0}, one), "does not verify"},
      {"a byte after r and s", ec[0], ecOid, [&] { Bytes b = ecdsa(one, one); b.push_back(0); return b; }(), "two DER integers"},
      {"RSA named for the EC key", ec[0], rsaOid, good, "not RSA or ECDSA"},
  };
  for (const auto& [name, certificate, algorithm, signature, expected] : cases) {
    std::string problem;
    const bool verified = VerifySignature(certificate, algorithm, DigestKind::kSha256, hash, signature, &problem);
    EXPECT_TRUE(expected.empty() ? verified : !verified && problem.find(expected) != std::string::npos)
        << name << ": " << problem;
  }
}

Bytes Pe(uint16_t characteristics, uint16_t subsystem, const std::vector<std::string>& exports,
         uint16_t machine = 0x8664) {
  return BuildPe({machine, characteristics, subsystem, 0x20B, 240, 16, exports, {}});
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
constexpr uint16_t kDll = kPeDll;
const std::vector<std::string> kLottieEntries = {"lottie_load", "lottie_render"};

// calder.exe as the release links it: rlottie.dll beside it, the rest from Windows.
Bytes Program() {
  return BuildPe({0x8664, kExe, 2, 0x20B, 240, 16, {}, {{"rlottie.dll", kLottieEntries}, {"KERNEL32.dll", {"ExitProcess", "#5"}}}});
}

// A package as scripts/release makes it: signed programs, notices and both
// manifests over every file.
struct Package {
  Package() : dir(fs::temp_directory_path() / ("calder-check-" + std::to_string(std::random_device{}()))) {
    Write("calder.exe", SignPe(Program()));
    Write("rlottie.dll", SignPe(Pe(kDll, 2, kLottieEntries)));
    Write("btl_upgrade.dll", SignPe(Pe(kDll, 2, Names(kUpgradeLibraryEntryPoints))));
    Write("btl_hid_transfer.dll", SignPe(Pe(kDll, 2, Names(kBridgeLibraryEntryPoints))));
    fs::copy_file(fs::path(CALDER_SOURCE_DIR) / "ui" / "loading_dark.json", dir / "loading_dark.json");
    Write("TP/tp_fw.bin", test::PatternBytes(300, 200));
    Write("Force/1.0.2.3.bin", test::PatternBytes(1000));
    Write("THIRD-PARTY-NOTICES.txt", Bytes(10, 'n'));
    Seal();
  }
  ~Package() { fs::remove_all(dir); }
  void Write(const std::string& name, const Bytes& bytes) const {
    fs::create_directories((dir / name).parent_path());
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
              R"(", "hashes": [{"alg": "SHA-256", "content": ")" + ReferenceSha256(Read(path)) + "\"}]}";
    }
    Write("calder.cdx.json", Text(sbom + "]}"));
    // sha256sum's own lines, as scripts/release writes them.
    std::system(("cd '" + dir.string() + "' && find . -type f ! -name 'SHA256SUMS*' -printf '%P\\n' | LC_ALL=C sort | "
                 "xargs sha256sum >SHA256SUMS.new && mv SHA256SUMS.new SHA256SUMS").c_str());
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
  EXPECT_EQ(codes, code.empty() ? std::set<std::string>{} : std::set<std::string>{code});
  EXPECT_TRUE(explained && (!codes.empty() || report.Ship())) << GetParam().inMessage;
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
    {"RecorderInTheBridgesPlace",
     [](const Package& p) {
       std::vector<std::string> exports = Names(kBridgeLibraryEntryPoints);
       exports.push_back("calder_recorder");
       p.Write("btl_hid_transfer.dll", SignPe(Pe(kDll, 2, exports)));
     },
     "recorder-present", "btl_hid_transfer.dll is a recorder"},
    {"VendorFolder", [](const Package& p) { p.Write("vendor/btl_upgrade.dll", p.Read("btl_upgrade.dll")); },
     "recorder-present", "vendor folder"},
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
     [](const Package& p) { Bytes b = p.Read("calder.exe"); b[0x400] ^= 1; p.Write("calder.exe", b); },
     "signature-invalid", "changed after signing"},
    {"FileMissingFromTheManifests", [](const Package& p) { p.Write("extra.txt", Text("x")); },
     "manifest-mismatch", "extra.txt is listed in neither", true},
    {"FileChangedAfterSealing", [](const Package& p) { p.Write("THIRD-PARTY-NOTICES.txt", Text("x")); },
     "manifest-mismatch", "another SHA-256", true},
    {"ListedFileAbsent", [](const Package& p) { p.Write("SHA256SUMS", Text(std::string(64, 'a') + "  gone.bin\n")); },
     "manifest-mismatch", "gone.bin, which the package does not hold", true},
    {"SumsLineMalformed", [](const Package& p) { p.Write("SHA256SUMS", Text(std::string(64, 'a') + " gone.bin\n")); },
     "manifest-mismatch", "line 1", true},
    {"SbomNotCycloneDx", [](const Package& p) { p.Write("calder.cdx.json", Text(R"({"bomFormat": "SPDX"})")); },
     "manifest-mismatch", "CycloneDX 1.5", true},
    {"OnlyTheSbom", [](const Package& p) { p.Remove("SHA256SUMS"); }, "manifest-missing", "SHA256SUMS", true},
    {"NoManifests", [](const Package& p) { p.Remove("SHA256SUMS"), p.Remove("calder.cdx.json"); }, "manifest-missing", "", true},
    {"NoNotices", [](const Package& p) { p.Remove("THIRD-PARTY-NOTICES.txt"); }, "notices-missing", "missing"},
    {"EmptyNotices", [](const Package& p) { p.Write("THIRD-PARTY-NOTICES.txt", {}); }, "notices-missing", "empty"},
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
  const auto json = nlohmann::json::parse(JsonReport(CheckPackage(package.dir), false));
  EXPECT_EQ(json["verdict"], "do-not-ship");
  EXPECT_TRUE(json["touchpad"].is_null());
  EXPECT_EQ(json["force"], nlohmann::json::parse(R"({"file": "1.0.2.3.bin", "version": "1.0.2.3", "format": "raw",
      "image_size": 1024, "blocks": 16, "erase_sectors": 3, "readback_chunks": 26})"));
  EXPECT_TRUE(json["prediction"]["force_phase_seconds"].is_null());
  EXPECT_EQ(json["prediction"]["update_seconds"], 3.0);
  // Control characters and quotes come back as they were; bytes that are no
  // UTF-8 become U+FFFD.
  PackageReport odd;
  odd.findings.push_back({Severity::kWarning, "c", "a\"\\\x1f \x7f\xc3\xa9\n\xff", "m"});
  EXPECT_EQ(nlohmann::json::parse(JsonReport(odd, false))["findings"][0]["path"], "a\"\\\x1f \x7f\xc3\xa9\n\xef\xbf\xbd");
}

TEST(CheckFiles, AGoodPackageShipsWithoutFindingsAndListsEveryFileWithItsHash) {
  test::LogCapture log;
  Package package;
  const PackageReport report = CheckPackage(package.dir);
  const auto json = nlohmann::json::parse(JsonReport(report, false));
  std::string paths;
  for (const auto& file : json["files"]) {
    const std::string path = file["path"];
    paths += path + " ";
    const bool pe = path.find(".exe") != std::string::npos || path.find(".dll") != std::string::npos;
    nlohmann::json expected = {{"path", path}, {"sha256", ReferenceSha256(package.Read(path))}, {"signed", pe}};
    if (pe) {
      expected["signature"] = {{"signer", "CN=calder-test"}, {"issuers", nlohmann::json::array()},
                               {"algorithm", "RSA-2048 with SHA-256"}, {"judged_at", file["signature"]["judged_at"]},
                               {"judged_by", "the time of the check"}};
    }
    EXPECT_EQ(file, expected);
  }
  EXPECT_EQ(paths, "Force/1.0.2.3.bin THIRD-PARTY-NOTICES.txt TP/tp_fw.bin btl_hid_transfer.dll btl_upgrade.dll "
                   "calder.cdx.json calder.exe loading_dark.json rlottie.dll ");
  Bytes program = package.Read("calder.exe");
  package.Write("calder.exe", (program[0x400] ^= 1, program));
  EXPECT_FALSE(CheckPackage(package.dir).files[6].isSigned);  // calder.exe, its signature broken
}

TEST(CheckRelease, NeedsOurProgramsSignedTheVendorsVouchedForTheManifestsAndTheNotices) {
  test::LogCapture log;
  const auto unsignedVendor = [](const Package& p) {
    p.Write("btl_upgrade.dll", Pe(kDll, 2, Names(kUpgradeLibraryEntryPoints)));
    p.Write("btl_hid_transfer.dll", Pe(kDll, 2, Names(kBridgeLibraryEntryPoints)));
  };
  // How the package is changed (then sealed, unless it removes the
  // manifests), the certificates trusted, and the codes of the errors.
  const std::tuple<const char*, std::function<void(const Package&)>, std::vector<std::string>, std::string> cases[] = {
      {"as made", [](const Package&) {}, {"cert.pem"}, ""},
      {"vendor's libraries unsigned, tested releases", unsignedVendor, {"cert.pem"}, ""},
      {"vendor's library unsigned, another release", [&](const Package& p) {
         unsignedVendor(p);
         Bytes library = p.Read("btl_upgrade.dll");
         p.Write("btl_upgrade.dll", (library.push_back(0), library));
       }, {"cert.pem"}, "unsigned "},
      {"signed by another", [](const Package&) {}, {"ec.pem"}, "signer-untrusted "},
      {"a vendor's library by another, a tested release", [&](const Package& p) {
         const Bytes library = Pe(kDll, 2, Names(kUpgradeLibraryEntryPoints));
         p.Write("btl_upgrade.dll", SignPe(library, "sha256", "ec.key", "ec.pem"));
       }, {"cert.pem"}, ""},
      {"signatures stripped, manifests deleted", [&](const Package& p) {
         unsignedVendor(p), p.Write("calder.exe", Program()), p.Write("rlottie.dll", Pe(kDll, 2, kLottieEntries));
         p.Remove("SHA256SUMS"), p.Remove("calder.cdx.json");
       }, {"cert.pem"}, "manifest-missing unsigned "},
      {"no notices", [](const Package& p) { p.Remove("THIRD-PARTY-NOTICES.txt"); }, {"cert.pem"}, "notices-missing "},
  };
  for (const auto& [name, change, trusted, errors] : cases) {
    Package package;
    change(package);
    if (fs::exists(package.dir / "SHA256SUMS")) package.Seal();
    CheckOptions options;
    options.release = true, options.trusted = Trusted(trusted);
    // The unsigned vendor libraries as the repository's list would name them.
    for (const Bytes& library : {Pe(kDll, 2, Names(kUpgradeLibraryEntryPoints)), Pe(kDll, 2, Names(kBridgeLibraryEntryPoints)),
                                 SignPe(Pe(kDll, 2, Names(kUpgradeLibraryEntryPoints)), "sha256", "ec.key", "ec.pem")}) {
      options.vendorReleases.push_back({"BTL_upgrade.dll", "1.0", ReferenceSha256(library)});
      options.vendorReleases.push_back({"btl_hid_transfer.dll", "1.0", ReferenceSha256(library)});
    }
    const PackageReport report = CheckPackage(package.dir, options);
    std::set<std::string> codes;
    for (const Finding& f : report.findings) {
      if (f.severity == Severity::kError) codes.insert(f.code);
    }
    std::string got;
    for (const std::string& code : codes) got += code + " ";
    EXPECT_EQ(std::make_pair(got, report.Ship()), std::make_pair(errors, errors.empty())) << name;
  }
}

TEST(CheckCommandLine, AnswersOnTheRightStreamWithTheRightExitCode) {
  test::LogCapture log;
  Package package;
  // Arguments ("DIR" is the good package), exit code, what standard output
  // and standard error hold ("" when nothing).
  const std::tuple<std::vector<std::string>, int, std::string, std::string> cases[] = {
      {{}, 2, "", "usage: calder-check [--json] [--log] [--release] [--trust CERT]... [--trust-tsa CERT]... PACKAGE_DIR\n"},
      {{"--help"}, 0, "usage: calder-check [--json] [--log] [--release] [--trust CERT]... [--trust-tsa CERT]... PACKAGE_DIR\n", ""},
      {{"--version"}, 0, "calder-check 20260422-01\n", ""},
      {{"DIR"}, 0, "verdict:    ship\n", ""},
      {{"--log", "DIR"}, 0, "log of the predicted run:", ""},
      {{"--json", "DIR"}, 0, "\"verdict\": \"ship\"", ""},
      {{"DIR", "--log", "--json"}, 0, "\"log\": [", ""},
      {{"DIR/TP"}, 1, "verdict:    do-not-ship\n", ""},
      {{"--jsn", "DIR"}, 2, "", "usage:"},
      {{"DIR", "DIR"}, 2, "", "usage:"},
      {{""}, 2, "", "usage:"},
      {{"DIR/none"}, 2, "", "no such folder"},
      {{"--release", "--trust", "KEYS/cert.pem", "DIR"}, 0, "verdict:    ship\n", ""},
      {{"--release", "DIR"}, 2, "", "--release needs --trust CERT"},
      {{"--trust-tsa", "KEYS/troot.pem", "--trust", "KEYS/cert.pem", "DIR"}, 0, "judged at", ""},
      {{"--trust-tsa", "KEYS/key.pem", "DIR"}, 2, "", "cannot read a certificate from"},
      {{"--trust", "KEYS/ec.pem", "DIR"}, 1, "verdict:    do-not-ship\n", ""},
      {{"DIR", "--trust"}, 2, "", "usage:"},
      {{"--trust", "KEYS/none.pem", "DIR"}, 2, "", "cannot read a certificate from"},
      {{"--trust", "KEYS/key.pem", "DIR"}, 2, "", "cannot read a certificate from"},
  };
  for (const auto& [given, exitCode, out, err] : cases) {
    std::vector<std::string> args;
    for (const std::string& arg : given) {
      args.push_back(arg.rfind("DIR", 0) == 0    ? package.dir.string() + arg.substr(3)
                     : arg.rfind("KEYS", 0) == 0 ? SigningKeys().dir.string() + arg.substr(4)
                                                 : arg);
    }
    const CommandOutcome outcome = RunCommand(args);
    const auto holds = [](const std::string& stream, const std::string& part) {
      return part.empty() ? stream.empty() : stream.find(part) != std::string::npos;
    };
    EXPECT_TRUE(outcome.exitCode == exitCode && holds(outcome.out, out) && holds(outcome.err, err))
        << testing::PrintToString(given) << " gave " << outcome.exitCode << "\n" << outcome.out << outcome.err;
  }
}

TEST(CheckLogRecorder, KeepsTheLinesWhileItLivesAndGivesTheLoggerItsSettingsBack) {
  el::Logger* logger = el::Loggers::getLogger("default");
  const el::Configurations saved = *logger->configurations();
  el::Loggers::reconfigureLogger("default", el::ConfigurationType::Enabled, "false");
  auto recorder = std::make_unique<LogRecorder>();
  LOG(INFO) << "recorded";
  const std::vector<std::string> lines = recorder->Lines();
  recorder.reset();
  const bool enabledAfter = logger->typedConfigurations()->enabled(el::Level::Info);
  el::Loggers::reconfigureLogger(logger, saved);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].rfind("INFO check_package_test.cpp ", 0) == 0 && lines[0].find(": recorded") != std::string::npos)
      << lines[0];
  EXPECT_FALSE(enabledAfter);
}

}  // namespace
}  // namespace calder::check
