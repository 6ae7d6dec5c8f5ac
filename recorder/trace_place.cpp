#include "recorder/trace_place.h"

namespace calder::recorder {

const char kTraceFolder[] = "C:\\ProgramData\\KORU\\KoruDeviceService\\log";
const char kTraceTrustRoot[] = "C:\\ProgramData\\KORU";
const wchar_t kVendorFolder[] = L"vendor";

}  // namespace calder::recorder
