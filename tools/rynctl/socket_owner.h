/// @file
/// Which process holds a UDP port of this machine.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SOCKET_OWNER_H
#define HBBTV_RYN_TOOLS_RYNCTL_SOCKET_OWNER_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace hbbtv_ryn::rynctl {

struct SocketOwner {
  pid_t pid;
  std::string name;
};

/// Looks through /proc, as far as the user may: nothing when the process belongs to another user or has
/// ended.
std::optional<SocketOwner> findUdpSocketOwner(std::uint16_t port);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SOCKET_OWNER_H
