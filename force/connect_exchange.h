#pragma once

#include <cstdint>
#include <string>

namespace calder {

class IICWriteRead;

enum class ConnectVerdict { kNotOpen, kOk, kWrongReply };

// The Connect exchange the writer and the reader share: Connect, read,
// Connect again, read again into the same buffer, and judge that second
// reply. *replyLine gets it as "00 0a ff ... " unless the device is not open
// (then there is no second read and nothing to judge or log).
ConnectVerdict ExchangeConnect(IICWriteRead* channel, std::string* replyLine);

// "00 0a ff " - lower-case, two digits, a blank after each byte.
std::string ReplyHexLine(const uint8_t* bytes, int count);

}  // namespace calder
