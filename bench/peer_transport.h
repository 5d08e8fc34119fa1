/// @file
/// A row made of a link, which only carries texts, and of the messages of message.h.
#ifndef BENCH_PEER_TRANSPORT_H
#define BENCH_PEER_TRANSPORT_H

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "message.h"
#include "transport.h"

namespace bench {

/// Handles one message. @return whether `reply` is to be sent.
using Responder = std::function<bool(const std::string& message, std::string& reply)>;

/// Carries texts from a sender to a receiver and answers back. Made before the fork.
class Link {
 public:
  Link() = default;
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  virtual ~Link() = default;

  /// In the receiver: from now on messages reach it.
  void open(Responder respond) {
    respond_ = std::move(respond);
    openReceiver();
  }
  /// In the receiver: serves messages for ever.
  virtual void serve() = 0;

  /// In the sender.
  virtual void openSender() = 0;
  /// Waits for an answer.
  virtual void exchange(const std::string& request, std::string& reply) = 0;
  /// Returns as soon as the message is on its way; waits while there is no room.
  virtual void post(const std::string& message) = 0;

  [[nodiscard]] virtual pid_t helper() const { return 0; }

 protected:
  virtual void openReceiver() = 0;

  Responder respond_;
};

/// A link on which both ends send and receive alike.
class SymmetricLink : public Link {
 public:
  void exchange(const std::string& request, std::string& reply) final;
  void post(const std::string& message) final { send(message); }
  void serve() final;

 protected:
  virtual void send(const std::string& text) = 0;
  /// Replaces `text` by the next message.
  virtual void receive(std::string& text) = 0;
};

/// A symmetric link of two queues that the kernel knows by numbers, one for each way. They end with the
/// namespace of the run.
class QueueLink : public SymmetricLink {
 public:
  void openReceiver() final {
    incoming_ = requests_;
    outgoing_ = replies_;
  }
  void openSender() final {
    incoming_ = replies_;
    outgoing_ = requests_;
  }

 protected:
  QueueLink(int requests, int replies) : requests_(requests), replies_(replies) {}

  int incoming_ = -1;
  int outgoing_ = -1;

 private:
  const int requests_;
  const int replies_;
};

std::unique_ptr<Transport> makePeer(std::unique_ptr<Link> link, Text text);

std::unique_ptr<Link> makeChannel();
std::unique_ptr<Link> makeRawQueue();
std::unique_ptr<Link> makePosixMq();
std::unique_ptr<Link> makeSeqpacket();
std::unique_ptr<Link> makeZeroMq(const std::string& directory);
std::unique_ptr<Link> makeNng(const std::string& directory);
std::unique_ptr<Link> makeSdBusPeerToPeer();
std::unique_ptr<Link> makeSdBusThroughDaemon(const std::string& directory);

}  // namespace bench

#endif  // BENCH_PEER_TRANSPORT_H
