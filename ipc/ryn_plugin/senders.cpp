// The requests that the plug-in host sends to the browser process.

#include <json/writer.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>

#include "ipc/endpoint/signature.h"
#include "ipc/protocol/lists.h"
#include "ipc/ryn_plugin/state.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

namespace {

const Outlet<kRequestQueueKey> kBrowser{{g_plugin_client, g_plugin_mutex}};

// A key-code list is one member of the row and two parameters here.
template <Code C>
int askKeyCodes(int appid, int orgid, int* otherKeys, int* num) {
  KeyCodes keys{};
  const int result = kBrowser.ask<C>(with(appid, orgid), &keys);
  if (result != 0) return result;
  *num = keys.count;
  if (otherKeys == nullptr) return -1;
  *num = std::min(keys.count, kMaxKeyCodes);
  std::copy_n(keys.codes, std::max(*num, 0), otherKeys);
  return 0;
}

// Best effort: a line that cannot be written is lost, and nobody is told.
void writeLine(const std::string& line) {
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
}

void printSetValue(const Json::Value& request) {
  try {
    // In the form of the JSON library's streams, which is not that of the wire.
    const Json::StreamWriterBuilder styled;
    writeLine("Zunt_RYN_Plugin_SetValue: " + Json::writeString(styled, request) + '\n');
  } catch (const std::exception&) {
    return;
  }
}

}  // namespace

// Applications.

int Zunt_RYN_Plugin_GetOwnerApp(int* appid, int* orgid) {
  if (appid == nullptr || orgid == nullptr) return -3;
  return kBrowser.ask<Code::GetOwnerApp>(with(*appid), appid, orgid);
}

int Zunt_RYN_Plugin_GetCurrentApp(int* appid, int* orgid) {
  if (appid == nullptr || orgid == nullptr) return -3;
  return kBrowser.ask<Code::GetCurrentApp>(with(), appid, orgid);
}

// The arrays travel as texts.
int Zunt_RYN_Plugin_GetChildApps(int appid, int orgid, int* appidArray, int* orgidArray, int* appNum) {
  if (appid == -1 && orgid == -1) return -3;
  int count = 0;
  std::string appids;
  std::string orgids;
  const int result = kBrowser.ask<Code::GetChildApps>(with(appid, orgid), &count, &appids, &orgids);
  if (result != 0) return result;
  *appNum = count;
  const int kept = std::min(count, kMaxChildApps);
  readIdFields(appids, kept, appidArray);
  readIdFields(orgids, kept, orgidArray);
  return 0;
}

int Zunt_RYN_Plugin_CreateApp(int appid, int orgid, const char* url, bool child, bool opapp, int* newAppid,
                              int* newOrgid) {
  if (url == nullptr || newAppid == nullptr || newOrgid == nullptr) return -3;
  return kBrowser.ask<Code::CreateApp>(with(appid, orgid, url, child, opapp), newAppid, newOrgid);
}

int Zunt_RYN_Plugin_ShowApp(int appid, int orgid) {
  return kBrowser.tell<Code::ShowApp>(with(appid, orgid));
}

int Zunt_RYN_Plugin_HideApp(int appid, int orgid) {
  return kBrowser.tell<Code::HideApp>(with(appid, orgid));
}

int Zunt_RYN_Plugin_DestroyApp(int appid, int orgid) {
  return kBrowser.tell<Code::DestroyApp>(with(appid, orgid));
}

int Zunt_RYN_Plugin_ActivateInput(int appid, int orgid, bool focus) {
  return kBrowser.tell<Code::ActivateInput>(with(appid, orgid, focus));
}

int Zunt_RYN_Plugin_DeactivateInput(int appid, int orgid) {
  return kBrowser.tell<Code::DeactivateInput>(with(appid, orgid));
}

// Properties and key sets.

int Zunt_RYN_Plugin_GetVisible(int appid, int orgid, bool* visible) {
  return kBrowser.ask<Code::GetVisible>(with(appid, orgid), visible);
}

int Zunt_RYN_Plugin_GetActive(int appid, int orgid, bool* active) {
  return kBrowser.ask<Code::GetActive>(with(appid, orgid), active);
}

int Zunt_RYN_Plugin_GetPrimaryReceiver(int appid, int orgid, bool* primary) {
  return kBrowser.ask<Code::GetPrimaryReceiver>(with(appid, orgid), primary);
}

int Zunt_RYN_Plugin_GetValue(int appid, int orgid, int* value) {
  return kBrowser.ask<Code::GetValue>(with(appid, orgid), value);
}

int Zunt_RYN_Plugin_GetMaxiMumValue(int appid, int orgid, int* maxvalue) {
  return kBrowser.ask<Code::GetMaxiMumValue>(with(appid, orgid), maxvalue);
}

int Zunt_RYN_Plugin_GetOtherKeys(int appid, int orgid, int* otherKeys, int* num) {
  return askKeyCodes<Code::GetOtherKeys>(appid, orgid, otherKeys, num);
}

int Zunt_RYN_Plugin_GetMaxiMumOtherKeys(int appid, int orgid, int* otherKeys, int* num) {
  return askKeyCodes<Code::GetMaxiMumOtherKeys>(appid, orgid, otherKeys, num);
}

int Zunt_RYN_Plugin_SetSupportsPointer(int appid, int orgid, bool pointer) {
  return kBrowser.tell<Code::SetSupportsPointer>(with(appid, orgid, pointer));
}

int Zunt_RYN_Plugin_GetSupportsPointer(int appid, int orgid, bool* pointer) {
  return kBrowser.ask<Code::GetSupportsPointer>(with(appid, orgid), pointer);
}

int Zunt_RYN_Plugin_SetValue(int appid, int orgid, int value, const int* otherKeys, int keynum) {
  if (otherKeys == nullptr) writeLine("otherKeys is null ptr\n");
  return kBrowser.tell<Code::SetValue>(with(appid, orgid, value, KeyList{otherKeys, keynum}),
                                       &printSetValue);
}

int Zunt_RYN_Plugin_GetKeyIcon(int appid, int orgid, int code, std::string& icon) {
  return kBrowser.ask<Code::GetKeyIcon>(with(appid, orgid, code), &icon);
}

int Zunt_RYN_Plugin_GetKeyLabel(int appid, int orgid, int code, std::string& label) {
  return kBrowser.ask<Code::GetKeyLabel>(with(appid, orgid, code), &label);
}

// Tabs.

int Zunt_RYN_Plugin_Get_VB_Resouce_Allowed(int tabid, bool* allowed) {
  return kBrowser.ask<Code::Get_VB_Resouce_Allowed>(with(tabid), allowed);
}

int Zunt_RYN_Plugin_SetBRAppToBI(int tabid) {
  return kBrowser.tell<Code::SetBRAppToBI>(with(tabid));
}

int Zunt_RYN_Plugin_SetBIAppToBR(int tabid) {
  return kBrowser.tell<Code::SetBIAppToBR>(with(tabid));
}

int Zunt_RYN_Plugin_Get_APP_TYPE(int tabid, int* appType) {
  return kBrowser.ask<Code::Get_APP_TYPE>(with(tabid), appType);
}

int Zunt_RYN_Plugin_KeyConsumedByBrowser(int tabid, int keyCode, bool* consumed) {
  return kBrowser.ask<Code::KeyConsumedByBrowser>(with(tabid, keyCode), consumed);
}

// Operator application.

int Zunt_RYN_Plugin_OpApp_Uninstall_Judge(bool* flag) {
  return kBrowser.ask<Code::OpApp_Uninstall_Judge>(with(), flag);
}

int Zunt_RYN_Plugin_OpApp_GetStatus(std::string& status) {
  return kBrowser.ask<Code::OpApp_GetStatus>(with(), &status);
}

int Zunt_RYN_Plugin_OpApp_SetStatus(std::string status) {
  return kBrowser.ask<Code::OpApp_SetStatus>(with(status));
}

int Zunt_RYN_Plugin_OpApp_RequestTransient() {
  return kBrowser.ask<Code::OpApp_RequestTransient>(with());
}

int Zunt_RYN_Plugin_OpApp_RequestForeground() {
  return kBrowser.ask<Code::OpApp_RequestForeground>(with());
}

int Zunt_RYN_Plugin_OpApp_RequestBackground() {
  return kBrowser.ask<Code::OpApp_RequestBackground>(with());
}

int Zunt_RYN_Plugin_OpApp_GetUpdateStatus(int* status) {
  return kBrowser.ask<Code::OpApp_GetUpdateStatus>(with(), status);
}

int Zunt_RYN_Plugin_OpApp_RequestUpdate() {
  return kBrowser.ask<Code::OpApp_RequestUpdate>(with());
}
