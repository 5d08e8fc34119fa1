// Whose place on the queues it is. A queue has one client process and one server: a second one would take
// answers and messages away from the first.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_PLACE_H
#define HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_PLACE_H

#include "tools/rynctl/system/queue_state.h"

namespace hbbtv_ryn::rynctl {

/// What a command is about to be on a queue of requests.
enum class Role { kClient, kServer };

/// Throws Failure (NoPeer) that names the process, when a living one other than this holds the place. The
/// client's place is held by whoever has sent to the queue last, the server itself excepted, and by the
/// endpoint of its side, which may send at any time; a rynctl that only listens is none.
void requireFree(Role role, const QueueName& queue);
/// The same for every place of a side.
void requireFree(Side side);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_PLACE_H
