// The requests that the plug-in host sends to the browser process.

#include <json/writer.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>

#include "ipc/endpoint/signature.h"
#include "ipc/protocol/envelope.h"
#include "ipc/ryn_plugin/state.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

namespace {

const Outlet<kRequestQueueKey> kBrowser{{g_plugin_client, g_plugin_mutex}};

// A key-code list is one member of the row and two parameters here.
template <Code C>
int askKeyCodes(int appid, int orgid, int* otherKeys, int* num) {
  KeyCodes keys{};
  const int result = kBrowser.send<C>(With(appid, orgid), &keys);
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

void printSetValue(const Given* given) {
  try {
    // In the form of the JSON library's streams, which is not that of the wire.
    const Json::StreamWriterBuilder styled;
    const Message& row = messageOf("SetValue"_code);
    const auto request = compose(static_cast<int>(row.code), row.request, given);
    writeLine("Zunt_RYN_Plugin_SetValue: " + Json::writeString(styled, request) + '\n');
  } catch (const std::exception&) {
    return;
  }
}

}  // namespace

// Applications.

int Zunt_RYN_Plugin_GetOwnerApp(int* appid, int* orgid) {
  if (appid == nullptr || orgid == nullptr) return -3;
  return kBrowser.send<"GetOwnerApp"_code>(With(*appid), appid, orgid);
}

int Zunt_RYN_Plugin_GetCurrentApp(int* appid, int* orgid) {
  if (appid == nullptr || orgid == nullptr) return -3;
  return kBrowser.send<"GetCurrentApp"_code>(With(), appid, orgid);
}

// The arrays travel as texts.
int Zunt_RYN_Plugin_GetChildApps(int appid, int orgid, int* appidArray, int* orgidArray, int* appNum) {
  if (appid == -1 && orgid == -1) return -3;
  int count = 0;
  std::string appids;
  std::string orgids;
  const int result = kBrowser.send<"GetChildApps"_code>(With(appid, orgid), &count, &appids, &orgids);
  if (result != 0) return result;
  *appNum = count;
  const int kept = std::min(count, ZUNT_RYN_MAX_CHILD_APPS);
  readIdFields(appids, kept, appidArray);
  readIdFields(orgids, kept, orgidArray);
  return 0;
}

int Zunt_RYN_Plugin_CreateApp(int appid, int orgid, const char* url, bool child, bool opapp, int* newAppid,
                              int* newOrgid) {
  if (url == nullptr || newAppid == nullptr || newOrgid == nullptr) return -3;
  return kBrowser.send<"CreateApp"_code>(With(appid, orgid, url, child, opapp), newAppid, newOrgid);
}

int Zunt_RYN_Plugin_ShowApp(int appid, int orgid) {
  return kBrowser.send<"ShowApp"_code>(With(appid, orgid));
}

int Zunt_RYN_Plugin_HideApp(int appid, int orgid) {
  return kBrowser.send<"HideApp"_code>(With(appid, orgid));
}

int Zunt_RYN_Plugin_DestroyApp(int appid, int orgid) {
  return kBrowser.send<"DestroyApp"_code>(With(appid, orgid));
}

int Zunt_RYN_Plugin_ActivateInput(int appid, int orgid, bool focus) {
  return kBrowser.send<"ActivateInput"_code>(With(appid, orgid, focus));
}

int Zunt_RYN_Plugin_DeactivateInput(int appid, int orgid) {
  return kBrowser.send<"DeactivateInput"_code>(With(appid, orgid));
}

// Properties and key sets.

int Zunt_RYN_Plugin_GetVisible(int appid, int orgid, bool* visible) {
  return kBrowser.send<"GetVisible"_code>(With(appid, orgid), visible);
}

int Zunt_RYN_Plugin_GetActive(int appid, int orgid, bool* active) {
  return kBrowser.send<"GetActive"_code>(With(appid, orgid), active);
}

int Zunt_RYN_Plugin_GetPrimaryReceiver(int appid, int orgid, bool* primary) {
  return kBrowser.send<"GetPrimaryReceiver"_code>(With(appid, orgid), primary);
}

int Zunt_RYN_Plugin_GetValue(int appid, int orgid, int* value) {
  return kBrowser.send<"GetValue"_code>(With(appid, orgid), value);
}

int Zunt_RYN_Plugin_GetMaxiMumValue(int appid, int orgid, int* maxvalue) {
  return kBrowser.send<"GetMaxiMumValue"_code>(With(appid, orgid), maxvalue);
}

int Zunt_RYN_Plugin_GetOtherKeys(int appid, int orgid, int* otherKeys, int* num) {
  return askKeyCodes<"GetOtherKeys"_code>(appid, orgid, otherKeys, num);
}

int Zunt_RYN_Plugin_GetMaxiMumOtherKeys(int appid, int orgid, int* otherKeys, int* num) {
  return askKeyCodes<"GetMaxiMumOtherKeys"_code>(appid, orgid, otherKeys, num);
}

int Zunt_RYN_Plugin_SetSupportsPointer(int appid, int orgid, bool pointer) {
  return kBrowser.send<"SetSupportsPointer"_code>(With(appid, orgid, pointer));
}

int Zunt_RYN_Plugin_GetSupportsPointer(int appid, int orgid, bool* pointer) {
  return kBrowser.send<"GetSupportsPointer"_code>(With(appid, orgid), pointer);
}

int Zunt_RYN_Plugin_SetValue(int appid, int orgid, int value, const int* otherKeys, int keynum) {
  if (otherKeys == nullptr) writeLine("otherKeys is null ptr\n");
  const With given(appid, orgid, value, KeyList{otherKeys, keynum});
  printSetValue(given.values.data());
  return kBrowser.send<"SetValue"_code>(given);
}

int Zunt_RYN_Plugin_GetKeyIcon(int appid, int orgid, int code, std::string& icon) {
  return kBrowser.send<"GetKeyIcon"_code>(With(appid, orgid, code), &icon);
}

int Zunt_RYN_Plugin_GetKeyLabel(int appid, int orgid, int code, std::string& label) {
  return kBrowser.send<"GetKeyLabel"_code>(With(appid, orgid, code), &label);
}

// Tabs.

int Zunt_RYN_Plugin_Get_VB_Resouce_Allowed(int tabid, bool* allowed) {
  return kBrowser.send<"Get_VB_Resouce_Allowed"_code>(With(tabid), allowed);
}

int Zunt_RYN_Plugin_SetBRAppToBI(int tabid) {
  return kBrowser.send<"SetBRAppToBI"_code>(With(tabid));
}

int Zunt_RYN_Plugin_SetBIAppToBR(int tabid) {
  return kBrowser.send<"SetBIAppToBR"_code>(With(tabid));
}

int Zunt_RYN_Plugin_Get_APP_TYPE(int tabid, int* appType) {
  return kBrowser.send<"Get_APP_TYPE"_code>(With(tabid), appType);
}

int Zunt_RYN_Plugin_KeyConsumedByBrowser(int tabid, int keyCode, bool* consumed) {
  return kBrowser.send<"KeyConsumedByBrowser"_code>(With(tabid, keyCode), consumed);
}

// Operator application.

int Zunt_RYN_Plugin_OpApp_Uninstall_Judge(bool* flag) {
  return kBrowser.send<"OpApp_Uninstall_Judge"_code>(With(), flag);
}

int Zunt_RYN_Plugin_OpApp_GetStatus(std::string& status) {
  return kBrowser.send<"OpApp_GetStatus"_code>(With(), &status);
}

int Zunt_RYN_Plugin_OpApp_SetStatus(std::string status) {
  return kBrowser.send<"OpApp_SetStatus"_code>(With(status));
}

int Zunt_RYN_Plugin_OpApp_RequestTransient() {
  return kBrowser.send<"OpApp_RequestTransient"_code>(With());
}

int Zunt_RYN_Plugin_OpApp_RequestForeground() {
  return kBrowser.send<"OpApp_RequestForeground"_code>(With());
}

int Zunt_RYN_Plugin_OpApp_RequestBackground() {
  return kBrowser.send<"OpApp_RequestBackground"_code>(With());
}

int Zunt_RYN_Plugin_OpApp_GetUpdateStatus(int* status) {
  return kBrowser.send<"OpApp_GetUpdateStatus"_code>(With(), status);
}

int Zunt_RYN_Plugin_OpApp_RequestUpdate() {
  return kBrowser.send<"OpApp_RequestUpdate"_code>(With());
}
