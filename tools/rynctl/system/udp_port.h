// A UDP port of 127.0.0.1 that one tool of the machine can hold at a time.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_UDP_PORT_H
#define HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_UDP_PORT_H

#include <cstdint>
#include <optional>
#include <string>

namespace hbbtv_ryn::rynctl {

class UdpPort {
 public:
  struct Datagram {
    std::uint16_t sender;
    std::string bytes;
  };

  /// Throws Failure (NoPeer) that names the process which holds the port.
  /// @param deed  what only its holder can do: "hear the reports".
  UdpPort(std::uint16_t port, const char* deed);
  ~UdpPort();
  UdpPort(const UdpPort&) = delete;
  UdpPort& operator=(const UdpPort&) = delete;

  /// To be waited for as input.
  int descriptor() const { return socket_; }
  /// The next datagram that is there, cut to `most` bytes. Does not wait.
  std::optional<Datagram> take(std::size_t most) const;
  /// Throws Failure (NoPeer).
  void send(std::uint16_t port, const std::string& bytes) const;

 private:
  int socket_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_UDP_PORT_H
