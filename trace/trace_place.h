#pragma once

namespace calder {

// Traces lie beside calder.exe's run logs, under the same trust root: every
// folder from the root down is checked before the recorder writes there.
extern const char kTraceFolder[];
extern const char kTraceTrustRoot[];

// The vendor's own library sits in this folder beside the recorder.
extern const wchar_t kVendorFolder[];

}  // namespace calder
