#include "tools/rynctl/replay/comparison.h"

#include <algorithm>
#include <tuple>

#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"
#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

Ids::Id Ids::idIn(const Json::Value& message) {
  const Json::Value& appid = message[key::kAppid];
  const Json::Value& orgid = message[key::kOrgid];
  return {appid.isInt() ? appid.asInt() : 0, orgid.isInt() ? orgid.asInt() : 0};
}

void Ids::learn(const Json::Value& recorded, const Json::Value& live, bool anew) {
  const Id from = idIn(recorded);
  const Id to = idIn(live);
  if (from.first != 0 && to.first != 0 && (anew || ids_.count(from) == 0)) ids_[from] = to;
}

/// Of an organisation that is not given, the application with this number.
Ids::Id Ids::live(Id recorded) const {
  const auto found = ids_.lower_bound(recorded);
  const bool same = found != ids_.end() && found->first.first == recorded.first &&
                    (recorded.second == 0 || found->first.second == recorded.second);
  return same ? found->second : recorded;
}

Json::Value Ids::live(const Json::Value& recorded) const {
  Json::Value message = recorded;
  if (recorded[key::kAppid].isInt()) {
    const auto [appid, orgid] = live(idIn(recorded));
    message[key::kAppid] = appid;
    if (recorded[key::kOrgid].isInt()) message[key::kOrgid] = orgid;
  }
  const Json::Value& appid_fields = recorded[key::kAppidArray];
  const Json::Value& orgid_fields = recorded[key::kOrgidArray];
  if (recorded[key::kAppNum].isInt() && appid_fields.isString() && orgid_fields.isString()) {
    const int count = std::clamp(recorded[key::kAppNum].asInt(), 0, kMaxChildApps);
    int appids[kMaxChildApps] = {};
    int orgids[kMaxChildApps] = {};
    readIdFields(appid_fields.asString(), count, appids);
    readIdFields(orgid_fields.asString(), count, orgids);
    for (int i = 0; i < count; ++i) std::tie(appids[i], orgids[i]) = live(Id(appids[i], orgids[i]));
    message[key::kAppidArray] = idFields(appids, count);
    message[key::kOrgidArray] = idFields(orgids, count);
  }
  return message;
}

std::vector<std::string> compare(const Members& members, const Json::Value& expected,
                                 const Json::Value& seen, const std::set<std::string>& ignored) {
  const auto truth = [&](const std::string& name, const Json::Value& value) {
    const auto flag = [&](const Member& member) {
      return name == member.key && (member.type == Type::kFlag || member.type == Type::kBoolean);
    };
    return value.isInt() && std::any_of(members.begin(), members.end(), flag) ? value.asBool() : value;
  };
  std::set<std::string> names;
  for (const Json::Value* const message : {&expected, &seen}) {
    for (const std::string& name : message->getMemberNames()) names.insert(name);
  }
  std::vector<std::string> texts;
  for (const std::string& name : names) {
    if (ignored.count(name) > 0 || truth(name, expected[name]) == truth(name, seen[name])) continue;
    const auto text = [&](const Json::Value& message) {
      return message.isMember(name) ? printable(oneLine(message[name])) : "nothing";
    };
    texts.push_back(compose("{}: {} -> {}", printable(name), text(expected), text(seen)));
  }
  return texts;
}

}  // namespace hbbtv_ryn::rynctl
