#include "check/authenticode.h"

#include <utility>

#include "check/der_reader.h"
#include "check/le_bytes.h"
#include "check/pe_reader.h"

namespace calder::check {

namespace {

constexpr size_t kWinCertificateHeaderSize = 8;
constexpr uint16_t kWinCertificateRevision2 = 0x0200;
constexpr uint16_t kWinCertTypePkcsSignedData = 0x0002;
constexpr size_t kChecksumSize = 4;
// A WIN_CERTIFICATE is padded with zeros to 8 bytes.
constexpr size_t kCertificateAlignment = 8;

// Object identifiers as their DER content bytes.
const Bytes kOidSignedData = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
const Bytes kOidSpcIndirectData = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x02, 0x01, 0x04};
const Bytes kOidContentType = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x03};
const Bytes kOidMessageDigest = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x04};
const Bytes kOidSigningTime = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x05};
const Bytes kOidCountersignature = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x06};
const Bytes kOidRfc3161Timestamp = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x03, 0x03, 0x01};
const Bytes kOidTstInfo = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x10, 0x01, 0x04};

Signature Invalid(const std::string& problem) { return {SignatureState::kInvalid, problem, std::nullopt}; }

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
    const size_t next = (size_t{length} + kCertificateAlignment - 1) / kCertificateAlignment * kCertificateAlignment;
    if (next > size - at) return false;
    at += next;
  }
  return false;
}

// What keeps the WIN_CERTIFICATE's content from being one DER element and
// its padding; "" when it is.
std::string Pkcs7Problem(DerReader entry) {
  DerReader inside, whole;
  if (!entry.Enter(kDerSequence, &inside, &whole)) return DerProblem(entry.data(), entry.size());
  for (size_t i = 0; i < entry.size(); ++i) {
    if (entry.size() >= kCertificateAlignment || entry.data()[i] != 0) return "bytes after the end of the element";
  }
  return DerProblem(whole.data(), whole.size());
}

// A SignerInfo { version, IssuerAndSerialNumber { issuer, serial },
// digestAlgorithm, [0] signed attributes, signatureAlgorithm, signature,
// [1] unsigned attributes }, as read.
struct SignerInfo {
  Bytes issuer, serial;
  DigestKind digest = DigestKind::kUnsupported;
  DerReader attributes;  // the signed attributes' content
  Bytes attributesDer;   // and the whole of them, tagged [0]
  Bytes signatureAlgorithm, signature;
  DerReader unsignedAttributes;
};

bool ReadSignerInfo(DerReader signer, SignerInfo* out) {
  DerReader inner, issuerAndSerial, name, algorithm, oid, attributesWhole, signature;
  if (!signer.Enter(kDerInteger, &inner) || !signer.Enter(kDerSequence, &issuerAndSerial) ||
      !issuerAndSerial.Enter(kDerSequence, &inner, &name) || !ReadUnsigned(&issuerAndSerial, &out->serial) ||
      !signer.Enter(kDerSequence, &algorithm) || !algorithm.Enter(kDerOid, &oid) ||
      !signer.Enter(kDerExplicit0, &out->attributes, &attributesWhole) || !signer.Enter(kDerSequence, &inner) ||
      !inner.Enter(kDerOid, &algorithm) || !signer.Enter(kDerOctetString, &signature)) {
    return false;
  }
  out->issuer = name.Bytes();
  out->digest = DigestNamed(oid.Bytes());
  out->attributesDer = attributesWhole.Bytes();
  out->signatureAlgorithm = algorithm.Bytes();
  out->signature = signature.Bytes();
  signer.Enter(kDerExplicit1, &out->unsignedAttributes);
  return true;
}

// ContentInfo { signedData, [0] SignedData { version, digestAlgorithms,
// ContentInfo { type, [0] content }, [0] certificates, [1] crls,
// SET { SignerInfo } }}, with exactly one signer.
struct SignedData {
  Bytes contentType;
  DerReader content;       // the content element's own content
  Bytes contentBytes;      // the same, which the signed attributes' digest covers
  std::vector<Certificate> certificates;
  SignerInfo signer;
};

bool ReadSignedData(DerReader pkcs7, SignedData* out) {
  DerReader contentInfo, wrapper, signedData, inner, type, contentWrapper, certificates, signers, signer;
  if (!pkcs7.Enter(kDerSequence, &contentInfo) || !contentInfo.Expect(kDerOid, kOidSignedData) ||
      !contentInfo.Enter(kDerExplicit0, &wrapper) || !wrapper.Enter(kDerSequence, &signedData) ||
      !signedData.Enter(kDerInteger, &inner) || !signedData.Enter(kDerSet, &inner) ||
      !signedData.Enter(kDerSequence, &inner) || !inner.Enter(kDerOid, &type) ||
      !inner.Enter(kDerExplicit0, &contentWrapper) || contentWrapper.size() == 0) {
    return false;
  }
  out->contentType = type.Bytes();
  // PKCS#7 wraps Authenticode's content in a SEQUENCE, CMS a timestamp's in
  // an OCTET STRING; either way the digest covers what that element holds.
  const uint8_t tag = contentWrapper.data()[0];
  if ((tag != kDerSequence && tag != kDerOctetString) || !contentWrapper.Enter(tag, &out->content)) return false;
  out->contentBytes = out->content.Bytes();
  if (signedData.Enter(kDerExplicit0, &certificates)) {
    // One that cannot be read is left out: that can only shorten a chain.
    for (DerReader one, whole; certificates.Enter(kDerSequence, &one, &whole);) {
      Certificate certificate;
      if (ReadCertificate(whole.data(), whole.size(), &certificate)) out->certificates.push_back(std::move(certificate));
    }
  }
  signedData.Enter(kDerExplicit1, &inner);  // revocation lists, not used
  return signedData.Enter(kDerSet, &signers) && signers.Enter(kDerSequence, &signer) && signers.size() == 0 &&
         ReadSignerInfo(signer, &out->signer);
}

// The one value of the attribute `type` in *value (its element whole):
// "" when it is there once with one value; else what is wrong ("absent"
// when it is not there).
std::string AttributeValue(DerReader attributes, const Bytes& type, DerReader* value) {
  int found = 0;
  for (DerReader attribute, oid, values; attributes.Enter(kDerSequence, &attribute);) {
    if (!attribute.Enter(kDerOid, &oid) || oid.Bytes() != type) continue;
    if (++found > 1) return "more than once";
    DerReader inside;
    if (!attribute.Enter(kDerSet, &values) || values.size() == 0 || !values.Enter(values.data()[0], &inside, value) ||
        values.size() != 0) {
      return "without a single value";
    }
  }
  return found == 0 ? "absent" : "";
}

// UTCTime YYMMDDHHMMSSZ or GeneralizedTime YYYYMMDDHHMMSS[.f...]Z.
bool ReadTime(DerReader element, int64_t* time) {
  DerReader inside;
  const bool utc = element.Enter(kDerUtcTime, &inside);
  if (!utc && !element.Enter(kDerGeneralizedTime, &inside)) return false;
  const std::string text(inside.data(), inside.data() + inside.size());
  const size_t digits = utc ? 12 : 14;
  if (text.size() < digits + 1 || text.back() != 'Z') return false;
  for (size_t i = 0; i < digits; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
  }
  const auto number = [&](size_t at, size_t count) {
    int value = 0;
    for (size_t i = at; i < at + count; ++i) value = value * 10 + (text[i] - '0');
    return value;
  };
  int year = utc ? number(0, 2) : number(0, 4);
  if (utc) year += year < 50 ? 2000 : 1900;
  const size_t at = utc ? 2 : 4;
  *time = SecondsOf(year, number(at, 2), number(at + 2, 2), number(at + 4, 2), number(at + 6, 2), number(at + 8, 2));
  return true;
}

// The signer's part of a SignerInfo: its attributes vouch for `content`,
// its signature for its attributes. On success, *certificate is the signing
// certificate among `certificates`.
std::string CheckSignerInfo(const SignerInfo& signer, const std::vector<Certificate>& certificates,
                            const Bytes* contentType, const Bytes& content, const Certificate** certificate) {
  if (signer.digest == DigestKind::kUnsupported) return "its signer used a digest other than SHA-256, SHA-384 or SHA-512";
  DerReader value, inside;
  if (contentType != nullptr) {
    const std::string problem = AttributeValue(signer.attributes, kOidContentType, &value);
    if (!problem.empty()) return "its signed attributes give the content type " + problem;
    if (!value.Enter(kDerOid, &inside) || inside.Bytes() != *contentType) {
      return "its signed attributes give another content type";
    }
  }
  const std::string problem = AttributeValue(signer.attributes, kOidMessageDigest, &value);
  if (!problem.empty()) return "its signed attributes give the message digest " + problem;
  if (!value.Enter(kDerOctetString, &inside)) return "its signed attributes give a message digest that is no OCTET STRING";
  if (inside.Bytes() != DigestOf(signer.digest, content)) {
    return "the message digest its signer signed is not that of the signed content";
  }
  *certificate = nullptr;
  for (const Certificate& one : certificates) {
    if (one.issuer == signer.issuer && one.serial == signer.serial) *certificate = &one;
  }
  if (*certificate == nullptr) return "it does not carry its signing certificate";
  // The signer signs its attributes as a SET, not under their [0] tag.
  Bytes attributes = signer.attributesDer;
  attributes[0] = kDerSet;
  std::string why;
  if (!VerifySignature(**certificate, signer.signatureAlgorithm, signer.digest, DigestOf(signer.digest, attributes),
                       signer.signature, &why)) {
    return why;
  }
  return "";
}

// A timestamp over the signer's signature, when the signature carries one.
struct Timestamp {
  bool present = false;
  int64_t time = 0;
  std::string invalid;    // why it does not hold
  std::string untrusted;  // why its signer is not trusted
};

// RFC 3161: a CMS SignedData over TSTInfo { version, policy,
// messageImprint { algorithm, digest }, serial, genTime, ... }.
void CheckRfc3161(DerReader token, const Bytes& signature, const TrustSettings& trust, Timestamp* out) {
  SignedData signedData;
  if (!ReadSignedData(token, &signedData) || signedData.contentType != kOidTstInfo) {
    out->invalid = "it cannot be read";
    return;
  }
  const Bytes& info = signedData.contentBytes;
  const std::string der = DerProblem(info.data(), info.size());
  DerReader reader(info.data(), info.size()), tstInfo, imprint, algorithm, oid, digest, skipped;
  if (!der.empty()) {
    out->invalid = "its time stamp is not DER: " + der;
    return;
  }
  if (!reader.Enter(kDerSequence, &tstInfo) || !tstInfo.Enter(kDerInteger, &skipped) ||
      !tstInfo.Enter(kDerOid, &skipped) || !tstInfo.Enter(kDerSequence, &imprint) ||
      !imprint.Enter(kDerSequence, &algorithm) || !algorithm.Enter(kDerOid, &oid) ||
      !imprint.Enter(kDerOctetString, &digest) || !tstInfo.Enter(kDerInteger, &skipped) ||
      !ReadTime(tstInfo, &out->time)) {
    out->invalid = "its time stamp cannot be read";
    return;
  }
  const DigestKind kind = DigestNamed(oid.Bytes());
  if (kind == DigestKind::kUnsupported || digest.Bytes() != DigestOf(kind, signature)) {
    out->invalid = "it stamps another signature";
    return;
  }
  const Certificate* tsa = nullptr;
  out->invalid = CheckSignerInfo(signedData.signer, signedData.certificates, &kOidTstInfo, info, &tsa);
  if (out->invalid.empty()) {
    std::vector<Certificate> anchors = trust.trusted;
    anchors.insert(anchors.end(), trust.trustedTsa.begin(), trust.trustedTsa.end());
    const ChainResult chain = VerifyChain(*tsa, signedData.certificates, anchors, KeyUse::kTimeStamping, out->time);
    out->untrusted = chain.problem;
  }
}

// PKCS#9: a SignerInfo over the signer's signature, its certificate among
// the signature's, its time a signed signingTime.
void CheckCountersignature(DerReader signerInfo, const Bytes& signature, const std::vector<Certificate>& certificates,
                           const TrustSettings& trust, Timestamp* out) {
  SignerInfo counter;
  DerReader time;
  if (!ReadSignerInfo(signerInfo, &counter) || !AttributeValue(counter.attributes, kOidSigningTime, &time).empty() ||
      !ReadTime(time, &out->time)) {
    out->invalid = "it cannot be read";
    return;
  }
  const Certificate* tsa = nullptr;
  out->invalid = CheckSignerInfo(counter, certificates, nullptr, signature, &tsa);
  if (out->invalid.empty()) {
    std::vector<Certificate> anchors = trust.trusted;
    anchors.insert(anchors.end(), trust.trustedTsa.begin(), trust.trustedTsa.end());
    out->untrusted = VerifyChain(*tsa, certificates, anchors, KeyUse::kTimeStamping, out->time).problem;
  }
}

Timestamp FindTimestamp(const SignedData& signedData, const TrustSettings& trust) {
  Timestamp timestamp;
  DerReader value;
  const Bytes& signature = signedData.signer.signature;
  if (AttributeValue(signedData.signer.unsignedAttributes, kOidRfc3161Timestamp, &value) != "absent") {
    timestamp.present = true;
    CheckRfc3161(value, signature, trust, &timestamp);
  } else if (AttributeValue(signedData.signer.unsignedAttributes, kOidCountersignature, &value) != "absent") {
    timestamp.present = true;
    DerReader inside;
    if (value.Enter(kDerSequence, &inside)) {
      CheckCountersignature(inside, signature, signedData.certificates, trust, &timestamp);
    } else {
      timestamp.invalid = "it cannot be read";
    }
  }
  return timestamp;
}

// The digest (as named) of everything but the checksum, the certificate
// table's entry and the table itself (which sits past the headers, usually
// at the end).
Bytes AuthenticodeHash(DigestKind kind, const uint8_t* data, size_t size, const PeImage& image, size_t tableStart,
                       size_t tableEnd) {
  Digest hash(kind);
  const size_t afterChecksum = image.checksumOffset + kChecksumSize;
  const size_t afterEntry = image.certificateEntryOffset + kDataDirectoryEntrySize;
  hash.Update(data, image.checksumOffset);
  hash.Update(data + afterChecksum, image.certificateEntryOffset - afterChecksum);
  hash.Update(data + afterEntry, tableStart - afterEntry);
  hash.Update(data + tableEnd, size - tableEnd);
  return hash.Finish();
}

// The signer's part: its attributes vouch for the content, its signature
// for its attributes, a timestamp for when, its certificate (and, when
// asked, a chain) for it.
Signature CheckSigner(const SignedData& signedData, const TrustSettings& trust) {
  const SignerInfo& signer = signedData.signer;
  const Certificate* certificate = nullptr;
  const std::string problem =
      CheckSignerInfo(signer, signedData.certificates, &kOidSpcIndirectData, signedData.contentBytes, &certificate);
  if (!problem.empty()) return Invalid(problem);
  const Timestamp timestamp = FindTimestamp(signedData, trust);
  if (!timestamp.invalid.empty()) return Invalid("its timestamp does not hold: " + timestamp.invalid);
  SignatureDetails details;
  details.signer = certificate->subjectText;
  details.algorithm = certificate->keyText + " with " + DigestName(signer.digest);
  details.timestamped = timestamp.present;
  details.judgedAt = timestamp.present ? timestamp.time : trust.now;
  const ChainResult chain =
      VerifyChain(*certificate, signedData.certificates, trust.trusted, KeyUse::kCodeSigning, details.judgedAt);
  details.issuers = chain.issuers;
  if (!timestamp.untrusted.empty()) {
    return {SignatureState::kUntrusted, "its timestamp's signer is not trusted: " + timestamp.untrusted, details};
  }
  if (!chain.trusted) return {SignatureState::kUntrusted, chain.problem, details};
  return {SignatureState::kValid, "", details};
}

}  // namespace

Signature CheckSignature(const uint8_t* data, size_t size, const TrustSettings& trust) {
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
  if (!FindPkcs7(data + tableStart, tableSize, &pkcs7)) {
    return Invalid("its certificate table holds no Authenticode signature that can be read");
  }
  const std::string der = Pkcs7Problem(pkcs7);
  if (!der.empty()) return Invalid("its signature is not DER: " + der);
  SignedData signedData;
  if (!ReadSignedData(pkcs7, &signedData) || signedData.contentType != kOidSpcIndirectData) {
    return Invalid("its certificate table holds no Authenticode signature that can be read");
  }
  // SpcIndirectDataContent { data, DigestInfo { algorithm, digest }}.
  DerReader indirect = signedData.content, skipped, digestInfo, algorithm, oid, digest;
  if (!indirect.Enter(kDerSequence, &skipped) || !indirect.Enter(kDerSequence, &digestInfo) ||
      !digestInfo.Enter(kDerSequence, &algorithm) || !algorithm.Enter(kDerOid, &oid) ||
      !digestInfo.Enter(kDerOctetString, &digest)) {
    return Invalid("its certificate table holds no Authenticode signature that can be read");
  }
  const DigestKind kind = DigestNamed(oid.Bytes());
  if (kind == DigestKind::kUnsupported) return Invalid("it is signed with a digest other than SHA-256, SHA-384 or SHA-512");
  if (digest.Bytes() != AuthenticodeHash(kind, data, size, image, tableStart, tableStart + tableSize)) {
    return Invalid("the digest its signature records is not the file's: it changed after signing");
  }
  return CheckSigner(signedData, trust);
}

}  // namespace calder::check
