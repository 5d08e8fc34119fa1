// One exchange with a peer over the channel, as a command makes it.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_CLIENT_H
#define HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_CLIENT_H

#include <chrono>
#include <memory>
#include <string>

#include "hbbtv_ryn/ipc.h"
#include "ipc/protocol/catalogue.h"
#include "tools/rynctl/system/wait.h"

namespace hbbtv_ryn::rynctl {

struct Reply {
  bool failure;  // the peer says that it has no answer
  std::string text;
  std::chrono::microseconds took;
};

/// The client of one message's queue.
class Client {
 public:
  explicit Client(const Message& message);

  /// Throws Failure: NoPeer when nobody serves the queue or the server dies; NoRoom when the text is too
  /// long or the queue is full and stays so; NoAnswer when `limit` has passed (zero: no limit). After the
  /// latter the request is still out, so the process should end.
  Reply ask(const std::string& text, Seconds limit) const;

  /// Throws as ask().
  /// @param unserved  also when nobody is there to read it yet.
  void tell(const std::string& text, bool unserved) const;

 private:
  void requirePeerAndRoom(const std::string& text, bool unserved) const;

  const Message& message_;
  std::shared_ptr<IpcClient> client_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_CLIENT_H
