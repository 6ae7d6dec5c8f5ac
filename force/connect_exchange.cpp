#include "force/connect_exchange.h"

#include <cstdio>

#include "force/boot_loader_packets.h"
#include "force/iic_write_read.h"

namespace calder {

bool ExchangeConnect(IICWriteRead* channel, uint8_t reply[kConnectReplySize]) {
  channel->SendPacket(kConnect, nullptr, 0);
  for (int i = 0; i < kConnectReplySize; ++i) reply[i] = 0;
  channel->ReadReply(reply, kConnectReplyLength);
  // Only the answer to the second Connect is judged.
  channel->SendPacket(kConnect, nullptr, 0);
  if (!channel->deviceOpen) return false;
  channel->ReadReply(reply, kConnectReplyLength);
  return true;
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
