#pragma once

namespace calder {

class CControlUI;

// The progress window's custom-control hook: "CircleProgress", "LottieUI" and
// "FirmProgressUI", compared exactly; any other tag gives null.
CControlUI* CreateProgressControl(const wchar_t* tag);

}  // namespace calder
