// A message of a capture beside the same one of this run.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_REPLAY_COMPARISON_H
#define HBBTV_RYN_TOOLS_RYNCTL_REPLAY_COMPARISON_H

#include <json/value.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn::rynctl {

/// The applications of a capture in this run, which numbers them anew. Not synchronised.
class Ids {
 public:
  /// The application of the one message is that of the other, unless one names none.
  /// @param anew  also when the recorded one was known as another.
  void learn(const Json::Value& recorded, const Json::Value& live, bool anew);
  /// A recorded message as it is said in this run.
  Json::Value live(const Json::Value& recorded) const;

 private:
  using Id = std::pair<int, int>;  // appid, orgid
  static Id idIn(const Json::Value& message);
  Id live(Id recorded) const;

  std::map<Id, Id> ids_;
};

/// "member: expected -> seen" for each member that differs and is not ignored. Values that every reader
/// takes for the same are the same.
std::vector<std::string> compare(const Members& members, const Json::Value& expected,
                                 const Json::Value& seen, const std::set<std::string>& ignored);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_REPLAY_COMPARISON_H
