#pragma once

#include <cstdint>
#include <string>

namespace calder {

class IICWriteRead;

constexpr int kConnectReplySize = 14;

// The Connect exchange the writer and the reader share: Connect, read,
// Connect again, read again into the same buffer. False when the device is
// not open (no second read, nothing to judge).
bool ExchangeConnect(IICWriteRead* channel, uint8_t reply[kConnectReplySize]);

// "00 0a ff " - lower-case, two digits, a blank after each byte.
std::string ReplyHexLine(const uint8_t* bytes, int count);

}  // namespace calder
