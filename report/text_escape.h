#pragma once

#include <string>
#include <string_view>

namespace calder::report {

// Paths and log text may hold bytes of the machine's code page that are not
// UTF-8; those bytes are read as Latin-1 so JSON and HTML stay valid.
std::string ToUtf8(std::string_view text);
void AppendHtmlText(std::string_view text, std::string* out);

}  // namespace calder::report
