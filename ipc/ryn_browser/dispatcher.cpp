// Answers the plug-in process's requests through the host's handlers.

#include <algorithm>
#include <iterator>
#include <type_traits>
#include <utility>

#include "ipc/endpoint/signature.h"
#include "ipc/protocol/lists.h"
#include "ipc/ryn_browser/state.h"

namespace hbbtv_ryn {
namespace {

using Slots = ZuntRynBrowserEventCallback;

static_assert(ZUNT_RYN_MAX_OTHER_KEYS == kMaxKeyCodes);
static_assert(ZUNT_RYN_MAX_CHILD_APPS == kMaxChildApps);
static_assert(kMaxChildApps == IPC_MAX_MESSAGE / (2 * kIdFieldChars));

template <auto Slot>
AnyFunction slot() {
  return reinterpret_cast<AnyFunction>(g_browser_callbacks.*Slot);
}

template <Code C, auto Slot>
constexpr Route to() {
  return route<C, std::remove_reference_t<decltype(std::declval<Slots>().*Slot)>, &slot<Slot>>();
}

// Slots whose shape is not the row's.
// They run as every handler does, with g_browser_callback_mutex held.

// One parameter of the slot is a member of the request and one of the reply.
void ownerApp(int /*appid*/, int* owner_appid, int* owner_orgid) {
  const auto handler = g_browser_callbacks.GetOwnerApp;
  if (handler != nullptr) handler(owner_appid, owner_orgid, nullptr);
}

// The slot fills arrays, which travel as texts.
void childApps(int appid, int orgid, int* count, std::string& appids, std::string& orgids) {
  int child_appids[ZUNT_RYN_MAX_CHILD_APPS] = {};
  int child_orgids[ZUNT_RYN_MAX_CHILD_APPS] = {};
  const auto handler = g_browser_callbacks.GetChildApps;
  if (handler != nullptr) handler(appid, orgid, child_appids, child_orgids, count);
  *count = std::min(*count, ZUNT_RYN_MAX_CHILD_APPS);
  appids = idFields(child_appids, *count);
  orgids = idFields(child_orgids, *count);
}

// A key-code list is one member of the row and two parameters of the slot.
template <auto Slot>
void keyCodes(int appid, int orgid, KeyCodes& keys) {
  const auto handler = g_browser_callbacks.*Slot;
  if (handler != nullptr) handler(appid, orgid, keys.codes, &keys.count);
  keys.count = std::min(keys.count, kMaxKeyCodes);
}

void setValue(int appid, int orgid, int value, const KeyCodes& keys) {
  const auto handler = g_browser_callbacks.SetValue;
  if (handler != nullptr) handler(appid, orgid, value, keys.codes, std::min(keys.count, kMaxKeyCodes));
}

constexpr Route kRoutes[] = {
    route<Code::GetOwnerApp, &ownerApp>(),
    to<Code::GetCurrentApp, &Slots::GetCurrentApp>(),
    route<Code::GetChildApps, &childApps>(),
    to<Code::CreateApp, &Slots::CreateApp>(),
    to<Code::DestroyApp, &Slots::DestroyApp>(),
    to<Code::ShowApp, &Slots::ShowApp>(),
    to<Code::HideApp, &Slots::HideApp>(),
    to<Code::ActivateInput, &Slots::ActivateInput>(),
    to<Code::DeactivateInput, &Slots::DeactivateInput>(),
    to<Code::GetVisible, &Slots::GetVisible>(),
    to<Code::GetActive, &Slots::GetActive>(),
    to<Code::GetPrimaryReceiver, &Slots::GetPrimaryReceiver>(),
    to<Code::GetValue, &Slots::GetValue>(),
    route<Code::GetOtherKeys, &keyCodes<&Slots::GetOtherKeys>>(),
    to<Code::GetMaxiMumValue, &Slots::GetMaxiMumValue>(),
    route<Code::GetMaxiMumOtherKeys, &keyCodes<&Slots::GetMaxiMumOtherKeys>>(),
    to<Code::SetSupportsPointer, &Slots::SetSupportsPointer>(),
    to<Code::GetSupportsPointer, &Slots::GetSupportsPointer>(),
    route<Code::SetValue, &setValue>(),
    to<Code::GetKeyIcon, &Slots::GetKeyIcon>(),
    to<Code::GetKeyLabel, &Slots::GetKeyLabel>(),
    to<Code::Get_VB_Resouce_Allowed, &Slots::Get_VB_Resouce_Allowed>(),
    to<Code::SetBRAppToBI, &Slots::SetBRAppToBI>(),
    to<Code::Get_APP_TYPE, &Slots::Get_APP_TYPE>(),
    to<Code::SetBIAppToBR, &Slots::SetBIAppToBR>(),
    to<Code::KeyConsumedByBrowser, &Slots::KeyConsumedByBrowser>(),
    to<Code::OpApp_Uninstall_Judge, &Slots::OpApp_Uninstall_Judge>(),
    to<Code::OpApp_GetStatus, &Slots::OpApp_GetStatus>(),
    to<Code::OpApp_SetStatus, &Slots::OpApp_SetStatus>(),
    to<Code::OpApp_RequestTransient, &Slots::OpApp_RequestTransient>(),
    to<Code::OpApp_RequestForeground, &Slots::OpApp_RequestForeground>(),
    to<Code::OpApp_RequestBackground, &Slots::OpApp_RequestBackground>(),
    to<Code::OpApp_GetUpdateStatus, &Slots::OpApp_GetUpdateStatus>(),
    to<Code::OpApp_RequestUpdate, &Slots::OpApp_RequestUpdate>(),
};
static_assert(serveExactly<kRequestQueueKey>(kRoutes),
              "one route for each request, in the catalogue's order");

constexpr Service kService{kRequestQueueKey, kRoutes, std::size(kRoutes), &g_browser_callback_mutex};

}  // namespace

IpcMessage* Zunt_RYN_Browser_Server_Callback(const IpcMessage* request, int32_t kind, void* user_data) {
  return serve(kService, request, kind, user_data);
}

}  // namespace hbbtv_ryn
