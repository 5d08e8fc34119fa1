// Questions and commands about the properties and key sets of the browser's applications, and about its
// tabs.

#include <json/writer.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <sstream>

#include "ipc/protocol/envelope.h"
#include "ipc/protocol/lists.h"
#include "ipc/ryn_plugin/requests.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

namespace {

int askKeyCodes(const Draft& question, int* otherKeys, int* num) {
  return ask(question, [&](const Json::Value& reply) {
    const int count = integer(reply, key::kNum);
    if (otherKeys == nullptr) {
      *num = count;
      return -1;
    }
    const int kept = std::min(count, kMaxKeyCodes);
    int codes[kMaxKeyCodes] = {};
    readKeyCodes(reply, kept, codes);
    *num = kept;
    std::copy_n(codes, std::max(kept, 0), otherKeys);
    return 0;
  });
}

// Writes the request to standard output, each line in one piece.
void printSetValue(const Draft& command, const int* otherKeys) {
  std::ostringstream lines;
  if (otherKeys == nullptr) lines << "otherKeys is null ptr\n";
  lines << "Zunt_RYN_Plugin_SetValue: " << command.json() << '\n';
  std::cout << lines.str() << std::flush;
}

}  // namespace

int Zunt_RYN_Plugin_GetVisible(int appid, int orgid, bool* visible) {
  return askBoolean(appDraft(Code::GetVisible, appid, orgid), key::kVisible, visible);
}

int Zunt_RYN_Plugin_GetActive(int appid, int orgid, bool* active) {
  return askBoolean(appDraft(Code::GetActive, appid, orgid), key::kActive, active);
}

int Zunt_RYN_Plugin_GetPrimaryReceiver(int appid, int orgid, bool* primary) {
  return askBoolean(appDraft(Code::GetPrimaryReceiver, appid, orgid), key::kPrimary, primary);
}

int Zunt_RYN_Plugin_GetValue(int appid, int orgid, int* value) {
  return askInteger(appDraft(Code::GetValue, appid, orgid), key::kValue, value);
}

int Zunt_RYN_Plugin_GetMaxiMumValue(int appid, int orgid, int* maxvalue) {
  return askInteger(appDraft(Code::GetMaxiMumValue, appid, orgid), key::kMaxvalue, maxvalue);
}

int Zunt_RYN_Plugin_GetOtherKeys(int appid, int orgid, int* otherKeys, int* num) {
  return askKeyCodes(appDraft(Code::GetOtherKeys, appid, orgid), otherKeys, num);
}

int Zunt_RYN_Plugin_GetMaxiMumOtherKeys(int appid, int orgid, int* otherKeys, int* num) {
  return askKeyCodes(appDraft(Code::GetMaxiMumOtherKeys, appid, orgid), otherKeys, num);
}

int Zunt_RYN_Plugin_SetSupportsPointer(int appid, int orgid, bool pointer) {
  return tell(appDraft(Code::SetSupportsPointer, appid, orgid).flag(key::kPointer, pointer));
}

int Zunt_RYN_Plugin_GetSupportsPointer(int appid, int orgid, bool* pointer) {
  return askBoolean(appDraft(Code::GetSupportsPointer, appid, orgid), key::kPointer, pointer);
}

int Zunt_RYN_Plugin_SetValue(int appid, int orgid, int value, const int* otherKeys, int keynum) {
  const Draft command = appDraft(Code::SetValue, appid, orgid)
                            .number(key::kValue, value)
                            .keyCodes(key::kKeynum, otherKeys, keynum);
  try {
    printSetValue(command, otherKeys);
  } catch (const std::exception&) {
    return -4;  // the request could not be built either
  }
  return tell(command);
}

int Zunt_RYN_Plugin_GetKeyIcon(int appid, int orgid, int code, std::string& icon) {
  return askString(appDraft(Code::GetKeyIcon, appid, orgid).number(key::kKeySetCode, code), key::kPointer,
                   &icon);
}

int Zunt_RYN_Plugin_GetKeyLabel(int appid, int orgid, int code, std::string& label) {
  return askString(appDraft(Code::GetKeyLabel, appid, orgid).number(key::kKeySetCode, code), key::kLabel,
                   &label);
}

int Zunt_RYN_Plugin_Get_VB_Resouce_Allowed(int tabid, bool* allowed) {
  return askBoolean(tabDraft(Code::Get_VB_Resouce_Allowed, tabid), key::kAllowed, allowed);
}

int Zunt_RYN_Plugin_SetBRAppToBI(int tabid) {
  return tell(tabDraft(Code::SetBRAppToBI, tabid));
}

int Zunt_RYN_Plugin_SetBIAppToBR(int tabid) {
  return tell(tabDraft(Code::SetBIAppToBR, tabid));
}

int Zunt_RYN_Plugin_Get_APP_TYPE(int tabid, int* appType) {
  return askInteger(tabDraft(Code::Get_APP_TYPE, tabid), key::kAppType, appType);
}

int Zunt_RYN_Plugin_KeyConsumedByBrowser(int tabid, int keyCode, bool* consumed) {
  return askBoolean(tabDraft(Code::KeyConsumedByBrowser, tabid).number(key::kKeyCode, keyCode),
                    key::kConsumed, consumed);
}
