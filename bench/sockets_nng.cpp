#include <hbbtv_ryn/ipc.h>
#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>

#include <stdexcept>
#include <vector>

#include "peer_transport.h"

namespace bench {
namespace {

void checkNng(int result, const char* what) {
  if (result != 0) throw std::runtime_error(std::string(what) + ": " + nng_strerror(result));
}

class Nng final : public SymmetricLink {
 public:
  explicit Nng(const std::string& directory) : address_("ipc://" + directory + "/nng") {}

  // Its threads do not survive a fork, so it starts in each process.
  void openReceiver() override {
    checkNng(nng_pair0_open(&socket_), "nng_pair0_open");
    checkNng(nng_listen(socket_, address_.c_str(), nullptr, 0), "nng_listen");
  }
  void openSender() override {
    checkNng(nng_pair0_open(&socket_), "nng_pair0_open");
    checkNng(nng_dial(socket_, address_.c_str(), nullptr, 0), "nng_dial");
  }

 protected:
  void send(const std::string& text) override {
    // The function takes a pointer to non-const data, which it only reads without NNG_FLAG_ALLOC.
    checkNng(nng_send(socket_, const_cast<char*>(text.data()), text.size(), 0), "nng_send");
  }
  void receive(std::string& text) override {
    std::size_t size = buffer_.size();
    checkNng(nng_recv(socket_, buffer_.data(), &size, 0), "nng_recv");
    text.assign(buffer_.data(), size);
  }

 private:
  std::string address_;
  nng_socket socket_{};
  std::vector<char> buffer_ = std::vector<char>(IPC_MAX_MESSAGE);
};

}  // namespace

std::unique_ptr<Link> makeNng(const std::string& directory) {
  return std::make_unique<Nng>(directory);
}

}  // namespace bench
