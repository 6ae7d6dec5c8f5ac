#include "driver/log_texts.h"

#include "base/tool_version.h"

namespace calder {

const char kToolVersion[] = CALDER_TOOL_VERSION;
const char kFinishLine[] = "finish---------------------------------------";
const char kCurrentVersionLine[] = "Current version: ";
const char kHelperNotifiedLine[] = "WM_USER + 1 message send ";
const char kHelperMissingLine[] = "can not find window";
const char kMainReturnedLine[] = "main returned: ";

}  // namespace calder
