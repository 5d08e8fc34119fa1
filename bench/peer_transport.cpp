#include "peer_transport.h"

namespace bench {
namespace {

class Peer final : public Transport {
 public:
  Peer(std::unique_ptr<Link> link, Text text) : link_(std::move(link)), text_(text) {}

  void receive(Work work, SharedPage& page) override {
    const bool is_request = work == Work::kRoundTrip || work == Work::kSweep;
    link_->open([this, is_request, &page](const std::string& message, std::string& reply) {
      const bool has_reply = answer(text_, is_request, message, reply);
      page.arrived();
      return has_reply;
    });
    page.receiverIsReady();
    link_->serve();
  }

  void startSender(Work) override { link_->openSender(); }
  void getVisible() override {
    link_->exchange(visibleRequest(text_), reply_);
    readVisibleReply(text_, reply_);
  }
  void notify() override { link_->post(appLoaded(text_)); }
  void exchange(int bytes) override {
    link_->exchange(statusRequest(text_, bytes), reply_);
    readStatusReply(text_, reply_);
  }
  [[nodiscard]] pid_t helper() const override { return link_->helper(); }

 private:
  std::unique_ptr<Link> link_;
  Text text_;
  std::string reply_;
};

}  // namespace

void SymmetricLink::exchange(const std::string& request, std::string& reply) {
  send(request);
  receive(reply);
}

void SymmetricLink::serve() {
  std::string message;
  std::string reply;
  for (;;) {
    receive(message);
    if (respond_(message, reply)) send(reply);
  }
}

std::unique_ptr<Transport> makePeer(std::unique_ptr<Link> link, Text text) {
  return std::make_unique<Peer>(std::move(link), text);
}

}  // namespace bench
