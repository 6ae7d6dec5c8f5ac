#include "trace/trace_place.h"

namespace calder {

const char kTraceFolder[] = "C:\\ProgramData\\KORU\\KoruDeviceService\\log";
const char kTraceTrustRoot[] = "C:\\ProgramData\\KORU";
const wchar_t kVendorFolder[] = L"vendor";

}  // namespace calder
