/// @file
/// UDP over the loopback interface, as the log control channel and the live trace use it.
#ifndef HBBTV_RYN_BASE_LOOPBACK_H
#define HBBTV_RYN_BASE_LOOPBACK_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

namespace hbbtv_ryn {

/// A socket that gets no datagram from the network. The caller closes it.
/// @return the descriptor; -1 with errno set.
inline int openLoopbackSocket() {
  const int opened = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  // The first send gives the socket a port on every address of the machine; the interface keeps it to
  // this one. Kernels before 5.7 grant that to root only.
  constexpr char kLoopback[] = "lo";
  if (opened != -1) (void)setsockopt(opened, SOL_SOCKET, SO_BINDTODEVICE, kLoopback, sizeof kLoopback);
  return opened;
}

/// A UDP port of 127.0.0.1.
inline sockaddr_in loopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_BASE_LOOPBACK_H
