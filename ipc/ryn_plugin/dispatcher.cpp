// Turns each notification of the browser process into one call of the host's event callback, and answers
// its two queries with them.

#include <cstdio>
#include <iterator>
#include <string>
#include <utility>

#include "ipc/endpoint/signature.h"
#include "ipc/ryn_plugin/state.h"

namespace hbbtv_ryn {
namespace {

using Callback = ZuntRynEventCallback;

template <ZuntRynEvent Event>
AnyFunction callbackOf() {
  return findEventCallback(Event).onNotify;
}

template <Code C, ZuntRynEvent Event, auto Member>
constexpr Route to() {
  return route<C, decltype(Member), &callbackOf<Event>>();
}

// Messages that are more than one event.

void raiseApp(ZuntRynEvent event, int appid, int orgid, void* user_data) {
  const Callback callback = findEventCallback(event);
  if (callback.onApp != nullptr) callback.onApp(appid, orgid, user_data);
}

void topMost(int appid, int orgid, bool topmost, void* user_data) {
  raiseApp(topmost ? ZUNT_RYN_EVENT_APP_TOPMOST : ZUNT_RYN_EVENT_APP_NOT_TOPMOST, appid, orgid, user_data);
}

void key(int appid, int orgid, int keytype, void* user_data) {
  constexpr ZuntRynEvent kEvents[] = {ZUNT_RYN_EVENT_KEY_TYPE_1, ZUNT_RYN_EVENT_KEY_TYPE_2,
                                      ZUNT_RYN_EVENT_KEY_TYPE_3};
  if (keytype >= 1 && keytype <= 3) raiseApp(kEvents[keytype - 1], appid, orgid, user_data);
}

// Messages that leave a line on standard output when somebody listens.

// Readers of logs know the two places by these numbers.
constexpr int kStateChangeTrace = 283;
constexpr int kContextChangeTrace = 298;

template <ZuntRynEvent Event, int TracePlace>
void opAppChange(int appid, int orgid, std::string a, std::string b, std::string reason) {
  const Callback callback = findEventCallback(Event);
  if (callback.onOpAppChange == nullptr) return;
  std::printf("\033[0;32;31m @mervo,%s,%s,%d\n", "ipc/ryn_plugin/ryn_plugin",
              "Zunt_RYN_Plugin_Server_Callback", TracePlace);
  callback.onOpAppChange(appid, orgid, std::move(a), std::move(b), std::move(reason));
}

constexpr Route kNotifications[] = {
    to<"SendAppLoadError"_code, ZUNT_RYN_EVENT_APP_LOAD_ERROR, &Callback::onApp>(),
    to<"SendAppLoaded"_code, ZUNT_RYN_EVENT_APP_LOADED, &Callback::onApp>(),
    to<"SendAppUnloaded"_code, ZUNT_RYN_EVENT_APP_UNLOADED, &Callback::onApp>(),
    route<"SendTopMost"_code, &topMost>(),
    to<"RequestDestroyApp"_code, ZUNT_RYN_EVENT_APP_DESTROY_REQUEST, &Callback::onApp>(),
    route<"SendKey"_code, &key>(),
    to<"Get_Configuration"_code, ZUNT_RYN_EVENT_GET_CONFIGURATION, &Callback::onNotify>(),
    to<"Handle_BroadcastService"_code, ZUNT_RYN_EVENT_BROADCAST_SERVICE, &Callback::onFlag>(),
    to<"Set_BroadcastFullScreen"_code, ZUNT_RYN_EVENT_BROADCAST_FULLSCREEN, &Callback::onFlag>(),
    route<"OpApp_StateChange"_code, &opAppChange<ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE, kStateChangeTrace>>(),
    route<"OpApp_ContextChange"_code,
          &opAppChange<ZUNT_RYN_EVENT_OPAPP_CONTEXT_CHANGE, kContextChangeTrace>>(),
    to<"OpApp_Update"_code, ZUNT_RYN_EVENT_OPAPP_UPDATE, &Callback::onOpAppUpdate>(),
};
static_assert(serveExactly<kNotificationQueueKey>(kNotifications),
              "one route for each notification, in the catalogue's order");

constexpr Route kQueries[] = {
    to<"IsParentalRatingBlocked"_code, ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY, &Callback::onParentalRating>(),
    to<"IsObjectSupported"_code, ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY, &Callback::onObjectSupported>(),
};
static_assert(serveExactly<kQueryQueueKey>(kQueries), "one route for each query, in the catalogue's order");

// Event callbacks run without a lock of ours, since they may make requests.
constexpr Service kNotificationService{kNotificationQueueKey, kNotifications, std::size(kNotifications),
                                       nullptr};
constexpr Service kQueryService{kQueryQueueKey, kQueries, std::size(kQueries), nullptr};

}  // namespace

IpcMessage* Zunt_RYN_Plugin_Server_Callback(const IpcMessage* request, int32_t kind, void* user_data) {
  return serve(kNotificationService, request, kind, user_data);
}

IpcMessage* Zunt_RYN_Plugin_Query_Callback(const IpcMessage* request, int32_t kind, void* user_data) {
  return serve(kQueryService, request, kind, user_data);
}

}  // namespace hbbtv_ryn
