// The notifications and queries that the browser host sends to the plug-in process.

#include "ipc/endpoint/exchange.h"
#include "ipc/ryn_browser/state.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

namespace {

// Serialises every send of the browser process, on either client. A query holds it until its reply is read.
std::mutex g_browser_send_mutex;

const Outlet kNotifications{g_browser_notify_client, g_browser_send_mutex};
const Outlet kQueries{g_browser_query_client, g_browser_send_mutex};

int notify(const Draft& message) {
  return tell(kNotifications, message);
}

}  // namespace

int Zunt_RYN_Browser_SendAppLoadError(int appid, int orgid, int error) {
  return notify(appDraft(Code::SendAppLoadError, appid, orgid).number(key::kError, error));
}

int Zunt_RYN_Browser_SendAppLoaded(int appid, int orgid) {
  return notify(appDraft(Code::SendAppLoaded, appid, orgid));
}

int Zunt_RYN_Browser_SendAppUnloaded(int appid, int orgid) {
  return notify(appDraft(Code::SendAppUnloaded, appid, orgid));
}

int Zunt_RYN_Browser_SendTopMost(int appid, int orgid, bool topmost) {
  return notify(appDraft(Code::SendTopMost, appid, orgid).boolean(key::kTopmost, topmost));
}

int Zunt_RYN_Browser_RequestDestroyApp(int appid, int orgid) {
  return notify(appDraft(Code::RequestDestroyApp, appid, orgid));
}

int Zunt_RYN_Browser_SendKey(int appid, int orgid, ZuntKey key, ZuntKeyEventType type) {
  return notify(appDraft(Code::SendKey, appid, orgid).number(key::kKey, key).number(key::kKeytype, type));
}

int Zunt_RYN_Browser_Get_Configuration() {
  return notify(Draft(Code::Get_Configuration));
}

int Zunt_RYN_Browser_Handle_BroadcastService(bool value) {
  return notify(Draft(Code::Handle_BroadcastService).flag(key::kBValue, value));
}

int Zunt_RYN_Browser_Set_BroadcastFullScreen(bool value) {
  return notify(Draft(Code::Set_BroadcastFullScreen).flag(key::kBValue, value));
}

int Zunt_RYN_Browser_OpApp_StateChange(int appid, int orgid, std::string oldState, std::string newState,
                                       std::string reason) {
  return notify(appDraft(Code::OpApp_StateChange, appid, orgid)
                    .string(key::kOld, oldState)
                    .string(key::kNew, newState)
                    .string(key::kReason, reason));
}

int Zunt_RYN_Browser_OpApp_ContextChange(int appid, int orgid, std::string sloc, std::string lloc,
                                         std::string reason) {
  return notify(appDraft(Code::OpApp_ContextChange, appid, orgid)
                    .string(key::kSloc, sloc)
                    .string(key::kLloc, lloc)
                    .string(key::kReason, reason));
}

int Zunt_RYN_Browser_OpApp_Update(int appid, int orgid, std::string event) {
  return notify(appDraft(Code::OpApp_Update, appid, orgid).string(key::kEvent, event));
}

int Zunt_RYN_Browser_IsParentalRatingBlocked(int appid, int orgid, bool* blocked) {
  if (blocked == nullptr) return -3;
  return askBoolean(kQueries, appDraft(Code::IsParentalRatingBlocked, appid, orgid), key::kBlocked,
                    blocked);
}

int Zunt_RYN_Browser_IsObjectSupported(const std::string& mtype, bool* supported) {
  if (supported == nullptr) return -3;
  return askBoolean(kQueries, Draft(Code::IsObjectSupported).string(key::kMtype, mtype), key::kSupported,
                    supported);
}
