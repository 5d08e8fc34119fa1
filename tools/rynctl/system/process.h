// What /proc tells of another process.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_PROCESS_H
#define HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_PROCESS_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace hbbtv_ryn::rynctl {

struct Process {
  pid_t pid = 0;  // 0: none, or one that cannot be seen from here
  bool alive = false;
  std::string name;  // empty when it is not known any more

  /// "name (pid)", "pid 12, gone" or "-".
  std::string text() const;
};

/// The process that had this id, or whose thread had it, at that time. Ids are used again: one that has
/// started later is another process, and the one that is meant is gone.
Process processAt(pid_t pid, std::time_t seen);

/// The process that holds a UDP port. Looks through /proc, as far as the user may: none when the process
/// belongs to another user or has ended.
Process findUdpPortOwner(std::uint16_t port);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_PROCESS_H
