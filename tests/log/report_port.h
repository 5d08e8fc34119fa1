/// @file
/// The tool's end of the log control channel, with no code of the library in it.
#ifndef HBBTV_RYN_TESTS_LOG_REPORT_PORT_H
#define HBBTV_RYN_TESTS_LOG_REPORT_PORT_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>

#include "support/deadline.h"

namespace hbbtv_ryn::test {

class ReportPort {
 public:
  struct Report {
    std::uint16_t port;
    std::string names;
  };

  ReportPort() : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = loopback(54321);
    const timeval deadline{kDeadline.count(), 0};
    if (m_socket < 0 || setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline) != 0 ||
        bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot listen for reports");
    }
  }
  ~ReportPort() { close(m_socket); }
  ReportPort(const ReportPort&) = delete;
  ReportPort& operator=(const ReportPort&) = delete;

  Report next() {
    char names[2000];
    sockaddr_in sender{};
    socklen_t sender_length = sizeof sender;
    const ssize_t length =
        recvfrom(m_socket, names, sizeof names, 0, reinterpret_cast<sockaddr*>(&sender), &sender_length);
    if (length < 0) throw std::system_error(errno, std::generic_category(), "no report");
    return {ntohs(sender.sin_port), std::string(names, static_cast<std::size_t>(length))};
  }

  /// Takes reports until one lists exactly these names.
  void awaitNames(const std::string& names) {
    waitUntil(("a report lists " + names).c_str(), [&] { return next().names == names; });
  }

  void send(std::uint16_t port, const std::string& bytes) {
    const sockaddr_in address = loopback(port);
    const ssize_t sent = sendto(m_socket, bytes.data(), bytes.size(), 0,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (sent < 0) throw std::system_error(errno, std::generic_category(), "cannot send a command");
  }

  /// A whole command: the text, zeros up to byte 1023, and the value.
  void command(std::uint16_t port, std::string text, int value) {
    text.resize(1024);
    send(port, text + static_cast<char>(value));
  }

  static sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

 private:
  int m_socket;
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_LOG_REPORT_PORT_H
