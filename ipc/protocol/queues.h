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

/// What a handle is created with: words, not bare integers, at the call.
inline constexpr int kWithReply = 1;
inline constexpr int kOneWayOnly = 0;

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PROTOCOL_QUEUES_H
