#include <fcntl.h>
#include <hbbtv_ryn/ipc.h>
#include <mqueue.h>

#include <vector>

#include "check.h"
#include "peer_transport.h"

namespace bench {
namespace {

// As many messages as the System V queue holds by default.
constexpr long kMessages = 15;

class PosixMq final : public QueueLink {
 public:
  // The names are free in the namespace of the run.
  PosixMq() : QueueLink(make("/requests"), make("/replies")) {}

 protected:
  void send(const std::string& text) override {
    check(mq_send(outgoing_, text.data(), text.size(), 0), "mq_send");
  }
  void receive(std::string& text) override {
    const ssize_t size =
        check(mq_receive(incoming_, buffer_.data(), buffer_.size(), nullptr), "mq_receive");
    text.assign(buffer_.data(), static_cast<std::size_t>(size));
  }

 private:
  static mqd_t make(const char* name) {
    mq_attr attributes{};
    attributes.mq_maxmsg = kMessages;
    attributes.mq_msgsize = IPC_MAX_MESSAGE;
    return check(mq_open(name, O_CREAT | O_RDWR, 0600, &attributes), "mq_open");
  }

  std::vector<char> buffer_ = std::vector<char>(IPC_MAX_MESSAGE);
};

}  // namespace

std::unique_ptr<Link> makePosixMq() {
  return std::make_unique<PosixMq>();
}

}  // namespace bench
