#include "check/crypto.h"

#include <cstdio>

#include <mbedtls/md.h>
#include <mbedtls/oid.h>
#include <mbedtls/pk.h>
#include <mbedtls/x509_crt.h>

#include "check/der_reader.h"

namespace calder::check {

namespace {

struct DigestAlgorithm {
  Bytes oid;
  DigestKind kind;
  mbedtls_md_type_t md;
  const char* name;
};
const DigestAlgorithm kDigests[] = {
    {{0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01}, DigestKind::kSha256, MBEDTLS_MD_SHA256, "SHA-256"},
    {{0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02}, DigestKind::kSha384, MBEDTLS_MD_SHA384, "SHA-384"},
    {{0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03}, DigestKind::kSha512, MBEDTLS_MD_SHA512, "SHA-512"},
};

const DigestAlgorithm* DigestEntry(DigestKind kind) {
  for (const DigestAlgorithm& entry : kDigests) {
    if (entry.kind == kind) return &entry;
  }
  return nullptr;
}

enum class KeyFamily { kRsa, kEcdsa };

// Signature algorithms by OID: signers name either the key's algorithm
// (the digest is then the signer's digest algorithm) or the signature's.
struct SignatureAlgorithm {
  Bytes oid;
  KeyFamily family;
  DigestKind digest;  // kUnsupported: the one the signer names
};
const SignatureAlgorithm kSignatureAlgorithms[] = {
    {{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01}, KeyFamily::kRsa, DigestKind::kUnsupported},
    {{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B}, KeyFamily::kRsa, DigestKind::kSha256},
    {{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0C}, KeyFamily::kRsa, DigestKind::kSha384},
    {{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0D}, KeyFamily::kRsa, DigestKind::kSha512},
    {{0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01}, KeyFamily::kEcdsa, DigestKind::kUnsupported},
    {{0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02}, KeyFamily::kEcdsa, DigestKind::kSha256},
    {{0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x03}, KeyFamily::kEcdsa, DigestKind::kSha384},
    {{0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x04}, KeyFamily::kEcdsa, DigestKind::kSha512},
};

constexpr size_t kMinRsaBits = 2048;
constexpr size_t kMaxRsaBits = 4096;
// A signature's own certificates are the signer's to fill; more than any
// real chain needs is refused rather than searched.
constexpr size_t kMaxPoolCertificates = 32;

// What every certificate of a chain may use.
const mbedtls_x509_crt_profile kProfile = {
    MBEDTLS_X509_ID_FLAG(MBEDTLS_MD_SHA256) | MBEDTLS_X509_ID_FLAG(MBEDTLS_MD_SHA384) |
        MBEDTLS_X509_ID_FLAG(MBEDTLS_MD_SHA512),
    MBEDTLS_X509_ID_FLAG(MBEDTLS_PK_RSA) | MBEDTLS_X509_ID_FLAG(MBEDTLS_PK_ECKEY) |
        MBEDTLS_X509_ID_FLAG(MBEDTLS_PK_ECDSA),
    MBEDTLS_X509_ID_FLAG(MBEDTLS_ECP_DP_SECP256R1) | MBEDTLS_X509_ID_FLAG(MBEDTLS_ECP_DP_SECP384R1),
    kMinRsaBits,
};

// mbedTLS's certificate list, freed with it.
class CertificateList {
 public:
  CertificateList() { mbedtls_x509_crt_init(&list_); }
  ~CertificateList() { mbedtls_x509_crt_free(&list_); }
  CertificateList(const CertificateList&) = delete;
  CertificateList& operator=(const CertificateList&) = delete;
  bool Add(const Bytes& der) { return mbedtls_x509_crt_parse_der(&list_, der.data(), der.size()) == 0; }
  mbedtls_x509_crt* get() { return &list_; }

 private:
  mbedtls_x509_crt list_;
};

int64_t SecondsAt(const mbedtls_x509_time& time) {
  return SecondsOf(time.year, time.mon, time.day, time.hour, time.min, time.sec);
}

std::string NameText(const mbedtls_x509_name& name) {
  char text[512];
  return mbedtls_x509_dn_gets(text, sizeof text, &name) < 0 ? std::string("(a name too long to show)") : text;
}

// The key's kind, and whether calder-check accepts it.
bool KeyKind(const mbedtls_pk_context& pk, KeyFamily* family, std::string* text) {
  const size_t bits = mbedtls_pk_get_bitlen(&pk);
  if (mbedtls_pk_get_type(&pk) == MBEDTLS_PK_RSA) {
    *family = KeyFamily::kRsa;
    *text = "RSA-" + std::to_string(bits);
    return bits >= kMinRsaBits && bits <= kMaxRsaBits;
  }
  if (mbedtls_pk_can_do(&pk, MBEDTLS_PK_ECDSA)) {
    *family = KeyFamily::kEcdsa;
    const mbedtls_ecp_group_id curve = mbedtls_pk_ec(pk)->grp.id;
    *text = curve == MBEDTLS_ECP_DP_SECP256R1   ? "ECDSA P-256"
            : curve == MBEDTLS_ECP_DP_SECP384R1 ? "ECDSA P-384"
                                                : "ECDSA on another curve";
    return curve == MBEDTLS_ECP_DP_SECP256R1 || curve == MBEDTLS_ECP_DP_SECP384R1;
  }
  *text = "another kind of key";
  return false;
}

struct VerifyContext {
  int64_t time;
  std::vector<std::string> subjects;  // by depth
  std::string problem;
};

// mbedTLS judges validity by the machine's clock; the chain is judged at
// the signature's time instead.
int JudgeAtTime(void* data, mbedtls_x509_crt* certificate, int depth, uint32_t* flags) {
  VerifyContext& context = *static_cast<VerifyContext*>(data);
  *flags &= ~static_cast<uint32_t>(MBEDTLS_X509_BADCERT_EXPIRED | MBEDTLS_X509_BADCERT_FUTURE);
  const std::string subject = NameText(certificate->subject);
  if (context.subjects.size() <= static_cast<size_t>(depth)) context.subjects.resize(depth + 1);
  context.subjects[depth] = subject;
  const int64_t from = SecondsAt(certificate->valid_from), to = SecondsAt(certificate->valid_to);
  if (context.time < from || context.time > to) {
    *flags |= MBEDTLS_X509_BADCERT_OTHER;
    context.problem = "the certificate \"" + subject + "\" was not valid at " + TimeText(context.time) +
                      " (valid from " + TimeText(from) + " to " + TimeText(to) + ")";
  }
  KeyFamily family;
  std::string key;
  if (!KeyKind(certificate->pk, &family, &key)) {
    *flags |= MBEDTLS_X509_BADCERT_OTHER;
    context.problem = "the certificate \"" + subject + "\" has a key calder-check does not accept (" + key + ")";
  }
  return 0;
}

const char* UsageOid(KeyUse usage, size_t* size) {
  *size = usage == KeyUse::kCodeSigning ? MBEDTLS_OID_SIZE(MBEDTLS_OID_CODE_SIGNING)
                                       : MBEDTLS_OID_SIZE(MBEDTLS_OID_TIME_STAMPING);
  return usage == KeyUse::kCodeSigning ? MBEDTLS_OID_CODE_SIGNING : MBEDTLS_OID_TIME_STAMPING;
}

}  // namespace

DigestKind DigestNamed(const Bytes& oid) {
  for (const DigestAlgorithm& entry : kDigests) {
    if (entry.oid == oid) return entry.kind;
  }
  return DigestKind::kUnsupported;
}

const char* DigestName(DigestKind kind) {
  const DigestAlgorithm* entry = DigestEntry(kind);
  return entry != nullptr ? entry->name : "another digest";
}

struct Digest::Context {
  mbedtls_md_context_t md;
};

Digest::Digest(DigestKind kind) : context_(new Context) {
  mbedtls_md_init(&context_->md);
  const DigestAlgorithm* entry = DigestEntry(kind);
  if (entry == nullptr || mbedtls_md_setup(&context_->md, mbedtls_md_info_from_type(entry->md), 0) != 0 ||
      mbedtls_md_starts(&context_->md) != 0) {
    mbedtls_md_free(&context_->md);
    mbedtls_md_init(&context_->md);
  }
}

Digest::~Digest() { mbedtls_md_free(&context_->md); }

void Digest::Update(const uint8_t* data, size_t size) {
  if (context_->md.md_info != nullptr) mbedtls_md_update(&context_->md, data, size);
}

Bytes Digest::Finish() {
  if (context_->md.md_info == nullptr) return {};
  Bytes out(mbedtls_md_get_size(context_->md.md_info));
  if (mbedtls_md_finish(&context_->md, out.data()) != 0) return {};
  return out;
}

Bytes DigestOf(DigestKind kind, const Bytes& bytes) {
  Digest digest(kind);
  digest.Update(bytes.data(), bytes.size());
  return digest.Finish();
}

bool ReadCertificate(const uint8_t* der, size_t size, Certificate* out, std::string* problem) {
  std::string why = DerProblem(der, size);
  CertificateList list;
  if (why.empty() && !list.Add(Bytes(der, der + size))) why = "mbedTLS cannot read it";
  if (!why.empty()) {
    if (problem != nullptr) *problem = why;
    return false;
  }
  const mbedtls_x509_crt& crt = *list.get();
  out->der.assign(der, der + size);
  out->serial.assign(crt.serial.p, crt.serial.p + crt.serial.len);
  out->issuer.assign(crt.issuer_raw.p, crt.issuer_raw.p + crt.issuer_raw.len);
  out->subject.assign(crt.subject_raw.p, crt.subject_raw.p + crt.subject_raw.len);
  out->subjectText = NameText(crt.subject);
  KeyFamily family;
  KeyKind(crt.pk, &family, &out->keyText);
  out->notBefore = SecondsAt(crt.valid_from);
  out->notAfter = SecondsAt(crt.valid_to);
  return true;
}

bool VerifySignature(const Certificate& certificate, const Bytes& algorithm, DigestKind digest, const Bytes& hash,
                     const Bytes& signature, std::string* problem) {
  CertificateList list;
  KeyFamily family;
  std::string key;
  if (!list.Add(certificate.der) || !KeyKind(list.get()->pk, &family, &key)) {
    *problem = "its signing certificate's key is not RSA of 2048 to 4096 bits or ECDSA P-256 or P-384";
    return false;
  }
  const SignatureAlgorithm* named = nullptr;
  for (const SignatureAlgorithm& entry : kSignatureAlgorithms) {
    if (entry.oid == algorithm) named = &entry;
  }
  const DigestAlgorithm* md = DigestEntry(digest);
  if (named == nullptr || named->family != family || md == nullptr ||
      (named->digest != DigestKind::kUnsupported && named->digest != digest)) {
    *problem = "its signature algorithm is not RSA or ECDSA with SHA-256, SHA-384 or SHA-512 for its " + key + " key";
    return false;
  }
  if (family == KeyFamily::kRsa && signature.size() != mbedtls_pk_get_len(&list.get()->pk)) {
    *problem = "its RSA signature is not as long as its key";
    return false;
  }
  if (family == KeyFamily::kEcdsa) {
    DerReader der(signature.data(), signature.size()), pair;
    Bytes r, s;
    if (!DerProblem(signature.data(), signature.size()).empty() || !der.Enter(kDerSequence, &pair) ||
        der.size() != 0 || !ReadUnsigned(&pair, &r) || !ReadUnsigned(&pair, &s) || pair.size() != 0) {
      *problem = "its ECDSA signature is not two DER integers";
      return false;
    }
  }
  if (hash.size() != mbedtls_md_get_size(mbedtls_md_info_from_type(md->md)) ||
      mbedtls_pk_verify(&list.get()->pk, md->md, hash.data(), hash.size(), signature.data(), signature.size()) != 0) {
    *problem = "its signature does not verify with the signing certificate's key";
    return false;
  }
  return true;
}

ChainResult VerifyChain(const Certificate& signer, const std::vector<Certificate>& pool,
                        const std::vector<Certificate>& trusted, KeyUse usage, int64_t time) {
  ChainResult result;
  CertificateList chain;
  if (!chain.Add(signer.der)) {
    result.problem = "its signing certificate cannot be read";
    return result;
  }
  mbedtls_x509_crt* leaf = chain.get();
  size_t size = 0;
  const char* oid = UsageOid(usage, &size);
  if (mbedtls_x509_crt_check_extended_key_usage(leaf, oid, size) != 0 ||
      mbedtls_x509_crt_check_key_usage(leaf, MBEDTLS_X509_KU_DIGITAL_SIGNATURE) != 0) {
    result.problem = std::string("its signing certificate is not for ") +
                     (usage == KeyUse::kCodeSigning ? "code signing" : "time stamping") + " (its key usage)";
    return result;
  }
  VerifyContext context{time, {}, ""};
  if (trusted.empty()) {
    uint32_t flags = 0;
    JudgeAtTime(&context, leaf, 0, &flags);
    if (signer.issuer != signer.subject) result.issuers.push_back(NameText(leaf->issuer));
    result.problem = context.problem;
    result.trusted = flags == 0;
    return result;
  }
  if (pool.size() > kMaxPoolCertificates) {
    result.problem = "its signature carries more certificates than a chain needs (" + std::to_string(pool.size()) + ")";
    return result;
  }
  // mbedTLS looks for an issuer only after the certificate in the list:
  // the pool twice gives every certificate all the others after it.
  for (int round = 0; round < 2; ++round) {
    for (const Certificate& certificate : pool) {
      if (certificate.der != signer.der) chain.Add(certificate.der);
    }
  }
  CertificateList anchors;
  for (const Certificate& certificate : trusted) anchors.Add(certificate.der);
  uint32_t flags = 0;
  const int verified = mbedtls_x509_crt_verify_with_profile(leaf, anchors.get(), nullptr, &kProfile, nullptr, &flags,
                                                            JudgeAtTime, &context);
  result.issuers.assign(context.subjects.size() > 1 ? context.subjects.begin() + 1 : context.subjects.end(),
                        context.subjects.end());
  if (verified == 0 && flags == 0) {
    result.trusted = true;
  } else if (!context.problem.empty()) {
    result.problem = context.problem;
  } else if (flags & (MBEDTLS_X509_BADCERT_BAD_MD | MBEDTLS_X509_BADCERT_BAD_PK | MBEDTLS_X509_BADCERT_BAD_KEY)) {
    result.problem = "a certificate of its chain is signed with a digest, algorithm or key calder-check does not accept";
  } else {
    result.problem = "its signing certificate does not chain to a trusted certificate";
  }
  return result;
}

int64_t SecondsOf(int year, int month, int day, int hour, int minute, int second) {
  const int64_t y = year - (month <= 2 ? 1 : 0);
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yearOfEra = y - era * 400;
  const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  const int64_t days = era * 146097 + dayOfEra - 719468;
  return days * 86400 + hour * 3600 + minute * 60 + second;
}

std::string TimeText(int64_t time) {
  const int64_t days = (time >= 0 ? time : time - 86399) / 86400;
  const int64_t secondOfDay = time - days * 86400;
  const int64_t z = days + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t dayOfEra = z - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t mp = (5 * dayOfYear + 2) / 153;
  const int64_t day = dayOfYear - (153 * mp + 2) / 5 + 1;
  const int64_t month = mp < 10 ? mp + 3 : mp - 9;
  const int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
  char text[128];
  std::snprintf(text, sizeof text, "%04lld-%02lld-%02lld %02lld:%02lld:%02lld UTC", static_cast<long long>(year),
                static_cast<long long>(month), static_cast<long long>(day),
                static_cast<long long>(secondOfDay / 3600), static_cast<long long>(secondOfDay / 60 % 60),
                static_cast<long long>(secondOfDay % 60));
  return text;
}

}  // namespace calder::check
