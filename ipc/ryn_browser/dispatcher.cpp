// Answers the plug-in process's requests through the host's handlers.

#include <algorithm>
#include <type_traits>

#include "ipc/endpoint/exchange.h"
#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"
#include "ipc/ryn_browser/state.h"

namespace hbbtv_ryn {
namespace {

using Slots = ZuntRynBrowserEventCallback;
using Json::Value;

static_assert(ZUNT_RYN_MAX_OTHER_KEYS == kMaxKeyCodes);
static_assert(ZUNT_RYN_MAX_CHILD_APPS == kMaxChildApps);
static_assert(kMaxChildApps == IPC_MAX_MESSAGE / (2 * kIdFieldChars));

// Calls the slot's handler, if there is one. Returns the handler's result, 0 for none.
template <auto Slot, typename... Arguments>
int handle(Arguments&&... arguments) {
  const std::lock_guard<std::mutex> guard(g_browser_callback_mutex);
  const auto handler = g_browser_callbacks.*Slot;
  if (handler == nullptr) return 0;
  if constexpr (std::is_void_v<decltype(handler(arguments...))>) {
    handler(arguments...);
    return 0;
  } else {
    return handler(arguments...);
  }
}

void setIdentity(Value* reply, int reply_appid, int reply_orgid) {
  set(reply, key::kAppid, reply_appid);
  set(reply, key::kOrgid, reply_orgid);
}

// --- Applications ------------------------------------------------------------------------------------

void answerOwnerApp(const Incoming& in, Value* reply) {
  int owner_appid = in.appid();
  int owner_orgid = 0;
  handle<&Slots::GetOwnerApp>(&owner_appid, &owner_orgid, nullptr);
  setIdentity(reply, owner_appid, owner_orgid);
}

void answerCurrentApp(const Incoming&, Value* reply) {
  int current_appid = 0;
  int current_orgid = 0;
  handle<&Slots::GetCurrentApp>(&current_appid, &current_orgid, nullptr);
  setIdentity(reply, current_appid, current_orgid);
}

void answerChildApps(const Incoming& in, Value* reply) {
  int appids[ZUNT_RYN_MAX_CHILD_APPS] = {};
  int orgids[ZUNT_RYN_MAX_CHILD_APPS] = {};
  int count = 0;
  handle<&Slots::GetChildApps>(in.appid(), in.orgid(), appids, orgids, &count);
  count = std::min(count, ZUNT_RYN_MAX_CHILD_APPS);
  set(reply, key::kAppNum, count);
  set(reply, key::kAppidArray, idFields(appids, count));
  set(reply, key::kOrgidArray, idFields(orgids, count));
}

void answerCreateApp(const Incoming& in, Value* reply) {
  const std::string url = in.string(key::kUrl);
  const bool child = in.boolean(key::kChild);
  const bool opapp = in.boolean(key::kOpapp);
  int new_appid = 0;
  int new_orgid = 0;
  handle<&Slots::CreateApp>(in.appid(), in.orgid(), url.c_str(), child, opapp, &new_appid, &new_orgid);
  setIdentity(reply, new_appid, new_orgid);
}

template <auto Slot>
void doApp(const Incoming& in, Value*) {
  handle<Slot>(in.appid(), in.orgid());
}

template <auto Slot, const char* Key>
void doAppFlag(const Incoming& in, Value*) {
  handle<Slot>(in.appid(), in.orgid(), in.boolean(Key));
}

template <auto Slot, const char* Key>
void answerAppFlag(const Incoming& in, Value* reply) {
  bool answer = false;
  handle<Slot>(in.appid(), in.orgid(), &answer);
  set(reply, Key, flag(answer));
}

// --- Key sets ----------------------------------------------------------------------------------------

template <auto Slot, const char* Key>
void answerAppNumber(const Incoming& in, Value* reply) {
  int answer = 0;
  handle<Slot>(in.appid(), in.orgid(), &answer);
  set(reply, Key, answer);
}

template <auto Slot>
void answerKeyCodes(const Incoming& in, Value* reply) {
  int codes[kMaxKeyCodes] = {};
  int count = 0;
  handle<Slot>(in.appid(), in.orgid(), codes, &count);
  count = std::min(count, kMaxKeyCodes);
  setKeyCodes(reply, codes, count);
  set(reply, key::kNum, count);
}

template <auto Slot, const char* Key>
void answerKeyString(const Incoming& in, Value* reply) {
  std::string answer;
  handle<Slot>(in.appid(), in.orgid(), in.integer(key::kKeySetCode), answer);
  set(reply, Key, answer);
}

void doSetValue(const Incoming& in, Value*) {
  int codes[kMaxKeyCodes] = {};
  const int count = std::min(in.integer(key::kKeynum), kMaxKeyCodes);
  readKeyCodes(in.members, count, codes);
  handle<&Slots::SetValue>(in.appid(), in.orgid(), in.integer(key::kValue), codes, count);
}

// --- Tabs --------------------------------------------------------------------------------------------

template <auto Slot>
void doTab(const Incoming& in, Value*) {
  handle<Slot>(in.tabid());
}

void answerVbResourceAllowed(const Incoming& in, Value* reply) {
  bool allowed = false;
  handle<&Slots::Get_VB_Resouce_Allowed>(in.tabid(), &allowed);
  set(reply, key::kAllowed, flag(allowed));
}

void answerAppType(const Incoming& in, Value* reply) {
  int type = 0;
  handle<&Slots::Get_APP_TYPE>(in.tabid(), &type);
  set(reply, key::kAppType, type);
}

void answerKeyConsumed(const Incoming& in, Value* reply) {
  bool consumed = false;
  handle<&Slots::KeyConsumedByBrowser>(in.tabid(), in.integer(key::kKeyCode), &consumed);
  set(reply, key::kConsumed, flag(consumed));
}

// --- Operator application ----------------------------------------------------------------------------

void answerUninstallJudge(const Incoming&, Value* reply) {
  bool may_uninstall = true;
  handle<&Slots::OpApp_Uninstall_Judge>(&may_uninstall);
  set(reply, key::kFlag, may_uninstall);
}

void answerStatus(const Incoming&, Value* reply) {
  std::string status;
  set(reply, key::kRet, handle<&Slots::OpApp_GetStatus>(status));
  set(reply, key::kStatus, status);
}

void answerSetStatus(const Incoming& in, Value* reply) {
  set(reply, key::kRet, handle<&Slots::OpApp_SetStatus>(in.string(key::kStatus)));
}

void answerUpdateStatus(const Incoming&, Value* reply) {
  int status = kUpdateStatusUnknown;
  set(reply, key::kRet, handle<&Slots::OpApp_GetUpdateStatus>(&status));
  set(reply, key::kStatus, status);
}

template <auto Slot>
void answerResult(const Incoming&, Value* reply) {
  set(reply, key::kRet, handle<Slot>());
}

// -----------------------------------------------------------------------------------------------------

// Every handler reads the request whole before it calls the slot; a one-way request leaves the reply alone.
constexpr Route kRoutes[] = {
    {Code::GetOwnerApp, &answerOwnerApp},
    {Code::GetCurrentApp, &answerCurrentApp},
    {Code::GetChildApps, &answerChildApps},
    {Code::CreateApp, &answerCreateApp},
    {Code::DestroyApp, &doApp<&Slots::DestroyApp>},
    {Code::ShowApp, &doApp<&Slots::ShowApp>},
    {Code::HideApp, &doApp<&Slots::HideApp>},
    {Code::ActivateInput, &doAppFlag<&Slots::ActivateInput, key::kFocus>},
    {Code::DeactivateInput, &doApp<&Slots::DeactivateInput>},
    {Code::GetVisible, &answerAppFlag<&Slots::GetVisible, key::kVisible>},
    {Code::GetActive, &answerAppFlag<&Slots::GetActive, key::kActive>},
    {Code::GetPrimaryReceiver, &answerAppFlag<&Slots::GetPrimaryReceiver, key::kPrimary>},
    {Code::GetValue, &answerAppNumber<&Slots::GetValue, key::kValue>},
    {Code::GetOtherKeys, &answerKeyCodes<&Slots::GetOtherKeys>},
    {Code::GetMaxiMumValue, &answerAppNumber<&Slots::GetMaxiMumValue, key::kMaxvalue>},
    {Code::GetMaxiMumOtherKeys, &answerKeyCodes<&Slots::GetMaxiMumOtherKeys>},
    {Code::SetSupportsPointer, &doAppFlag<&Slots::SetSupportsPointer, key::kPointer>},
    {Code::GetSupportsPointer, &answerAppFlag<&Slots::GetSupportsPointer, key::kPointer>},
    {Code::SetValue, &doSetValue},
    {Code::GetKeyIcon, &answerKeyString<&Slots::GetKeyIcon, key::kPointer>},
    {Code::GetKeyLabel, &answerKeyString<&Slots::GetKeyLabel, key::kLabel>},
    {Code::Get_VB_Resouce_Allowed, &answerVbResourceAllowed},
    {Code::SetBRAppToBI, &doTab<&Slots::SetBRAppToBI>},
    {Code::Get_APP_TYPE, &answerAppType},
    {Code::SetBIAppToBR, &doTab<&Slots::SetBIAppToBR>},
    {Code::KeyConsumedByBrowser, &answerKeyConsumed},
    {Code::OpApp_Uninstall_Judge, &answerUninstallJudge},
    {Code::OpApp_GetStatus, &answerStatus},
    {Code::OpApp_SetStatus, &answerSetStatus},
    {Code::OpApp_RequestTransient, &answerResult<&Slots::OpApp_RequestTransient>},
    {Code::OpApp_RequestForeground, &answerResult<&Slots::OpApp_RequestForeground>},
    {Code::OpApp_RequestBackground, &answerResult<&Slots::OpApp_RequestBackground>},
    {Code::OpApp_GetUpdateStatus, &answerUpdateStatus},
    {Code::OpApp_RequestUpdate, &answerResult<&Slots::OpApp_RequestUpdate>},
};

}  // namespace

IpcMessage* Zunt_RYN_Browser_Server_Callback(const IpcMessage* request, int32_t kind, void* user_data) {
  return serve(request, kind, user_data, kRoutes);
}

}  // namespace hbbtv_ryn
