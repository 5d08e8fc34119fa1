// Answers the plug-in process's requests through the host's handlers.

#include <algorithm>
#include <iterator>

#include "ipc/endpoint/signature.h"
#include "ipc/protocol/envelope.h"
#include "ipc/ryn_browser/state.h"

namespace hbbtv_ryn {
namespace {

using Slots = ZuntRynBrowserEventCallback;

static_assert(ZUNT_RYN_MAX_CHILD_APPS == IPC_MAX_MESSAGE / (2 * kIdFieldChars));

template <auto Slot>
AnyFunction slot() {
  return reinterpret_cast<AnyFunction>(g_browser_callbacks.*Slot);
}

template <Code C, auto Slot>
constexpr Route to() {
  return route<C, decltype(Slot), &slot<Slot>>();
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
    route<"GetOwnerApp"_code, &ownerApp>(),
    to<"GetCurrentApp"_code, &Slots::GetCurrentApp>(),
    route<"GetChildApps"_code, &childApps>(),
    to<"CreateApp"_code, &Slots::CreateApp>(),
    to<"DestroyApp"_code, &Slots::DestroyApp>(),
    to<"ShowApp"_code, &Slots::ShowApp>(),
    to<"HideApp"_code, &Slots::HideApp>(),
    to<"ActivateInput"_code, &Slots::ActivateInput>(),
    to<"DeactivateInput"_code, &Slots::DeactivateInput>(),
    to<"GetVisible"_code, &Slots::GetVisible>(),
    to<"GetActive"_code, &Slots::GetActive>(),
    to<"GetPrimaryReceiver"_code, &Slots::GetPrimaryReceiver>(),
    to<"GetValue"_code, &Slots::GetValue>(),
    route<"GetOtherKeys"_code, &keyCodes<&Slots::GetOtherKeys>>(),
    to<"GetMaxiMumValue"_code, &Slots::GetMaxiMumValue>(),
    route<"GetMaxiMumOtherKeys"_code, &keyCodes<&Slots::GetMaxiMumOtherKeys>>(),
    to<"SetSupportsPointer"_code, &Slots::SetSupportsPointer>(),
    to<"GetSupportsPointer"_code, &Slots::GetSupportsPointer>(),
    route<"SetValue"_code, &setValue>(),
    to<"GetKeyIcon"_code, &Slots::GetKeyIcon>(),
    to<"GetKeyLabel"_code, &Slots::GetKeyLabel>(),
    to<"Get_VB_Resouce_Allowed"_code, &Slots::Get_VB_Resouce_Allowed>(),
    to<"SetBRAppToBI"_code, &Slots::SetBRAppToBI>(),
    to<"Get_APP_TYPE"_code, &Slots::Get_APP_TYPE>(),
    to<"SetBIAppToBR"_code, &Slots::SetBIAppToBR>(),
    to<"KeyConsumedByBrowser"_code, &Slots::KeyConsumedByBrowser>(),
    to<"OpApp_Uninstall_Judge"_code, &Slots::OpApp_Uninstall_Judge>(),
    to<"OpApp_GetStatus"_code, &Slots::OpApp_GetStatus>(),
    to<"OpApp_SetStatus"_code, &Slots::OpApp_SetStatus>(),
    to<"OpApp_RequestTransient"_code, &Slots::OpApp_RequestTransient>(),
    to<"OpApp_RequestForeground"_code, &Slots::OpApp_RequestForeground>(),
    to<"OpApp_RequestBackground"_code, &Slots::OpApp_RequestBackground>(),
    to<"OpApp_GetUpdateStatus"_code, &Slots::OpApp_GetUpdateStatus>(),
    to<"OpApp_RequestUpdate"_code, &Slots::OpApp_RequestUpdate>(),
};
static_assert(serveExactly<kRequestQueueKey>(kRoutes),
              "one route for each request, in the catalogue's order");

constexpr Service kService{kRequestQueueKey, kRoutes, std::size(kRoutes), &g_browser_callback_mutex};

}  // namespace

IpcMessage* Zunt_RYN_Browser_Server_Callback(const IpcMessage* request, int32_t kind, void* user_data) {
  return serve(kService, request, kind, user_data);
}

}  // namespace hbbtv_ryn
