#include <hbbtv_ryn/ipc.h>
#include <zmq.h>

#include <stdexcept>
#include <vector>

#include "peer_transport.h"

namespace bench {
namespace {

int checkZeroMq(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + zmq_strerror(zmq_errno()));
  return result;
}

class ZeroMq final : public SymmetricLink {
 public:
  explicit ZeroMq(const std::string& directory) : address_("ipc://" + directory + "/zeromq") {}

  void openReceiver() override {
    makeSocket();
    checkZeroMq(zmq_bind(socket_, address_.c_str()), "zmq_bind");
  }
  void openSender() override {
    makeSocket();
    checkZeroMq(zmq_connect(socket_, address_.c_str()), "zmq_connect");
  }

 protected:
  void send(const std::string& text) override {
    checkZeroMq(zmq_send(socket_, text.data(), text.size(), 0), "zmq_send");
  }
  void receive(std::string& text) override {
    const int size = checkZeroMq(zmq_recv(socket_, buffer_.data(), buffer_.size(), 0), "zmq_recv");
    text.assign(buffer_.data(), static_cast<std::size_t>(size));
  }

 private:
  // Its threads do not survive a fork, so it starts in each process. Both end by _exit() or a signal.
  void makeSocket() {
    socket_ = zmq_socket(zmq_ctx_new(), ZMQ_PAIR);
    if (socket_ == nullptr) checkZeroMq(-1, "zmq_socket");
  }

  std::string address_;
  void* socket_ = nullptr;
  std::vector<char> buffer_ = std::vector<char>(IPC_MAX_MESSAGE);
};

}  // namespace

std::unique_ptr<Link> makeZeroMq(const std::string& directory) {
  return std::make_unique<ZeroMq>(directory);
}

}  // namespace bench
