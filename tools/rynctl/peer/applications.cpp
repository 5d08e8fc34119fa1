#include "tools/rynctl/peer/applications.h"

#include <algorithm>
#include <cstdlib>

#include "ipc/protocol/envelope.h"
#include "tools/rynctl/text/message_text.h"

namespace hbbtv_ryn::rynctl {

namespace {

using Json::Value;

/// What is told of an application.
Event eventOf(Code code, Applications::Id id, bool topmost = false) {
  const Message& message = messageOf(code);
  const Given values[] = {id.first, id.second, topmost};
  return {&message, hbbtv_ryn::compose(static_cast<int>(code), message.request, values)};
}

/// What a command changes of an application.
void change(Code code, const Value& request, Value* state) {
  switch (code) {
    case "ShowApp"_code:
    case "HideApp"_code:
      (*state)[key::kVisible] = code == "ShowApp"_code ? 1 : 0;
      return;
    case "ActivateInput"_code:
    case "DeactivateInput"_code:
      (*state)[key::kActive] = code == "ActivateInput"_code ? 1 : 0;
      (*state)[key::kPrimary] = code == "ActivateInput"_code && integer(request, key::kFocus) != 0 ? 1 : 0;
      return;
    case "SetSupportsPointer"_code:
      (*state)[key::kPointer] = integer(request, key::kPointer) != 0 ? 1 : 0;
      return;
    case "SetValue"_code: {
      const int count = std::clamp(integer(request, key::kKeynum), 0, kMaxKeyCodes);
      int keys[kMaxKeyCodes] = {};
      readKeyCodes(request, count, keys);
      (*state)[key::kValue] = integer(request, key::kValue);
      (*state)[key::kNum] = count;
      return setKeyCodes(state, keys, count);
    }
    default:
      return;
  }
}

/// What a question is told of an application: what is kept under the names of the answer's members.
void tell(const Message& question, const Value& state, Value* reply) {
  for (const Member& member : question.reply) {
    if (!state.isMember(member.key)) continue;
    (*reply)[member.key] = state[member.key];
    if (member.type != Type::kKeyCount) continue;
    for (int i = 0; i < integer(state, member.key); ++i) (*reply)[keyCodeName(i)] = state[keyCodeName(i)];
  }
}

}  // namespace

Applications::Id Applications::idIn(const Value& message) {
  return {integer(message, key::kAppid), integer(message, key::kOrgid)};
}

void Applications::respond(const Message& message, const Value& request, Response* response) {
  Value* const reply = &response->members;
  const auto name = [reply](Id id) {
    (*reply)[key::kAppid] = id.first;
    (*reply)[key::kOrgid] = id.second;
  };
  switch (message.code) {
    case "GetOwnerApp"_code:
      for (const auto& [id, app] : apps_) {
        if (id.first == integer(request, key::kAppid)) name(app.owner);
      }
      break;
    case "GetCurrentApp"_code:
      name(current_);
      break;
    case "GetChildApps"_code: {
      std::vector<int> appids;
      std::vector<int> orgids;
      for (const auto& [appid, orgid] : childrenOf(idIn(request))) {
        appids.push_back(appid);
        orgids.push_back(orgid);
      }
      const auto count = static_cast<int>(appids.size());
      (*reply)[key::kAppNum] = count;
      (*reply)[key::kAppidArray] = idFields(appids.data(), count);
      (*reply)[key::kOrgidArray] = idFields(orgids.data(), count);
      break;
    }
    case "CreateApp"_code: {
      const Id id = create(request);
      name(id);
      response->then = {eventOf("SendAppLoaded"_code, id), eventOf("SendTopMost"_code, id, true)};
      break;
    }
    case "DestroyApp"_code:
      for (const Id& id : destroy(idIn(request))) {
        response->then.push_back(eventOf("SendTopMost"_code, id, false));
        response->then.push_back(eventOf("SendAppUnloaded"_code, id));
      }
      break;
    case "OpApp_GetStatus"_code:
      (*reply)[key::kStatus] = operator_state_;
      break;
    case "OpApp_SetStatus"_code:
      operator_state_ = request[key::kStatus].asString();
      break;
    case "OpApp_RequestTransient"_code:
    case "OpApp_RequestForeground"_code:
    case "OpApp_RequestBackground"_code:
      operator_state_ = message.code == "OpApp_RequestTransient"_code    ? "transient"
                        : message.code == "OpApp_RequestForeground"_code ? "foreground"
                                                                         : "background";
      break;
    default:
      if (const auto app = apps_.find(idIn(request)); app != apps_.end()) {
        change(message.code, request, &app->second.state);
        tell(message, app->second.state, reply);
      }
  }
}

/// The organisation is the "org" parameter of the URL, or that of the application it is created for.
Applications::Id Applications::create(const Value& request) {
  constexpr char kParameter[] = "org=";
  constexpr int kDecimal = 10;
  const Id creator = idIn(request);
  const std::string url = request[key::kUrl].asString();
  const auto at = url.find(kParameter);
  const auto organisation = at == std::string::npos
                                ? creator.second
                                : std::strtol(url.c_str() + at + sizeof kParameter - 1, nullptr, kDecimal);
  current_ = {next_appid_++, static_cast<int>(organisation)};
  apps_[current_].owner = integer(request, key::kChild) != 0 ? creator : Id();
  return current_;
}

std::vector<Applications::Id> Applications::childrenOf(Id owner) const {
  std::vector<Id> children;
  for (const auto& [id, app] : apps_) {
    if (app.owner == owner && owner != Id()) children.push_back(id);
  }
  return children;
}

std::vector<Applications::Id> Applications::destroy(Id id) {
  std::vector<Id> gone;
  if (apps_.count(id) == 0) return gone;
  for (const Id& child : childrenOf(id)) {
    for (const Id& each : destroy(child)) gone.push_back(each);
  }
  apps_.erase(id);
  gone.push_back(id);
  if (current_ == id) current_ = apps_.empty() ? Id() : apps_.rbegin()->first;
  return gone;
}

}  // namespace hbbtv_ryn::rynctl
