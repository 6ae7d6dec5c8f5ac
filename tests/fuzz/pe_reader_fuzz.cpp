// The package readers and the recorders' import-name reader on arbitrary
// bytes: no read outside the buffer (ASan sees the input in an exact-size
// copy), the same answer twice, and names that are whole strings inside the
// file; import names are plain file names. The same bytes also go through the
// signature reader (trusting the first certificate found in them, so that
// chains are searched too), the strict DER walk, and, as text, through both
// manifest readers.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "check/authenticode.h"
#include "check/crypto.h"
#include "check/der_reader.h"
#include "check/package_manifest.h"
#include "check/pe_reader.h"
#include "platform/pe_import_names.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

void Check(bool ok, const char* what) { calder::fuzz::Check(ok, "pe_reader_fuzz", what); }

bool Same(const calder::check::PeImage& a, const calder::check::PeImage& b) {
  return a.valid == b.valid && a.problem == b.problem && a.machine == b.machine &&
         a.characteristics == b.characteristics && a.subsystem == b.subsystem &&
         a.optionalMagic == b.optionalMagic && a.exportNames == b.exportNames;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<uint8_t> bytes(data, data + size);
  const calder::check::PeImage first = calder::check::ReadPeImage(bytes.data(), bytes.size());
  const calder::check::PeImage second = calder::check::ReadPeImage(bytes.data(), bytes.size());
  Check(Same(first, second), "two reads of the same bytes differ");
  Check(first.valid != !first.problem.empty(), "validity and problem disagree");
  Check(first.valid || first.exportNames.empty(), "an invalid image has export names");
  for (const std::string& name : first.exportNames) {
    Check(name.find('\0') == std::string::npos, "a name holds a NUL");
    const std::vector<uint8_t> needle(name.begin(), name.end());
    Check(std::search(bytes.begin(), bytes.end(), needle.begin(), needle.end()) != bytes.end(),
          "a name is not in the file");
  }
  std::vector<std::string> imports;
  const bool read = calder::ReadImportNames(bytes.data(), bytes.size(), &imports);
  for (const std::string& name : imports) {
    Check(read && !name.empty() && name.find_first_of("\\/:") == std::string::npos,
          "an import name is not a plain file name");
  }
  if (calder::check::IsWindows64Dll(first) || calder::check::IsWindows64GuiProgram(first)) {
    Check(first.valid && first.machine == calder::check::kMachineAmd64, "accepted a foreign image");
  }
  calder::check::TrustSettings trust;
  trust.now = 1776852900;  // a fixed time: the same answer for the same bytes
  for (size_t at = 0; at + 1 < bytes.size(); ++at) {
    // A certificate's length always takes two bytes.
    if (bytes[at] != 0x30 || bytes[at + 1] != 0x82) continue;
    calder::check::DerReader rest(bytes.data() + at, bytes.size() - at), inside, whole;
    calder::check::Certificate certificate;
    if (rest.Enter(calder::check::kDerSequence, &inside, &whole) &&
        calder::check::ReadCertificate(whole.data(), whole.size(), &certificate)) {
      trust.trusted.push_back(certificate);
      break;
    }
  }
  calder::check::CheckSignature(bytes.data(), bytes.size(), trust);
  calder::check::DerReader whole(bytes.data(), bytes.size()), inside;
  if (calder::check::DerProblem(bytes.data(), bytes.size()).empty()) {
    Check(whole.Enter(bytes.empty() ? 0 : bytes[0], &inside) && whole.size() == 0, "DER that cannot be entered");
  }
  const std::string text(bytes.begin(), bytes.end());
  calder::check::CheckManifests({&text, &text}, {{"calder.exe", std::string(64, 'a'), false, std::nullopt}});
  return 0;
}
