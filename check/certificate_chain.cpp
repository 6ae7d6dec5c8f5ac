#include "check/certificate_chain.h"

#include <deque>
#include <set>
#include <utility>

#include "base/sha256.h"

namespace calder::check {

namespace {

constexpr int kMaxLinks = 5;
// A signature's own certificate set is the signer's to fill: past this many
// signature checks the chain is refused rather than searched.
constexpr int kMaxSignatureChecks = 32;

bool IsTrusted(const Certificate& certificate, const std::vector<Certificate>& trusted) {
  for (const Certificate& anchor : trusted) {
    if (anchor.der == certificate.der) return true;
  }
  return false;
}

}  // namespace

bool ChainsToTrusted(const Certificate& signer, const std::vector<Certificate>& pool,
                     const std::vector<Certificate>& trusted, std::string* problem) {
  std::vector<const Certificate*> issuers;
  for (const std::vector<Certificate>* list : {&pool, &trusted}) {
    for (const Certificate& certificate : *list) issuers.push_back(&certificate);
  }
  // Breadth first, each certificate once: the shortest chain wins and a loop
  // ends where it closes.
  std::deque<std::pair<const Certificate*, int>> queue = {{&signer, 0}};
  std::set<std::vector<uint8_t>> seen = {signer.der};
  int checks = 0;
  while (!queue.empty()) {
    const auto [certificate, links] = queue.front();
    queue.pop_front();
    if (IsTrusted(*certificate, trusted)) return true;
    if (links == kMaxLinks) continue;
    Sha256 hash;
    hash.Update(certificate->tbs.data(), certificate->tbs.size());
    const std::array<uint8_t, 32> digest = hash.Finish();
    for (const Certificate* issuer : issuers) {
      if (issuer->subject != certificate->issuer || !issuer->isCa || seen.count(issuer->der) != 0) continue;
      if (++checks > kMaxSignatureChecks) {
        *problem = "its certificates hold too many candidate issuers to decide the chain";
        return false;
      }
      std::string why;
      if (!VerifySha256Signature(issuer->key, certificate->signatureAlgorithm, digest, certificate->signature, &why)) {
        continue;
      }
      seen.insert(issuer->der);
      queue.emplace_back(issuer, links + 1);
    }
  }
  *problem = "its signing certificate does not chain to a trusted certificate";
  return false;
}

}  // namespace calder::check
