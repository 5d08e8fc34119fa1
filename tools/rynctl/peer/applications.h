// A small browser: keeps applications, which can be created, shown, asked about and destroyed.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_PEER_APPLICATIONS_H
#define HBBTV_RYN_TOOLS_RYNCTL_PEER_APPLICATIONS_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/rynctl/peer/simulated_peer.h"

namespace hbbtv_ryn::rynctl {

/// Reports what becomes of the applications. Not synchronised.
class Applications {
 public:
  using Id = std::pair<int, int>;  // appid, orgid

  /// What is not kept of the applications is left in the response.
  void respond(const Message& message, const Json::Value& request, Response* response);

 private:
  struct App {
    Id owner;
    Json::Value state{Json::objectValue};  // the members of its answers, by their names on the wire
  };

  static Id idIn(const Json::Value& message);
  Id create(const Json::Value& request);
  std::vector<Id> childrenOf(Id owner) const;
  /// @return what has gone: children with their owner, the owner last.
  std::vector<Id> destroy(Id id);

  std::map<Id, App> apps_;
  Id current_;
  int next_appid_ = 1;
  std::string operator_state_ = "background";
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_PEER_APPLICATIONS_H
