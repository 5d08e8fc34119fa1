// The notifications and queries that the browser host sends to the plug-in process.

#include "ipc/endpoint/signature.h"
#include "ipc/ryn_browser/state.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

namespace {

// Serialises every send of the browser process, on either client. A query holds it until its reply is read.
std::mutex g_browser_send_mutex;

const Outlet<kNotificationQueueKey> kNotifications{{g_browser_notify_client, g_browser_send_mutex}};
const Outlet<kQueryQueueKey> kQueries{{g_browser_query_client, g_browser_send_mutex}};

}  // namespace

int Zunt_RYN_Browser_SendAppLoadError(int appid, int orgid, int error) {
  return kNotifications.send<"SendAppLoadError"_code>(With(appid, orgid, error));
}

int Zunt_RYN_Browser_SendAppLoaded(int appid, int orgid) {
  return kNotifications.send<"SendAppLoaded"_code>(With(appid, orgid));
}

int Zunt_RYN_Browser_SendAppUnloaded(int appid, int orgid) {
  return kNotifications.send<"SendAppUnloaded"_code>(With(appid, orgid));
}

int Zunt_RYN_Browser_SendTopMost(int appid, int orgid, bool topmost) {
  return kNotifications.send<"SendTopMost"_code>(With(appid, orgid, topmost));
}

int Zunt_RYN_Browser_RequestDestroyApp(int appid, int orgid) {
  return kNotifications.send<"RequestDestroyApp"_code>(With(appid, orgid));
}

int Zunt_RYN_Browser_SendKey(int appid, int orgid, ZuntKey key, ZuntKeyEventType type) {
  return kNotifications.send<"SendKey"_code>(With(appid, orgid, key, type));
}

int Zunt_RYN_Browser_Get_Configuration() {
  return kNotifications.send<"Get_Configuration"_code>(With());
}

int Zunt_RYN_Browser_Handle_BroadcastService(bool value) {
  return kNotifications.send<"Handle_BroadcastService"_code>(With(value));
}

int Zunt_RYN_Browser_Set_BroadcastFullScreen(bool value) {
  return kNotifications.send<"Set_BroadcastFullScreen"_code>(With(value));
}

int Zunt_RYN_Browser_OpApp_StateChange(int appid, int orgid, std::string oldState, std::string newState,
                                       std::string reason) {
  return kNotifications.send<"OpApp_StateChange"_code>(With(appid, orgid, oldState, newState, reason));
}

int Zunt_RYN_Browser_OpApp_ContextChange(int appid, int orgid, std::string sloc, std::string lloc,
                                         std::string reason) {
  return kNotifications.send<"OpApp_ContextChange"_code>(With(appid, orgid, sloc, lloc, reason));
}

int Zunt_RYN_Browser_OpApp_Update(int appid, int orgid, std::string event) {
  return kNotifications.send<"OpApp_Update"_code>(With(appid, orgid, event));
}

int Zunt_RYN_Browser_IsParentalRatingBlocked(int appid, int orgid, bool* blocked) {
  if (blocked == nullptr) return -3;
  return kQueries.send<"IsParentalRatingBlocked"_code>(With(appid, orgid), blocked);
}

int Zunt_RYN_Browser_IsObjectSupported(const std::string& mtype, bool* supported) {
  if (supported == nullptr) return -3;
  return kQueries.send<"IsObjectSupported"_code>(With(mtype), supported);
}
