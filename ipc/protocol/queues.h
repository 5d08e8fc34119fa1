/// @file
/// The three queues that join the two processes. Each has one server, which receives, and one client.
#ifndef HBBTV_RYN_IPC_PROTOCOL_QUEUES_H
#define HBBTV_RYN_IPC_PROTOCOL_QUEUES_H

#include <sys/types.h>

#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn {

/// A queue that carries synchronous messages has its reply queue at the next key.
inline constexpr key_t kRequestQueueKey = static_cast<key_t>(0x92101081U);       // plug-in to browser
inline constexpr key_t kNotificationQueueKey = static_cast<key_t>(0x92101091U);  // browser to plug-in
inline constexpr key_t kQueryQueueKey = static_cast<key_t>(0x92101093U);         // browser to plug-in

constexpr key_t queueOf(const Message& message) {
  if (message.direction == Direction::kToBrowser) return kRequestQueueKey;
  return message.delivery == Delivery::kSync ? kQueryQueueKey : kNotificationQueueKey;
}

inline constexpr long kChannel = 1;

/// Whether a handle needs a reply queue.
constexpr int withReply(key_t queue) {
  return queue == kNotificationQueueKey ? 0 : 1;
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PROTOCOL_QUEUES_H
