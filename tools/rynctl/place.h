/// @file
/// Whose place on the queues it is. A queue has one client process and one server: a second one would take
/// answers and messages away from the first.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_PLACE_H
#define HBBTV_RYN_TOOLS_RYNCTL_PLACE_H

#include <vector>

#include "queue_state.h"

namespace hbbtv_ryn::rynctl {

/// What a command is about to be.
struct Place {
  enum class Role { kClient, kServer };
  Role role;
  key_t queue;  // the key of its requests
};

/// Throws Failure (NoPeer) that names the process, when a living one other than this holds one of the
/// places. The client's place is held by whoever has sent to the queue last, the server itself excepted,
/// and by the endpoint of its side, which may send at any time; a rynctl that only listens is none.
void requireFree(const std::vector<Place>& places, bool force);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_PLACE_H
