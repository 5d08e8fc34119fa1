// Turns each notification of the browser process into one call of the host's event callback.

#include <cstdio>
#include <string>

#include "ipc/endpoint/exchange.h"
#include "ipc/ryn_plugin/state.h"

namespace hbbtv_ryn {
namespace {

using Json::Value;

// Readers of logs know the two places by these numbers.
constexpr int kStateChangeTrace = 283;
constexpr int kContextChangeTrace = 298;

void printTrace(int place) {
  std::printf("\033[0;32;31m @mervo,%s,%s,%d\n", "ipc/ryn_plugin/ryn_plugin",
              "Zunt_RYN_Plugin_Server_Callback", place);
}

void raiseApp(ZuntRynEvent event, const Incoming& in) {
  const int event_appid = in.appid();
  const int event_orgid = in.orgid();
  ZuntRynEventCallback callback;
  if (findEventCallback(event, &callback)) callback.onApp(event_appid, event_orgid, in.user_data);
}

template <ZuntRynEvent Event>
void onApp(const Incoming& in, Value*) {
  raiseApp(Event, in);
}

void onTopMost(const Incoming& in, Value*) {
  raiseApp(in.boolean(key::kTopmost) ? ZUNT_RYN_EVENT_APP_TOPMOST : ZUNT_RYN_EVENT_APP_NOT_TOPMOST, in);
}

void onKey(const Incoming& in, Value*) {
  switch (in.integer(key::kKeytype)) {
    case 1:
      return raiseApp(ZUNT_RYN_EVENT_KEY_TYPE_1, in);
    case 2:
      return raiseApp(ZUNT_RYN_EVENT_KEY_TYPE_2, in);
    case 3:
      return raiseApp(ZUNT_RYN_EVENT_KEY_TYPE_3, in);
    default:
      return;
  }
}

void onGetConfiguration(const Incoming&, Value*) {
  ZuntRynEventCallback callback;
  if (findEventCallback(ZUNT_RYN_EVENT_GET_CONFIGURATION, &callback)) callback.onNotify();
}

template <ZuntRynEvent Event>
void onFlag(const Incoming& in, Value*) {
  const bool value = in.boolean(key::kBValue);
  ZuntRynEventCallback callback;
  if (findEventCallback(Event, &callback)) callback.onFlag(value);
}

template <ZuntRynEvent Event, const char* KeyA, const char* KeyB, int TracePlace>
void onOpAppChange(const Incoming& in, Value*) {
  const std::string a = in.string(KeyA);
  const std::string b = in.string(KeyB);
  const std::string reason = in.string(key::kReason);
  const int event_appid = in.appid();
  const int event_orgid = in.orgid();
  ZuntRynEventCallback callback;
  if (!findEventCallback(Event, &callback)) return;
  printTrace(TracePlace);
  callback.onOpAppChange(event_appid, event_orgid, a, b, reason);
}

void onOpAppUpdate(const Incoming& in, Value*) {
  const std::string event = in.string(key::kEvent);
  const int event_appid = in.appid();
  const int event_orgid = in.orgid();
  ZuntRynEventCallback callback;
  if (findEventCallback(ZUNT_RYN_EVENT_OPAPP_UPDATE, &callback)) {
    callback.onOpAppUpdate(event_appid, event_orgid, event);
  }
}

// Every handler reads the message whole before it calls the event's callback, if there is one.
constexpr Route kRoutes[] = {
    {Code::SendAppLoadError, &onApp<ZUNT_RYN_EVENT_APP_LOAD_ERROR>},
    {Code::SendAppLoaded, &onApp<ZUNT_RYN_EVENT_APP_LOADED>},
    {Code::SendAppUnloaded, &onApp<ZUNT_RYN_EVENT_APP_UNLOADED>},
    {Code::SendTopMost, &onTopMost},
    {Code::RequestDestroyApp, &onApp<ZUNT_RYN_EVENT_APP_DESTROY_REQUEST>},
    {Code::SendKey, &onKey},
    {Code::Get_Configuration, &onGetConfiguration},
    {Code::Handle_BroadcastService, &onFlag<ZUNT_RYN_EVENT_BROADCAST_SERVICE>},
    {Code::Set_BroadcastFullScreen, &onFlag<ZUNT_RYN_EVENT_BROADCAST_FULLSCREEN>},
    {Code::OpApp_StateChange,
     &onOpAppChange<ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE, key::kOld, key::kNew, kStateChangeTrace>},
    {Code::OpApp_ContextChange,
     &onOpAppChange<ZUNT_RYN_EVENT_OPAPP_CONTEXT_CHANGE, key::kSloc, key::kLloc, kContextChangeTrace>},
    {Code::OpApp_Update, &onOpAppUpdate},
};

}  // namespace

IpcMessage* Zunt_RYN_Plugin_Server_Callback(const IpcMessage* request, int32_t kind, void* user_data) {
  return serve(request, kind, user_data, kRoutes);
}

}  // namespace hbbtv_ryn
