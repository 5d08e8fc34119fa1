#include "app_model_peer.h"

#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"
#include "message_text.h"

namespace hbbtv_ryn::rynctl {

namespace {

using example::App;
using example::AppId;
using Json::Value;

AppId appIn(const Value& message) {
  return {integer(message, key::kAppid), integer(message, key::kOrgid)};
}

void setApp(Value* message, AppId id) {
  set(message, key::kAppid, id.first);
  set(message, key::kOrgid, id.second);
}

Event eventOf(Code code, AppId id) {
  Event event;
  event.message = &messageOf(code);
  event.members = Value(Json::objectValue);
  set(&event.members, key::kCode, static_cast<Json::UInt>(code));
  setApp(&event.members, id);
  return event;
}

Event topMost(AppId id, bool topmost) {
  Event event = eventOf(Code::SendTopMost, id);
  set(&event.members, key::kTopmost, topmost);
  return event;
}

void read(Code code, const App& app, Value* reply) {
  switch (code) {
    case Code::GetVisible:
      return set(reply, key::kVisible, flag(app.visible));
    case Code::GetActive:
      return set(reply, key::kActive, flag(app.active));
    case Code::GetPrimaryReceiver:
      return set(reply, key::kPrimary, flag(app.focus));
    case Code::GetValue:
      return set(reply, key::kValue, app.key_set);
    case Code::GetSupportsPointer:
      return set(reply, key::kPointer, flag(app.pointer));
    case Code::GetOtherKeys: {
      const auto count = static_cast<int>(app.other_keys.size());
      set(reply, key::kNum, count);
      return setKeyCodes(reply, app.other_keys.data(), count);
    }
    default:
      return;
  }
}

void change(Code code, const Value& request, App* app) {
  switch (code) {
    case Code::ShowApp:
    case Code::HideApp:
      app->visible = code == Code::ShowApp;
      return;
    case Code::ActivateInput:
    case Code::DeactivateInput:
      app->active = code == Code::ActivateInput;
      app->focus = app->active && boolean(request, key::kFocus);
      return;
    case Code::SetSupportsPointer:
      app->pointer = boolean(request, key::kPointer);
      return;
    case Code::SetValue: {
      const int count = std::min(std::max(integer(request, key::kKeynum), 0), kMaxKeyCodes);
      app->key_set = integer(request, key::kValue);
      app->other_keys.assign(static_cast<std::size_t>(count), 0);
      return readKeyCodes(request, count, app->other_keys.data());
    }
    default:
      return;
  }
}

}  // namespace

Response AppModelPeer::respond(const Message& message, const Value& request) {
  Response response;
  response.members = defaultReply(message, request);
  Value* const reply = &response.members;
  switch (message.code) {
    case Code::GetOwnerApp:
      if (const App* const app = apps_.find(apps_.byNumber(integer(request, key::kAppid)))) {
        setApp(reply, app->owner);
      }
      break;
    case Code::GetCurrentApp:
      setApp(reply, apps_.current());
      break;
    case Code::GetChildApps:
      listChildren(appIn(request), reply);
      break;
    case Code::CreateApp:
      create(request, &response);
      break;
    case Code::DestroyApp:
      destroy(appIn(request), &response);
      break;
    case Code::OpApp_GetStatus:
      set(reply, key::kStatus, operator_state_);
      break;
    case Code::OpApp_SetStatus:
      operator_state_ = string(request, key::kStatus);
      break;
    case Code::OpApp_RequestTransient:
      operator_state_ = "transient";
      break;
    case Code::OpApp_RequestForeground:
      operator_state_ = "foreground";
      break;
    case Code::OpApp_RequestBackground:
      operator_state_ = "background";
      break;
    default:
      if (App* const app = apps_.find(appIn(request))) {
        read(message.code, *app, reply);
        change(message.code, request, app);
      }
  }
  return response;
}

void AppModelPeer::create(const Value& request, Response* response) {
  const AppId created = apps_.create(appIn(request), string(request, key::kUrl),
                                     boolean(request, key::kChild), boolean(request, key::kOpapp));
  setApp(&response->members, created);
  response->then = {eventOf(Code::SendAppLoaded, created), topMost(created, true)};
}

void AppModelPeer::destroy(AppId id, Response* response) {
  for (const AppId& gone : apps_.destroy(id)) {
    response->then.push_back(topMost(gone, false));
    response->then.push_back(eventOf(Code::SendAppUnloaded, gone));
  }
}

void AppModelPeer::listChildren(AppId id, Value* reply) const {
  std::vector<int> appids;
  std::vector<int> orgids;
  for (const AppId& child : apps_.childrenOf(id)) {
    appids.push_back(child.first);
    orgids.push_back(child.second);
  }
  const auto count = static_cast<int>(appids.size());
  set(reply, key::kAppNum, count);
  set(reply, key::kAppidArray, idFields(appids.data(), count));
  set(reply, key::kOrgidArray, idFields(orgids.data(), count));
}

}  // namespace hbbtv_ryn::rynctl
