// What waits on a queue, read without taking it off.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_WAITING_MESSAGES_H
#define HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_WAITING_MESSAGES_H

#include <string>
#include <vector>

#include "tools/rynctl/system/queue_state.h"

namespace hbbtv_ryn::rynctl {

struct WaitingMessage {
  std::string kind;  // "one-way", "request", …; "?" when it is too short to have one
  unsigned records = 0;
  std::string text;   // as far as its records are there
  std::string fault;  // what is wrong with it; empty when nothing is
};

/// The messages in front of the queue, at most `most` of them; 0: all. While a reader takes messages off,
/// some may be missed. Throws Failure (Refused) where the kernel cannot do it.
std::vector<WaitingMessage> peek(const QueueState& queue, std::size_t most);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_WAITING_MESSAGES_H
