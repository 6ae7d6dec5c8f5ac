// The readers under calder-check's findings: the PE reader's bounds, the DER
// walk, SHA-256 and the Authenticode digest, each at the edge of its rule.
#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "check/authenticode.h"
#include "check/der_reader.h"
#include "check/pe_reader.h"
#include "check/sha256.h"
#include "tests/host/pe_builder.h"

namespace calder::check {
namespace {

using test::Bytes;
using test::PeSpec;

PeSpec Good() {
  PeSpec spec;
  spec.exports = {"a", "b"};
  spec.imports = {{"x.dll", {"c", "#7", "d"}}};
  return spec;
}

Bytes Build(const std::function<void(PeSpec&)>& change) {
  PeSpec spec = Good();
  change(spec);
  return test::BuildPe(spec);
}

Bytes Cut(size_t size) {
  Bytes image = test::BuildPe(Good());
  image.resize(size);
  return image;
}

// No exports; the export directory entry points `back` bytes before the end
// of the data section, which ends in `padding` zero bytes.
Bytes ExportDirectoryAtTheEnd(size_t padding, size_t back, uint32_t virtualExtra = 0) {
  PeSpec spec = Good();
  spec.exports = {};
  spec.zeroPadding = padding;
  spec.virtualExtra = virtualExtra;
  const size_t dataSize = test::BuildPe(spec).size() - 0x400;
  spec.exportRva = static_cast<uint32_t>(test::kPeDataRva + dataSize - back);
  return test::BuildPe(spec);
}

std::vector<std::string> Numbered(size_t count) {
  std::vector<std::string> names(count);
  for (size_t i = 0; i < count; ++i) names[i] = "n" + std::to_string(i);
  return names;
}

struct PeCase {
  const char* name;
  std::function<Bytes()> image;
  const char* problem;  // "" when the image is valid
  size_t exports;
  size_t imports;  // names over all libraries
};

class PeReaderBounds : public testing::TestWithParam<PeCase> {};

TEST_P(PeReaderBounds, ReadsUpToTheEdgeAndNotOnePast) {
  const Bytes image = GetParam().image();
  const PeImage pe = ReadPeImage(image.data(), image.size());
  EXPECT_EQ(pe.problem, GetParam().problem);
  EXPECT_EQ(pe.exportNames.size(), GetParam().exports);
  size_t imports = 0;
  for (const ImportedLibrary& library : pe.imports) imports += library.entries.size();
  EXPECT_EQ(imports, GetParam().imports);
}

const char kExportsOutside[] = "export table outside the file";
const char kImportsOutside[] = "import table outside the file";

const PeCase kPeCases[] = {
    {"Good", [] { return test::BuildPe(Good()); }, "", 2, 2},
    {"Pe32", [] { return Build([](PeSpec& s) { s.magic = 0x10B, s.optionalSize = 224; }); }, "", 2, 2},
    {"OnlyM", [] { return Cut(1); }, "no MZ header", 0, 0},
    {"OnlyMZ", [] { return Cut(2); }, "no PE signature", 0, 0},
    {"SignatureCutByOne", [] { return Cut(0x43); }, "no PE signature", 0, 0},
    {"FileHeaderRightAfterTheSignature", [] { return Cut(0x44); }, "file header cut short", 0, 0},
    {"FileHeaderCutByOne", [] { return Cut(0x57); }, "file header cut short", 0, 0},
    {"OptionalHeaderRightAfterTheFileHeader", [] { return Cut(0x58); }, "optional header cut short", 0, 0},
    {"OptionalHeaderEndsAtTheSubsystem", [] { return Build([](PeSpec& s) { s.optionalSize = 70; }); }, "", 0, 0},
    {"OptionalHeaderEndsInTheSubsystem", [] { return Build([](PeSpec& s) { s.optionalSize = 69; }); },
     "optional header cut short", 0, 0},
    {"HeaderHoldsOnlyTheExportEntry", [] { return Build([](PeSpec& s) { s.optionalSize = 120; }); }, "", 2, 0},
    {"HeaderCutInTheExportEntry", [] { return Build([](PeSpec& s) { s.optionalSize = 119; }); }, "", 0, 0},
    {"CountSaysOneDirectory", [] { return Build([](PeSpec& s) { s.directories = 1; }); }, "", 2, 0},
    {"CountSaysNoDirectory", [] { return Build([](PeSpec& s) { s.directories = 0; }); }, "", 0, 0},
    {"SectionTableCutShort", [] { return Cut(0x58 + 240 + 40 + 23); }, "section table cut short", 0, 0},
    {"LastNameEndsAtTheFileEnd", [] { return Cut(test::BuildPe(Good()).size() - 1); }, kImportsOutside, 0, 0},
    {"ExportDirectoryEndsTheSection", [] { return ExportDirectoryAtTheEnd(40, 40); }, "", 0, 2},
    {"ExportDirectoryCutByOne", [] { return ExportDirectoryAtTheEnd(39, 39); }, kExportsOutside, 0, 0},
    {"ExportDirectoryPastTheRawData",
     [] {
       Bytes image = ExportDirectoryAtTheEnd(0, 0, 0x100);
       image.resize(image.size() + 0x100);
       return image;
     },
     kExportsOutside, 0, 0},
    {"LongestName", [] { return Build([](PeSpec& s) { s.exports = {std::string(1023, 'n')}; }); }, "", 1, 2},
    {"NameOneTooLong", [] { return Build([](PeSpec& s) { s.exports = {std::string(1024, 'n')}; }); },
     kExportsOutside, 0, 0},
    {"MostExports", [] { return Build([](PeSpec& s) { s.exports = Numbered(65536); }); }, "", 65536, 2},
    {"OneExportTooMany", [] { return Build([](PeSpec& s) { s.exports = Numbered(65537); }); }, kExportsOutside, 0, 0},
    {"MostImportedNames", [] { return Build([](PeSpec& s) { s.imports = {{"x.dll", Numbered(65536)}}; }); }, "", 2,
     65536},
    {"OneImportedNameTooMany", [] { return Build([](PeSpec& s) { s.imports = {{"x.dll", Numbered(65537)}}; }); },
     kImportsOutside, 0, 0},
    {"MostImportedLibraries",
     [] { return Build([](PeSpec& s) { s.imports.assign(4096, {"x.dll", {}}); }); }, "", 2, 0},
    {"OneImportedLibraryTooMany",
     [] { return Build([](PeSpec& s) { s.imports.assign(4097, {"x.dll", {}}); }); }, kImportsOutside, 0, 0},
};

INSTANTIATE_TEST_SUITE_P(Images, PeReaderBounds, testing::ValuesIn(kPeCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PeReaderImports, KeepsEachLibrarysNamesAndSkipsOrdinals) {
  const Bytes image = test::BuildPe(Good());
  const PeImage pe = ReadPeImage(image.data(), image.size());
  ASSERT_EQ(pe.imports.size(), 1u);
  EXPECT_EQ(pe.imports[0].name, "x.dll");
  EXPECT_EQ(pe.imports[0].entries, (std::vector<std::string>{"c", "d"}));
}

struct DerCase {
  const char* name;
  Bytes der;
  bool enters;
  size_t contentSize;
};

class DerBounds : public testing::TestWithParam<DerCase> {};

TEST_P(DerBounds, EntersOnlyWhatTheBufferHolds) {
  DerReader reader(GetParam().der.data(), GetParam().der.size());
  DerReader inside;
  ASSERT_EQ(reader.Enter(kDerOctetString, &inside), GetParam().enters);
  if (GetParam().enters) {
    EXPECT_EQ(inside.size(), GetParam().contentSize);
  }
}

const DerCase kDerCases[] = {
    {"Empty", {0x04, 0x00}, true, 0},
    {"OnlyATag", {0x04}, false, 0},
    {"OtherTag", {0x05, 0x00}, false, 0},
    {"ShortLengthAtTheEnd", {0x04, 0x02, 1, 2}, true, 2},
    {"ShortLengthOnePast", {0x04, 0x03, 1, 2}, false, 0},
    {"LongLengthAtTheEnd", {0x04, 0x81, 0x02, 1, 2}, true, 2},
    {"LongLengthOnePast", {0x04, 0x81, 0x03, 1, 2}, false, 0},
    {"FourLengthBytes", {0x04, 0x84, 0, 0, 0, 1, 9}, true, 1},
    {"FiveLengthBytes", {0x04, 0x85, 0, 0, 0, 0, 1, 9}, false, 0},
    {"LengthBytesCutShort", {0x04, 0x82, 0x01}, false, 0},
    {"IndefiniteLength", {0x04, 0x80, 1, 0, 0}, false, 0},
};

INSTANTIATE_TEST_SUITE_P(Elements, DerBounds, testing::ValuesIn(kDerCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Sha256, AgreesWithOpenSslAcrossEveryPaddingBoundaryAndSplit) {
  Bytes data(200);
  std::iota(data.begin(), data.end(), uint8_t{0});
  for (size_t size = 0; size <= data.size(); ++size) {
    const Bytes part(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size));
    Sha256 split;
    split.Update(part.data(), size / 3);
    split.Update(part.data() + size / 3, size - size / 3);
    const auto digest = split.Finish();
    ASSERT_EQ(HexOf(digest.data(), digest.size()), test::ReferenceSha256(part)) << size;
    ASSERT_EQ(Sha256Hex(part.data(), size), test::ReferenceSha256(part)) << size;
  }
}

struct SignatureCase {
  const char* name;
  std::function<void(Bytes&, const PeImage&)> change;
  SignatureState state;
};

class AuthenticodeDigest : public testing::TestWithParam<SignatureCase> {};

TEST_P(AuthenticodeDigest, CoversEveryByteButTheChecksumTheEntryAndTheTable) {
  Bytes image = test::SignPe(test::BuildPe(Good()));
  ASSERT_FALSE(image.empty()) << "osslsigncode could not sign";
  const PeImage pe = ReadPeImage(image.data(), image.size());
  GetParam().change(image, pe);
  EXPECT_EQ(CheckSignature(image.data(), image.size()).state, GetParam().state);
}

void Flip(Bytes& image, size_t at) { image[at] ^= 0x40; }

const SignatureCase kSignatureCases[] = {
    {"AsSigned", [](Bytes&, const PeImage&) {}, SignatureState::kValid},
    {"Unsigned", [](Bytes& b, const PeImage&) { b = test::BuildPe(Good()); }, SignatureState::kUnsigned},
    {"ByteBeforeTheChecksum", [](Bytes& b, const PeImage& pe) { Flip(b, pe.checksumOffset - 1); },
     SignatureState::kInvalid},
    {"ChecksumFirstByte", [](Bytes& b, const PeImage& pe) { Flip(b, pe.checksumOffset); }, SignatureState::kValid},
    {"ChecksumLastByte", [](Bytes& b, const PeImage& pe) { Flip(b, pe.checksumOffset + 3); },
     SignatureState::kValid},
    {"ByteAfterTheChecksum", [](Bytes& b, const PeImage& pe) { Flip(b, pe.checksumOffset + 4); },
     SignatureState::kInvalid},
    {"ByteBeforeTheEntry", [](Bytes& b, const PeImage& pe) { Flip(b, pe.certificateEntryOffset - 1); },
     SignatureState::kInvalid},
    {"ByteAfterTheEntry", [](Bytes& b, const PeImage& pe) { Flip(b, pe.certificateEntryOffset + 8); },
     SignatureState::kInvalid},
    {"LastByteBeforeTheTable", [](Bytes& b, const PeImage& pe) { Flip(b, pe.certificateTableOffset - 1); },
     SignatureState::kInvalid},
    {"ByteAfterTheTable", [](Bytes& b, const PeImage&) { b.push_back(0); }, SignatureState::kInvalid},
    {"TableOnePastTheFile",
     [](Bytes& b, const PeImage& pe) { test::PutLe(b, pe.certificateEntryOffset + 4, pe.certificateTableSize + 1, 4); },
     SignatureState::kInvalid},
    {"TableOverTheEntry",
     [](Bytes& b, const PeImage& pe) {
       test::PutLe(b, pe.certificateEntryOffset, static_cast<uint32_t>(pe.certificateEntryOffset + 7), 4);
     },
     SignatureState::kInvalid},
    {"CertificateLongerThanTheTable",
     [](Bytes& b, const PeImage& pe) { test::PutLe(b, pe.certificateTableOffset, pe.certificateTableSize + 1, 4); },
     SignatureState::kInvalid},
    {"OtherCertificateFirst",
     [](Bytes& b, const PeImage& pe) {
       const Bytes other = {8, 0, 0, 0, 0, 2, 1, 0};  // an X.509 entry with nothing in it
       b.insert(b.begin() + pe.certificateTableOffset, other.begin(), other.end());
       test::PutLe(b, pe.certificateEntryOffset + 4, pe.certificateTableSize + 8, 4);
     },
     SignatureState::kValid},
    {"SignedWithSha1", [](Bytes& b, const PeImage&) { b = test::SignPe(test::BuildPe(Good()), "sha1"); },
     SignatureState::kInvalid},
};

INSTANTIATE_TEST_SUITE_P(Changes, AuthenticodeDigest, testing::ValuesIn(kSignatureCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace calder::check
