/// @file
/// One exchange with a peer over the channel, as a command makes it.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_CHANNEL_H
#define HBBTV_RYN_TOOLS_RYNCTL_CHANNEL_H

#include <chrono>
#include <memory>
#include <ostream>
#include <string>

#include "hbbtv_ryn/ipc.h"
#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn::rynctl {

/// The channel writes lines to standard output. While this lives they go to standard error, and std::cout
/// alone reaches the tool's real standard output.
class OwnOutput {
 public:
  OwnOutput();
  ~OwnOutput();
  OwnOutput(const OwnOutput&) = delete;
  OwnOutput& operator=(const OwnOutput&) = delete;

 private:
  int output_;
  std::unique_ptr<std::streambuf> buffer_;
  std::streambuf* former_ = nullptr;
  std::ostream* former_tie_ = nullptr;
};

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
  Reply ask(const std::string& text, std::chrono::milliseconds limit) const;

  /// Throws as ask().
  /// @param unserved  also when nobody is there to read it yet.
  void tell(const std::string& text, bool unserved) const;

 private:
  enum class Unserved { kRefused, kAllowed };
  void requirePeer(Unserved unserved) const;
  void requireRoom(const std::string& text) const;

  const Message& message_;
  std::shared_ptr<IpcClient> client_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_CHANNEL_H
