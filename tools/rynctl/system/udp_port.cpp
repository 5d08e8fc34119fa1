#include "tools/rynctl/system/udp_port.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/loopback.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/system/process.h"
#include "tools/rynctl/system/wait.h"

namespace hbbtv_ryn::rynctl {

UdpPort::UdpPort(std::uint16_t port, const char* deed) : socket_(openLoopbackSocket()) {
  if (socket_ == -1) failErrno("cannot open a socket");
  // A burst must wait here while lines are printed. Root may exceed the system's limit.
  constexpr int kBuffer = 4 << 20;
  if (setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &kBuffer, sizeof kBuffer) == -1) {
    (void)setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &kBuffer, sizeof kBuffer);
  }
  const sockaddr_in address = loopbackAddress(port);
  if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
  const int error = errno;
  close(socket_);
  if (error != EADDRINUSE) {
    throw Failure(ExitCode::kNoPeer, "cannot listen on UDP port {} of 127.0.0.1: {}", port,
                  std::strerror(error));
  }
  const Process owner = findUdpPortOwner(port);
  throw Failure(ExitCode::kNoPeer,
                "UDP port {} is taken by {}; only one at a time can {}: end it and try again", port,
                owner.pid != 0 ? owner.text() : "another tool", deed);
}

UdpPort::~UdpPort() {
  close(socket_);
}

std::optional<UdpPort::Datagram> UdpPort::take(std::size_t most) const {
  std::string bytes(most, '\0');
  sockaddr_in sender{};
  socklen_t sender_length = sizeof sender;
  const ssize_t length = recvfrom(socket_, bytes.data(), bytes.size(), MSG_DONTWAIT,
                                  reinterpret_cast<sockaddr*>(&sender), &sender_length);
  if (length < 0) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(length));
  return Datagram{ntohs(sender.sin_port), std::move(bytes)};
}

void UdpPort::send(std::uint16_t port, const std::string& bytes) const {
  const sockaddr_in address = loopbackAddress(port);
  if (sendto(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
             sizeof address) == -1) {
    throw Failure(ExitCode::kNoPeer, "cannot send to UDP port {}: {}", port, std::strerror(errno));
  }
}

}  // namespace hbbtv_ryn::rynctl
