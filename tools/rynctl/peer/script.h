// The script of a simulated peer. `rynctl serve --help` describes the file.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_PEER_SCRIPT_H
#define HBBTV_RYN_TOOLS_RYNCTL_PEER_SCRIPT_H

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "tools/rynctl/peer/simulated_peer.h"

namespace hbbtv_ryn::rynctl {

class Script {
 public:
  /// Throws Failure: NoPeer when the file cannot be read, Malformed when it is no script for this side,
  /// with the place in the file.
  static Script load(const std::string& file, Side side);

  /// Makes the response the next one for this message; what the script leaves out of its reply, and a
  /// message that it does not mention, are left as they are. Any thread may call, one at a time for each
  /// message.
  void respond(const Message& message, Response* response);

  /// Sent on their own, counted from the start.
  const std::vector<Event>& events() const { return events_; }

 private:
  /// What comes next; the last one stays. Each entry is used by the thread of one queue.
  std::map<Code, std::deque<Response>> turns_;
  std::vector<Event> events_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_PEER_SCRIPT_H
