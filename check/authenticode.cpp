#include "check/authenticode.h"

#include <algorithm>
#include <array>
#include <utility>

#include "check/certificate_chain.h"
#include "check/der_reader.h"
#include "check/le_bytes.h"
#include "check/pe_reader.h"
#include "base/sha256.h"

namespace calder::check {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kWinCertificateHeaderSize = 8;
constexpr uint16_t kWinCertificateRevision2 = 0x0200;
constexpr uint16_t kWinCertTypePkcsSignedData = 0x0002;
constexpr size_t kChecksumSize = 4;

// Object identifiers as their DER content bytes.
const Bytes kOidSignedData = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
const Bytes kOidSpcIndirectData = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x02, 0x01, 0x04};
const Bytes kOidSha256 = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
const Bytes kOidContentType = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x03};
const Bytes kOidMessageDigest = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x04};

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

// What a signature states, as read.
struct SignedData {
  bool indirectSha256 = false;
  Bytes fileDigest;       // the file's digest as SpcIndirectDataContent records it
  Bytes indirectContent;  // that value's content: what the signed attributes' digest covers
  std::vector<Certificate> certificates;
  Bytes issuer, serial;  // naming the signing certificate
  bool signerSha256 = false;
  DerReader attributes;  // the signed attributes' content
  Bytes attributesDer;   // and the whole of them, tagged [0]
  Bytes signatureAlgorithm, signature;
};

// ContentInfo { signedData, [0] SignedData { version, digestAlgorithms,
// ContentInfo { SPC_INDIRECT_DATA, [0] SpcIndirectDataContent { data,
// DigestInfo { algorithm, digest }}}, [0] certificates, [1] crls,
// SET { SignerInfo }}}.
bool ReadSignedData(DerReader pkcs7, SignedData* out) {
  DerReader contentInfo, wrapper, signedData, inner, indirect, indirectWhole, digestInfo, algorithm, digest,
      certificates, signers, signer, issuerAndSerial, name, attributesWhole, signature;
  if (!pkcs7.Enter(kDerSequence, &contentInfo) || !contentInfo.Expect(kDerOid, kOidSignedData) ||
      !contentInfo.Enter(kDerExplicit0, &wrapper) || !wrapper.Enter(kDerSequence, &signedData) ||
      !signedData.Enter(kDerInteger, &inner) || !signedData.Enter(kDerSet, &inner) ||
      !signedData.Enter(kDerSequence, &inner) || !inner.Expect(kDerOid, kOidSpcIndirectData) ||
      !inner.Enter(kDerExplicit0, &wrapper) || !wrapper.Enter(kDerSequence, &indirect, &indirectWhole) ||
      !indirect.Enter(kDerSequence, &inner) || !indirect.Enter(kDerSequence, &digestInfo) ||
      !digestInfo.Enter(kDerSequence, &algorithm) || !digestInfo.Enter(kDerOctetString, &digest)) {
    return false;
  }
  out->indirectSha256 = algorithm.Expect(kDerOid, kOidSha256);
  out->fileDigest = digest.Bytes();
  // The signed attributes' digest covers the value without its tag and length.
  DerReader value;
  indirectWhole.Enter(kDerSequence, &value);
  out->indirectContent = value.Bytes();
  if (signedData.Enter(kDerExplicit0, &certificates)) {
    // One that cannot be read is left out: that can only shorten a chain.
    for (DerReader one, whole; certificates.Enter(kDerSequence, &one, &whole);) {
      Certificate certificate;
      if (ReadCertificate(whole, &certificate)) out->certificates.push_back(std::move(certificate));
    }
  }
  signedData.Enter(kDerExplicit1, &inner);  // revocation lists, not used
  // SignerInfo { version, IssuerAndSerialNumber { issuer, serial },
  // digestAlgorithm, [0] signed attributes, signatureAlgorithm, signature,
  // [1] unsigned attributes }; Authenticode has exactly one.
  if (!signedData.Enter(kDerSet, &signers) || !signers.Enter(kDerSequence, &signer) || signers.size() != 0 ||
      !signer.Enter(kDerInteger, &inner) || !signer.Enter(kDerSequence, &issuerAndSerial) ||
      !issuerAndSerial.Enter(kDerSequence, &inner, &name) || !ReadUnsigned(&issuerAndSerial, &out->serial) ||
      !signer.Enter(kDerSequence, &algorithm) || !signer.Enter(kDerExplicit0, &out->attributes, &attributesWhole) ||
      !signer.Enter(kDerSequence, &inner) || !inner.Enter(kDerOid, &wrapper) ||
      !signer.Enter(kDerOctetString, &signature)) {
    return false;
  }
  out->issuer = name.Bytes();
  out->signerSha256 = algorithm.Expect(kDerOid, kOidSha256);
  out->attributesDer = attributesWhole.Bytes();
  out->signatureAlgorithm = wrapper.Bytes();
  out->signature = signature.Bytes();
  return true;
}

// The one value of the signed attribute `type`; false when it is absent,
// repeated or has several values.
bool AttributeValue(DerReader attributes, const Bytes& type, uint8_t tag, Bytes* value) {
  int found = 0;
  for (DerReader attribute, oid, values, one; attributes.Enter(kDerSequence, &attribute);) {
    if (!attribute.Enter(kDerOid, &oid) || oid.Bytes() != type) continue;
    if (++found > 1 || !attribute.Enter(kDerSet, &values) || !values.Enter(tag, &one) || values.size() != 0) {
      return false;
    }
    *value = one.Bytes();
  }
  return found == 1;
}

std::array<uint8_t, 32> Sha256Of(const Bytes& bytes) {
  Sha256 hash;
  hash.Update(bytes.data(), bytes.size());
  return hash.Finish();
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

// The signer's part: its attributes vouch for the content, its signature
// for its attributes, its certificate (and, when asked, a chain) for it.
Signature CheckSigner(const SignedData& signedData, const std::vector<Certificate>& trusted) {
  if (!signedData.signerSha256) return Invalid("its signer used a digest other than SHA-256");
  Bytes contentType, messageDigest;
  if (!AttributeValue(signedData.attributes, kOidContentType, kDerOid, &contentType) ||
      contentType != kOidSpcIndirectData ||
      !AttributeValue(signedData.attributes, kOidMessageDigest, kDerOctetString, &messageDigest)) {
    return Invalid("its signed attributes lack a single content type or message digest");
  }
  const std::array<uint8_t, 32> contentDigest = Sha256Of(signedData.indirectContent);
  if (messageDigest != Bytes(contentDigest.begin(), contentDigest.end())) {
    return Invalid("the message digest its signer signed is not that of the signed content");
  }
  const Certificate* certificate = nullptr;
  for (const Certificate& one : signedData.certificates) {
    if (one.issuer == signedData.issuer && one.serial == signedData.serial) certificate = &one;
  }
  if (certificate == nullptr) return Invalid("it does not carry its signing certificate");
  // The signer signs its attributes as a SET, not under their [0] tag.
  Bytes attributes = signedData.attributesDer;
  attributes[0] = kDerSet;
  std::string problem;
  if (!VerifySha256Signature(certificate->key, signedData.signatureAlgorithm, Sha256Of(attributes),
                             signedData.signature, &problem)) {
    return Invalid(problem);
  }
  if (!trusted.empty() && !ChainsToTrusted(*certificate, signedData.certificates, trusted, &problem)) {
    return {SignatureState::kUntrusted, problem};
  }
  return {SignatureState::kValid, ""};
}

}  // namespace

Signature CheckSignature(const uint8_t* data, size_t size, const std::vector<Certificate>& trusted) {
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
  SignedData signedData;
  if (!FindPkcs7(data + tableStart, tableSize, &pkcs7) || !ReadSignedData(pkcs7, &signedData)) {
    return Invalid("its certificate table holds no Authenticode signature that can be read");
  }
  if (!signedData.indirectSha256) return Invalid("it is signed with a digest other than SHA-256");
  const std::array<uint8_t, 32> actual = AuthenticodeHash(data, size, image, tableStart, tableStart + tableSize);
  if (signedData.fileDigest != Bytes(actual.begin(), actual.end())) {
    return Invalid("the digest its signature records is not the file's: it changed after signing");
  }
  return CheckSigner(signedData, trusted);
}

}  // namespace calder::check
