// What the servers of a queue show of their life.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_SERVERS_H
#define HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_SERVERS_H

#include <sys/types.h>

#include "tools/rynctl/system/process.h"

namespace hbbtv_ryn::rynctl {

struct Servers {
  int count = -1;  // alive on the queue; -1: none has shown its life since the system started
  Process latest;  // the one that has started last, when one is alive

  bool known() const { return count >= 0; }
  bool alive() const { return count > 0; }
};

/// Throws Failure (NoPeer) when it may not be looked at.
Servers serversOf(key_t request_key);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_SERVERS_H
