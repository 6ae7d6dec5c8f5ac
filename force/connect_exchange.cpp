#include "force/connect_exchange.h"

#include <cstdio>

#include "force/boot_loader_packets.h"
#include "force/iic_write_read.h"

namespace calder {

ConnectVerdict ExchangeConnect(IICWriteRead* channel, std::string* replyLine) {
  uint8_t reply[kConnectReplyLength] = {};
  channel->SendPacket(kConnect, nullptr, 0);
  channel->ReadReply(reply, kConnectReplyLength);
  // Only the answer to the second Connect is judged.
  channel->SendPacket(kConnect, nullptr, 0);
  if (!channel->deviceOpen) return ConnectVerdict::kNotOpen;
  channel->ReadReply(reply, kConnectReplyLength);
  *replyLine = ReplyHexLine(reply, kConnectReplyLength);
  return ConnectReplyOk(reply) ? ConnectVerdict::kOk : ConnectVerdict::kWrongReply;
}

std::string ReplyHexLine(const uint8_t* bytes, int count) {
  std::string line;
  char cell[4];
  for (int i = 0; i < count; ++i) {
    std::snprintf(cell, sizeof cell, "%02x ", bytes[i]);
    line += cell;
  }
  return line;
}

}  // namespace calder
