// The script of a simulated peer. `rynctl serve --help` describes the file.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_PEER_SCRIPT_H
#define HBBTV_RYN_TOOLS_RYNCTL_PEER_SCRIPT_H

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

  /// The response that is next for this message; a message that the script does not mention is answered
  /// as by a host without handlers. Any thread may call, one at a time for each message.
  Response respond(const Message& message, const Json::Value& request);

  /// Sent on their own, counted from the start.
  const std::vector<Event>& events() const { return events_; }

 private:
  struct Turn {
    std::vector<Response> responses;  // the last one stays
    std::size_t next = 0;
  };

  std::map<Code, Turn> turns_;  // each entry is used by the thread of one queue
  std::vector<Event> events_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_PEER_SCRIPT_H
