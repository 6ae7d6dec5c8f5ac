#include "check/authenticode.h"

#include <algorithm>
#include <array>
#include <vector>

#include "check/der_reader.h"
#include "check/le_bytes.h"
#include "check/pe_reader.h"
#include "check/sha256.h"

namespace calder::check {

namespace {

constexpr size_t kWinCertificateHeaderSize = 8;
constexpr uint16_t kWinCertificateRevision2 = 0x0200;
constexpr uint16_t kWinCertTypePkcsSignedData = 0x0002;
constexpr size_t kChecksumSize = 4;

// Object identifiers as their DER content bytes.
const std::vector<uint8_t> kOidSignedData = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
const std::vector<uint8_t> kOidSpcIndirectData = {0x2B, 0x06, 0x01, 0x04, 0x01,
                                                  0x82, 0x37, 0x02, 0x01, 0x04};
const std::vector<uint8_t> kOidSha256 = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};

Signature Invalid(const std::string& problem) { return {SignatureState::kInvalid, problem}; }

// The PKCS#7 of the first WIN_CERTIFICATE that carries one.
bool FindPkcs7(const uint8_t* table, size_t size, DerReader* pkcs7) {
  const LeBytes bytes(table, size);
  uint32_t length = 0;
  uint16_t revision = 0;
  uint16_t type = 0;
  for (size_t at = 0; bytes.U32(at, &length) && bytes.U16(at + 4, &revision) && bytes.U16(at + 6, &type);) {
    if (length < kWinCertificateHeaderSize || length > size - at) return false;
    if (revision == kWinCertificateRevision2 && type == kWinCertTypePkcsSignedData) {
      *pkcs7 = DerReader(table + at + kWinCertificateHeaderSize, length - kWinCertificateHeaderSize);
      return true;
    }
    // Entries start on 8-byte boundaries.
    const size_t next = (size_t{length} + 7) / 8 * 8;
    if (next > size - at) return false;
    at += next;
  }
  return false;
}

// The digest algorithm and digest that SpcIndirectDataContent records:
// ContentInfo { signedData, [0] SignedData { version, digestAlgorithms,
// ContentInfo { SPC_INDIRECT_DATA, [0] { data, DigestInfo { alg, digest }}}}}.
bool ReadIndirectDigest(DerReader pkcs7, bool* sha256, std::vector<uint8_t>* digest) {
  DerReader contentInfo, signedWrapper, signedData, inner, indirectWrapper, indirect, digestInfo,
      algorithm, digestBytes;
  if (!pkcs7.Enter(kDerSequence, &contentInfo) || !contentInfo.Expect(kDerOid, kOidSignedData) ||
      !contentInfo.Enter(kDerExplicit0, &signedWrapper) ||
      !signedWrapper.Enter(kDerSequence, &signedData) || !signedData.Enter(kDerInteger, &inner) ||
      !signedData.Enter(kDerSet, &inner) || !signedData.Enter(kDerSequence, &inner) ||
      !inner.Expect(kDerOid, kOidSpcIndirectData) || !inner.Enter(kDerExplicit0, &indirectWrapper) ||
      !indirectWrapper.Enter(kDerSequence, &indirect) || !indirect.Enter(kDerSequence, &inner) ||
      !indirect.Enter(kDerSequence, &digestInfo) || !digestInfo.Enter(kDerSequence, &algorithm) ||
      !digestInfo.Enter(kDerOctetString, &digestBytes)) {
    return false;
  }
  *sha256 = algorithm.Expect(kDerOid, kOidSha256);
  digest->assign(digestBytes.data(), digestBytes.data() + digestBytes.size());
  return true;
}

// SHA-256 of everything but the checksum, the certificate table's entry and
// the table itself (which sits past the headers, usually at the end).
std::array<uint8_t, 32> AuthenticodeHash(const uint8_t* data, size_t size, const PeImage& image,
                                         size_t tableStart, size_t tableEnd) {
  Sha256 hash;
  const size_t afterChecksum = image.checksumOffset + kChecksumSize;
  const size_t afterEntry = image.certificateEntryOffset + kDataDirectoryEntrySize;
  hash.Update(data, image.checksumOffset);
  hash.Update(data + afterChecksum, image.certificateEntryOffset - afterChecksum);
  hash.Update(data + afterEntry, tableStart - afterEntry);
  hash.Update(data + tableEnd, size - tableEnd);
  return hash.Finish();
}

}  // namespace

Signature CheckSignature(const uint8_t* data, size_t size) {
  const PeImage image = ReadPeImage(data, size);
  if (!image.valid || image.certificateEntryOffset == 0 || image.certificateTableSize == 0) {
    return {};
  }
  const size_t tableStart = image.certificateTableOffset;
  const size_t tableSize = image.certificateTableSize;
  if (tableStart < image.certificateEntryOffset + kDataDirectoryEntrySize || tableStart > size ||
      tableSize > size - tableStart) {
    return Invalid("its certificate table lies outside the file");
  }
  DerReader pkcs7;
  bool sha256 = false;
  std::vector<uint8_t> recorded;
  if (!FindPkcs7(data + tableStart, tableSize, &pkcs7) ||
      !ReadIndirectDigest(pkcs7, &sha256, &recorded)) {
    return Invalid("its certificate table holds no Authenticode signature that can be read");
  }
  if (!sha256) return Invalid("it is signed with a digest other than SHA-256");
  const std::array<uint8_t, 32> actual = AuthenticodeHash(data, size, image, tableStart, tableStart + tableSize);
  if (recorded.size() != actual.size() || !std::equal(actual.begin(), actual.end(), recorded.begin())) {
    return Invalid("the digest its signature records is not the file's: it changed after signing");
  }
  return {SignatureState::kValid, ""};
}

}  // namespace calder::check
