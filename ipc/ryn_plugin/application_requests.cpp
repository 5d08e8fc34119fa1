// Questions and commands about the browser's applications.

#include <algorithm>

#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"
#include "ipc/ryn_plugin/requests.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

namespace {

// Asks for an application's identity.
int askIdentity(const Draft& question, int* appid, int* orgid) {
  return ask(question, [&](const Json::Value& reply) {
    const int new_appid = integer(reply, key::kAppid);
    *orgid = integer(reply, key::kOrgid);
    *appid = new_appid;
    return 0;
  });
}

}  // namespace

int Zunt_RYN_Plugin_GetOwnerApp(int* appid, int* orgid) {
  if (appid == nullptr || orgid == nullptr) return -3;
  return askIdentity(Draft(Code::GetOwnerApp).number(key::kAppid, *appid), appid, orgid);
}

int Zunt_RYN_Plugin_GetCurrentApp(int* appid, int* orgid) {
  if (appid == nullptr || orgid == nullptr) return -3;
  return askIdentity(Draft(Code::GetCurrentApp), appid, orgid);
}

int Zunt_RYN_Plugin_GetChildApps(int appid, int orgid, int* appidArray, int* orgidArray, int* appNum) {
  if (appid == -1 && orgid == -1) return -3;
  return ask(appDraft(Code::GetChildApps, appid, orgid), [&](const Json::Value& reply) {
    const int count = integer(reply, key::kAppNum);
    const std::string appids = string(reply, key::kAppidArray);
    const std::string orgids = string(reply, key::kOrgidArray);
    *appNum = count;
    const int kept = std::min(count, kMaxChildApps);
    readIdFields(appids, kept, appidArray);
    readIdFields(orgids, kept, orgidArray);
    return 0;
  });
}

int Zunt_RYN_Plugin_CreateApp(int appid, int orgid, const char* url, bool child, bool opapp, int* newAppid,
                              int* newOrgid) {
  if (url == nullptr || newAppid == nullptr || newOrgid == nullptr) return -3;
  return askIdentity(appDraft(Code::CreateApp, appid, orgid)
                         .string(key::kUrl, url)
                         .flag(key::kChild, child)
                         .flag(key::kOpapp, opapp),
                     newAppid, newOrgid);
}

int Zunt_RYN_Plugin_ShowApp(int appid, int orgid) {
  return tell(appDraft(Code::ShowApp, appid, orgid));
}

int Zunt_RYN_Plugin_HideApp(int appid, int orgid) {
  return tell(appDraft(Code::HideApp, appid, orgid));
}

int Zunt_RYN_Plugin_DestroyApp(int appid, int orgid) {
  return tell(appDraft(Code::DestroyApp, appid, orgid));
}

int Zunt_RYN_Plugin_ActivateInput(int appid, int orgid, bool focus) {
  return tell(appDraft(Code::ActivateInput, appid, orgid).boolean(key::kFocus, focus));
}

int Zunt_RYN_Plugin_DeactivateInput(int appid, int orgid) {
  return tell(appDraft(Code::DeactivateInput, appid, orgid));
}
