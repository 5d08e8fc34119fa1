/// @file
/// The tool's end of the log control channel and of the trace.
#ifndef HBBTV_RYN_TESTS_LOG_LOOPBACK_SOCKET_H
#define HBBTV_RYN_TESTS_LOG_LOOPBACK_SOCKET_H

#include <unistd.h>

#include <cstdint>
#include <string>

#include "base/loopback.h"
#include "tools/support/deadline.h"

namespace hbbtv_ryn::test {

constexpr std::uint16_t kReportPort = 54321;
constexpr std::uint16_t kTracePort = 54322;

/// A UDP socket of 127.0.0.1.
class LoopbackSocket {
 public:
  struct Datagram {
    std::uint16_t port;  // of the sender
    std::string bytes;
  };

  /// @param port  0: any.
  explicit LoopbackSocket(std::uint16_t port = 0) : socket_(openLoopbackSocket()) {
    const sockaddr_in own = loopbackAddress(port);
    waitUntil("the port is free",
              [&] { return bind(socket_, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0; });
  }
  ~LoopbackSocket() { close(socket_); }
  LoopbackSocket(const LoopbackSocket&) = delete;
  LoopbackSocket& operator=(const LoopbackSocket&) = delete;

  /// From now on no more than a few datagrams wait, whatever the machine's default is.
  void keepFew() {
    const int bytes = 16384;
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
  }

  void send(std::uint16_t port, const std::string& bytes) {
    const sockaddr_in peer = loopbackAddress(port);
    waitUntil("the datagram is sent", [&] {
      return sendto(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&peer),
                    sizeof peer) >= 0;
    });
  }

  Datagram next() {
    std::string bytes(65536, '\0');
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    ssize_t size = -1;
    waitUntil("a datagram comes", [&] {
      size = recvfrom(socket_, bytes.data(), bytes.size(), MSG_DONTWAIT,
                      reinterpret_cast<sockaddr*>(&sender), &length);
      return size >= 0;
    });
    return {ntohs(sender.sin_port), bytes.substr(0, static_cast<std::size_t>(size))};
  }

  /// @return how many waited.
  int discardWaiting() {
    int count = 0;
    for (char byte = 0; recv(socket_, &byte, 1, MSG_DONTWAIT) > 0;) ++count;
    return count;
  }

 private:
  int socket_;
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_LOG_LOOPBACK_SOCKET_H
