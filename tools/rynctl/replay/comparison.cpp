#include "tools/rynctl/replay/comparison.h"

#include <algorithm>
#include <tuple>

#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"
#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

bool isSame(const Members& members, const std::string& name, const Json::Value& a, const Json::Value& b) {
  const auto* const member =
      std::find_if(members.begin(), members.end(), [&](const Member& one) { return name == one.key; });
  const bool truth =
      member != members.end() && (member->type == Type::kFlag || member->type == Type::kBoolean);
  const auto converts = [](const Json::Value& value) { return value.isBool() || value.isInt(); };
  return truth && converts(a) && converts(b) ? a.asBool() == b.asBool() : a == b;
}

std::string valueText(const Json::Value* value) {
  return value == nullptr ? "nothing" : printable(oneLine(*value));
}

}  // namespace

Ids::Id Ids::idIn(const Json::Value& message) {
  const Json::Value& appid = message[key::kAppid];
  const Json::Value& orgid = message[key::kOrgid];
  return {appid.isInt() ? appid.asInt() : 0, orgid.isInt() ? orgid.asInt() : 0};
}

void Ids::assign(const Json::Value& recorded, const Json::Value& live) {
  const Id from = idIn(recorded);
  const Id to = idIn(live);
  if (from.first == 0 || to.first == 0) return;
  ids_[from] = to;
  appids_[from.first] = to.first;
}

void Ids::learn(const Json::Value& recorded, const Json::Value& live) {
  if (ids_.count(idIn(recorded)) == 0) assign(recorded, live);
}

Ids::Id Ids::live(Id recorded) const {
  const auto found = ids_.find(recorded);
  return found == ids_.end() ? recorded : found->second;
}

Json::Value Ids::live(const Json::Value& recorded) const {
  Json::Value message = recorded;
  if (recorded[key::kAppid].isInt() && recorded[key::kOrgid].isInt()) {
    const auto [appid, orgid] = live(idIn(recorded));
    message[key::kAppid] = appid;
    message[key::kOrgid] = orgid;
  } else if (recorded[key::kAppid].isInt()) {
    const auto found = appids_.find(recorded[key::kAppid].asInt());
    if (found != appids_.end()) message[key::kAppid] = found->second;
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
  std::set<std::string> names;
  for (const Json::Value* const message : {&expected, &seen}) {
    for (const std::string& name : message->getMemberNames()) names.insert(name);
  }
  std::vector<std::string> texts;
  for (const std::string& name : names) {
    const char* const end = name.data() + name.size();
    const Json::Value* const was = expected.find(name.data(), end);
    const Json::Value* const is = seen.find(name.data(), end);
    if (ignored.count(name) > 0 || (was != nullptr && is != nullptr && isSame(members, name, *was, *is))) {
      continue;
    }
    texts.push_back(compose("{}: {} -> {}", printable(name), valueText(was), valueText(is)));
  }
  return texts;
}

}  // namespace hbbtv_ryn::rynctl
