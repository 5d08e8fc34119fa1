#include <hbbtv_ryn/ipc.h>
#include <sys/socket.h>

#include <array>
#include <vector>

#include "check.h"
#include "peer_transport.h"

namespace bench {
namespace {

class Seqpacket final : public SymmetricLink {
 public:
  Seqpacket() { check(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sockets_.data()), "socketpair"); }

  void openReceiver() override { socket_ = sockets_[0]; }
  void openSender() override { socket_ = sockets_[1]; }

 protected:
  void send(const std::string& text) override {
    check(::send(socket_, text.data(), text.size(), MSG_NOSIGNAL), "send");
  }
  void receive(std::string& text) override {
    const ssize_t size = check(recv(socket_, buffer_.data(), buffer_.size(), 0), "recv");
    text.assign(buffer_.data(), static_cast<std::size_t>(size));
  }

 private:
  std::array<int, 2> sockets_{};
  int socket_ = -1;
  std::vector<char> buffer_ = std::vector<char>(IPC_MAX_MESSAGE);
};

}  // namespace

std::unique_ptr<Link> makeSeqpacket() {
  return std::make_unique<Seqpacket>();
}

}  // namespace bench
