// Both endpoints at once, each in a process of its own: this one and a child.
#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <sstream>
#include <vector>

#include "endpoints/wire.h"
#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "ipc/protocol/catalogue.h"
#include "support/child_process.h"
#include "support/output_capture.h"

namespace hbbtv_ryn::test {
namespace {

template <typename... Values>
std::string line(Values... values) {
  std::ostringstream text;
  ((text << values << ' '), ...);
  return text.str();
}

// --- The far side: its host code hands every call to the test, one by one

std::mutex g_mutex;
std::condition_variable g_called;
std::deque<std::string> g_calls;  // guarded by g_mutex
std::string g_text;               // the last text that came in; of the receive thread

template <typename... Values>
void note(Values... values) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_calls.push_back(line(values...));
  g_called.notify_one();
}

int tellCalls(Parent& parent) {
  parent.say("up");
  while (parent.hear() == "next call") {
    std::unique_lock<std::mutex> lock(g_mutex);
    g_called.wait(lock, [] { return !g_calls.empty(); });
    const std::string call = std::move(g_calls.front());
    g_calls.pop_front();
    lock.unlock();
    parent.say(call);
  }
  return 0;
}

template <const char* Name>
void noteApp(int appid, int orgid) {
  note(Name, appid, orgid);
}
template <const char* Name>
void answerYes(int appid, int orgid, bool* answer) {
  note(Name, appid, orgid);
  *answer = true;
}
template <const char* Name, int Value>
void answerNumber(int appid, int orgid, int* value) {
  note(Name, appid, orgid);
  *value = Value;
}
template <const char* Name>
void answerKeys(int appid, int orgid, int* keys, int* count) {
  note(Name, appid, orgid);
  for (int i = 0; i < 20; ++i) keys[i] = 100 + i;
  *count = 20;
}
template <const char* Name>
void answerText(int appid, int orgid, int code, std::string& text) {
  note(Name, appid, orgid, code);
  text = g_text;
}
template <const char* Name>
void noteTab(int tabid) {
  note(Name, tabid);
}
template <const char* Name, int Result>
int answerResult() {
  note(Name);
  return Result;
}

namespace name {
constexpr char kDestroyApp[] = "DestroyApp", kShowApp[] = "ShowApp", kHideApp[] = "HideApp",
               kDeactivateInput[] = "DeactivateInput", kGetVisible[] = "GetVisible",
               kGetActive[] = "GetActive", kGetPrimaryReceiver[] = "GetPrimaryReceiver",
               kGetValue[] = "GetValue", kGetOtherKeys[] = "GetOtherKeys",
               kGetMaxiMumValue[] = "GetMaxiMumValue", kGetMaxiMumOtherKeys[] = "GetMaxiMumOtherKeys",
               kGetSupportsPointer[] = "GetSupportsPointer", kGetKeyIcon[] = "GetKeyIcon",
               kGetKeyLabel[] = "GetKeyLabel", kSetBRAppToBI[] = "SetBRAppToBI",
               kSetBIAppToBR[] = "SetBIAppToBR", kTransient[] = "OpApp_RequestTransient",
               kForeground[] = "OpApp_RequestForeground", kBackground[] = "OpApp_RequestBackground",
               kRequestUpdate[] = "OpApp_RequestUpdate";
}

ZuntRynBrowserEventCallback notingHandlers() {
  ZuntRynBrowserEventCallback h{};
  h.GetOwnerApp = [](int* a, int* o, void*) { note("GetOwnerApp", *a), *a = -7, *o = 8; };
  h.GetCurrentApp = [](int* a, int* o, void*) { note("GetCurrentApp"), *a = 2147483647, *o = -2147483647; };
  h.GetChildApps = [](int a, int o, int* appids, int* orgids, int* count) {
    note("GetChildApps", a, o);
    *count = 300;
    for (int i = 0; i < *count; ++i) appids[i] = i, orgids[i] = -i;
  };
  h.CreateApp = [](int a, int o, const char* url, bool child, bool opapp, int* new_a, int* new_o) {
    note("CreateApp", a, o, child, opapp, url);
    g_text = url;
    *new_a = 21;
    *new_o = 22;
  };
  h.DestroyApp = &noteApp<name::kDestroyApp>;
  h.ShowApp = &noteApp<name::kShowApp>;
  h.HideApp = &noteApp<name::kHideApp>;
  h.ActivateInput = [](int a, int o, bool focus) { note("ActivateInput", a, o, focus); };
  h.DeactivateInput = &noteApp<name::kDeactivateInput>;
  h.GetVisible = &answerYes<name::kGetVisible>;
  h.GetActive = &answerYes<name::kGetActive>;
  h.GetPrimaryReceiver = &answerYes<name::kGetPrimaryReceiver>;
  h.GetValue = &answerNumber<name::kGetValue, 31>;
  h.GetOtherKeys = &answerKeys<name::kGetOtherKeys>;
  h.GetMaxiMumValue = &answerNumber<name::kGetMaxiMumValue, -1>;
  h.GetMaxiMumOtherKeys = &answerKeys<name::kGetMaxiMumOtherKeys>;
  h.SetSupportsPointer = [](int a, int o, bool pointer) { note("SetSupportsPointer", a, o, pointer); };
  h.GetSupportsPointer = &answerYes<name::kGetSupportsPointer>;
  h.GetKeyIcon = &answerText<name::kGetKeyIcon>;
  h.GetKeyLabel = &answerText<name::kGetKeyLabel>;
  h.SetValue = [](int a, int o, int value, const int* keys, int count) {
    note("SetValue", a, o, value, count, keys[0], keys[19]);
  };
  h.Get_VB_Resouce_Allowed = [](int tab, bool* v) { note("Get_VB_Resouce_Allowed", tab), *v = true; };
  h.SetBRAppToBI = &noteTab<name::kSetBRAppToBI>;
  h.Get_APP_TYPE = [](int tab, int* v) { note("Get_APP_TYPE", tab), *v = 3; };
  h.SetBIAppToBR = &noteTab<name::kSetBIAppToBR>;
  h.KeyConsumedByBrowser = [](int tab, int key, bool* v) {
    note("KeyConsumedByBrowser", tab, key), *v = true;
  };
  h.OpApp_Uninstall_Judge = [](bool* v) { note("OpApp_Uninstall_Judge"), *v = false; };
  h.OpApp_GetStatus = [](std::string& status) { return note("OpApp_GetStatus"), status = g_text, 2; };
  h.OpApp_SetStatus = [](std::string status) {
    return note("OpApp_SetStatus", status), g_text = status, 3;
  };
  h.OpApp_RequestTransient = &answerResult<name::kTransient, 4>;
  h.OpApp_RequestForeground = &answerResult<name::kForeground, 5>;
  h.OpApp_RequestBackground = &answerResult<name::kBackground, 6>;
  h.OpApp_GetUpdateStatus = [](int* v) { return note("OpApp_GetUpdateStatus"), *v = 9, 7; };
  h.OpApp_RequestUpdate = &answerResult<name::kRequestUpdate, 8>;
  return h;
}

const ChildRole kBrowser("browser", [](Parent& parent) {
  Zunt_RYN_Browser_RegisterCallback(notingHandlers(), nullptr);
  if (Zunt_RYN_Browser_Initialize() != 0) return 1;
  return tellCalls(parent) + Zunt_RYN_Browser_Finalize();
});

template <int Event>
void noteAppEvent(int appid, int orgid, void*) {
  note(Event, appid, orgid);
}
template <int Event>
void noteFlag(bool value) {
  note(Event, value);
}
template <int Event>
void noteChange(int appid, int orgid, std::string a, std::string b, std::string reason) {
  note(Event, appid, orgid, a, b, reason);
}

template <typename Function>
void on(int event, Function ZuntRynEventCallback::*member, Function function) {
  ZuntRynEventCallback callback;
  callback.*member = function;
  Zunt_RYN_Plugin_RegisterRynEventCallback(static_cast<ZuntRynEvent>(event), callback);
}

const ChildRole kPlugin("plugin", [](Parent& parent) {
  on(1, &ZuntRynEventCallback::onApp, &noteAppEvent<1>);
  on(2, &ZuntRynEventCallback::onApp, &noteAppEvent<2>);
  on(3, &ZuntRynEventCallback::onApp, &noteAppEvent<3>);
  on(4, &ZuntRynEventCallback::onApp, &noteAppEvent<4>);
  on(5, &ZuntRynEventCallback::onApp, &noteAppEvent<5>);
  on(6, &ZuntRynEventCallback::onApp, &noteAppEvent<6>);
  on(8, &ZuntRynEventCallback::onApp, &noteAppEvent<8>);
  on<void (*)()>(20, &ZuntRynEventCallback::onNotify, [] { note(20); });
  on(21, &ZuntRynEventCallback::onFlag, &noteFlag<21>);
  on(22, &ZuntRynEventCallback::onFlag, &noteFlag<22>);
  on(23, &ZuntRynEventCallback::onOpAppChange, &noteChange<23>);
  on(24, &ZuntRynEventCallback::onOpAppChange, &noteChange<24>);
  on<void (*)(int, int, std::string)>(25, &ZuntRynEventCallback::onOpAppUpdate,
                                      [](int a, int o, std::string event) { note(25, a, o, event); });
  on<void (*)(int, int, bool*)>(10, &ZuntRynEventCallback::onParentalRating,
                                [](int a, int o, bool* v) { note(10, a, o), *v = true; });
  on<void (*)(const std::string&, bool*)>(
      19, &ZuntRynEventCallback::onObjectSupported,
      [](const std::string& mtype, bool* v) { note(19, mtype), *v = true; });
  if (Zunt_RYN_Plugin_Initialize() != 0) return 1;
  return tellCalls(parent) + Zunt_RYN_Plugin_Finalize();
});

// --- The near side

struct Step {
  const char* name;  // in the catalogue
  // Makes the call with this text, where it carries one; the result and the out-parameters.
  std::string (*call)(const std::string& text);
  std::string expected;  // of call(); T stands for the text
  std::string far_side;  // what the host there is told; T stands for the text
};

template <int (*Ask)(int, int, bool*)>
std::string flagOf(const std::string&) {
  bool value = false;
  const int result = Ask(1, -2, &value);
  return line(result, value);
}
template <int (*Ask)(int, int, int*)>
std::string numberOf(const std::string&) {
  int value = 0;
  const int result = Ask(1, -2, &value);
  return line(result, value);
}
template <int (*Ask)(int, int, int*, int*)>
std::string keysOf(const std::string&) {
  int keys[20] = {};
  int count = 0;
  const int result = Ask(1, -2, keys, &count);
  return line(result, count, keys[0], keys[19]);
}
template <int (*Ask)(int, int, int, std::string&)>
std::string textOf(const std::string&) {
  std::string value = "old";
  const int result = Ask(1, -2, 415, value);
  return line(result, value);
}
template <int (*Tell)(int, int)>
std::string toldApp(const std::string&) {
  return line(Tell(1, -2));
}
template <int (*Tell)(int)>
std::string toldTab(const std::string&) {
  return line(Tell(4));
}
template <int (*Ask)()>
std::string resultOf(const std::string&) {
  return line(Ask());
}

using Text = const std::string&;

// The texts come in with CreateApp and OpApp_SetStatus, and go back with the questions behind them.
const Step kRequests[] = {
    {"GetOwnerApp",
     [](Text) {
       int a = 5;
       int o = 0;
       const int result = Zunt_RYN_Plugin_GetOwnerApp(&a, &o);
       return line(result, a, o);
     },
     "0 -7 8 ", "GetOwnerApp 5 "},
    {"GetCurrentApp",
     [](Text) {
       int a = 0;
       int o = 0;
       const int result = Zunt_RYN_Plugin_GetCurrentApp(&a, &o);
       return line(result, a, o);
     },
     "0 2147483647 -2147483647 ", "GetCurrentApp "},
    {"GetChildApps",
     [](Text) {
       std::vector<int> a(512);
       std::vector<int> o(512);
       int count = 0;
       const int result = Zunt_RYN_Plugin_GetChildApps(1, -2, a.data(), o.data(), &count);
       return line(result, count, a[299], o[299], a[300]);
     },
     "0 300 299 -299 0 ", "GetChildApps 1 -2 "},
    {"CreateApp",
     [](Text text) {
       int a = 0;
       int o = 0;
       const int result = Zunt_RYN_Plugin_CreateApp(1, -2, text.c_str(), true, false, &a, &o);
       return line(result, a, o);
     },
     "0 21 22 ", "CreateApp 1 -2 1 0 T "},
    {"GetKeyIcon", &textOf<&Zunt_RYN_Plugin_GetKeyIcon>, "0 T ", "GetKeyIcon 1 -2 415 "},
    {"GetKeyLabel", &textOf<&Zunt_RYN_Plugin_GetKeyLabel>, "0 T ", "GetKeyLabel 1 -2 415 "},
    {"DestroyApp", &toldApp<&Zunt_RYN_Plugin_DestroyApp>, "0 ", "DestroyApp 1 -2 "},
    {"ShowApp", &toldApp<&Zunt_RYN_Plugin_ShowApp>, "0 ", "ShowApp 1 -2 "},
    {"HideApp", &toldApp<&Zunt_RYN_Plugin_HideApp>, "0 ", "HideApp 1 -2 "},
    {"ActivateInput", [](Text) { return line(Zunt_RYN_Plugin_ActivateInput(1, -2, true)); }, "0 ",
     "ActivateInput 1 -2 1 "},
    {"DeactivateInput", &toldApp<&Zunt_RYN_Plugin_DeactivateInput>, "0 ", "DeactivateInput 1 -2 "},
    {"GetVisible", &flagOf<&Zunt_RYN_Plugin_GetVisible>, "0 1 ", "GetVisible 1 -2 "},
    {"GetActive", &flagOf<&Zunt_RYN_Plugin_GetActive>, "0 1 ", "GetActive 1 -2 "},
    {"GetPrimaryReceiver", &flagOf<&Zunt_RYN_Plugin_GetPrimaryReceiver>, "0 1 ",
     "GetPrimaryReceiver 1 -2 "},
    {"GetValue", &numberOf<&Zunt_RYN_Plugin_GetValue>, "0 31 ", "GetValue 1 -2 "},
    {"GetOtherKeys", &keysOf<&Zunt_RYN_Plugin_GetOtherKeys>, "0 20 100 119 ", "GetOtherKeys 1 -2 "},
    {"GetMaxiMumValue", &numberOf<&Zunt_RYN_Plugin_GetMaxiMumValue>, "0 -1 ", "GetMaxiMumValue 1 -2 "},
    {"GetMaxiMumOtherKeys", &keysOf<&Zunt_RYN_Plugin_GetMaxiMumOtherKeys>, "0 20 100 119 ",
     "GetMaxiMumOtherKeys 1 -2 "},
    {"SetSupportsPointer", [](Text) { return line(Zunt_RYN_Plugin_SetSupportsPointer(1, -2, true)); }, "0 ",
     "SetSupportsPointer 1 -2 1 "},
    {"GetSupportsPointer", &flagOf<&Zunt_RYN_Plugin_GetSupportsPointer>, "0 1 ",
     "GetSupportsPointer 1 -2 "},
    {"SetValue",
     [](Text) {
       const std::vector<int> keys(100, 37);
       return line(Zunt_RYN_Plugin_SetValue(1, -2, 31, keys.data(), 100));
     },
     "0 ", "SetValue 1 -2 31 20 37 37 "},
    {"Get_VB_Resouce_Allowed",
     [](Text) {
       bool value = false;
       const int result = Zunt_RYN_Plugin_Get_VB_Resouce_Allowed(4, &value);
       return line(result, value);
     },
     "0 1 ", "Get_VB_Resouce_Allowed 4 "},
    {"SetBRAppToBI", &toldTab<&Zunt_RYN_Plugin_SetBRAppToBI>, "0 ", "SetBRAppToBI 4 "},
    {"Get_APP_TYPE",
     [](Text) {
       int value = 0;
       const int result = Zunt_RYN_Plugin_Get_APP_TYPE(4, &value);
       return line(result, value);
     },
     "0 3 ", "Get_APP_TYPE 4 "},
    {"SetBIAppToBR", &toldTab<&Zunt_RYN_Plugin_SetBIAppToBR>, "0 ", "SetBIAppToBR 4 "},
    {"KeyConsumedByBrowser",
     [](Text) {
       bool value = false;
       const int result = Zunt_RYN_Plugin_KeyConsumedByBrowser(4, 13, &value);
       return line(result, value);
     },
     "0 1 ", "KeyConsumedByBrowser 4 13 "},
    {"OpApp_Uninstall_Judge",
     [](Text) {
       bool value = true;
       const int result = Zunt_RYN_Plugin_OpApp_Uninstall_Judge(&value);
       return line(result, value);
     },
     "0 0 ", "OpApp_Uninstall_Judge "},
    {"OpApp_SetStatus", [](Text text) { return line(Zunt_RYN_Plugin_OpApp_SetStatus(text)); }, "3 ",
     "OpApp_SetStatus T "},
    {"OpApp_GetStatus",
     [](Text) {
       std::string status = "old";
       const int result = Zunt_RYN_Plugin_OpApp_GetStatus(status);
       return line(result, status);
     },
     "2 T ", "OpApp_GetStatus "},
    {"OpApp_RequestTransient", &resultOf<&Zunt_RYN_Plugin_OpApp_RequestTransient>, "4 ",
     "OpApp_RequestTransient "},
    {"OpApp_RequestForeground", &resultOf<&Zunt_RYN_Plugin_OpApp_RequestForeground>, "5 ",
     "OpApp_RequestForeground "},
    {"OpApp_RequestBackground", &resultOf<&Zunt_RYN_Plugin_OpApp_RequestBackground>, "6 ",
     "OpApp_RequestBackground "},
    {"OpApp_GetUpdateStatus",
     [](Text) {
       int status = 0;
       const int result = Zunt_RYN_Plugin_OpApp_GetUpdateStatus(&status);
       return line(result, status);
     },
     "7 9 ", "OpApp_GetUpdateStatus "},
    {"OpApp_RequestUpdate", &resultOf<&Zunt_RYN_Plugin_OpApp_RequestUpdate>, "8 ", "OpApp_RequestUpdate "},
};

const Step kToPlugin[] = {
    {"SendAppLoadError", [](Text) { return line(Zunt_RYN_Browser_SendAppLoadError(1, -2, 3)); }, "0 ",
     "1 1 -2 "},
    {"SendAppLoaded", &toldApp<&Zunt_RYN_Browser_SendAppLoaded>, "0 ", "2 1 -2 "},
    {"SendAppUnloaded", &toldApp<&Zunt_RYN_Browser_SendAppUnloaded>, "0 ", "3 1 -2 "},
    {"SendTopMost", [](Text) { return line(Zunt_RYN_Browser_SendTopMost(1, -2, true)); }, "0 ", "4 1 -2 "},
    {"SendTopMost", [](Text) { return line(Zunt_RYN_Browser_SendTopMost(1, -2, false)); }, "0 ", "5 1 -2 "},
    {"RequestDestroyApp", &toldApp<&Zunt_RYN_Browser_RequestDestroyApp>, "0 ", "6 1 -2 "},
    {"SendKey",
     [](Text) { return line(Zunt_RYN_Browser_SendKey(1, -2, ZuntKey{415}, ZuntKeyEventType{2})); }, "0 ",
     "8 1 -2 "},
    {"IsParentalRatingBlocked",
     [](Text) {
       bool blocked = false;
       const int result = Zunt_RYN_Browser_IsParentalRatingBlocked(1, -2, &blocked);
       return line(result, blocked);
     },
     "0 1 ", "10 1 -2 "},
    {"IsObjectSupported",
     [](Text text) {
       bool supported = false;
       const int result = Zunt_RYN_Browser_IsObjectSupported(text, &supported);
       return line(result, supported);
     },
     "0 1 ", "19 T "},
    {"Get_Configuration", &resultOf<&Zunt_RYN_Browser_Get_Configuration>, "0 ", "20 "},
    {"Handle_BroadcastService", [](Text) { return line(Zunt_RYN_Browser_Handle_BroadcastService(true)); },
     "0 ", "21 1 "},
    {"Set_BroadcastFullScreen", [](Text) { return line(Zunt_RYN_Browser_Set_BroadcastFullScreen(false)); },
     "0 ", "22 0 "},
    {"OpApp_StateChange",
     [](Text text) { return line(Zunt_RYN_Browser_OpApp_StateChange(1, -2, "o", text, "r")); }, "0 ",
     "23 1 -2 o T r "},
    {"OpApp_ContextChange",
     [](Text text) { return line(Zunt_RYN_Browser_OpApp_ContextChange(1, -2, text, "l", "r")); }, "0 ",
     "24 1 -2 T l r "},
    {"OpApp_Update", [](Text text) { return line(Zunt_RYN_Browser_OpApp_Update(1, -2, text)); }, "0 ",
     "25 1 -2 T "},
};

const std::string kTexts[] = {"plain", "", "quote \" backslash \\ newline \n tab \t end",
                              "\u00e9 \u20ac \U0001f4fa \u0001", std::string(15000, 'x')};

std::string withText(std::string pattern, const std::string& text) {
  const auto at = pattern.find('T');
  // Names hold the letter too; the text stands alone.
  const auto alone = pattern.find(" T ");
  return at == std::string::npos || alone == std::string::npos ? pattern
                                                               : pattern.replace(alone + 1, 1, text);
}

template <std::size_t Count>
void walk(const Step (&steps)[Count], Direction direction, ChildProcess& far_side) {
  std::set<std::string_view> walked;
  for (const auto& text : kTexts) {
    for (const auto& step : steps) {
      EXPECT_EQ(withText(step.expected, text), step.call(text)) << step.name;
      far_side.say("next call");
      EXPECT_EQ(withText(step.far_side, text), far_side.hear()) << step.name;
      walked.insert(step.name);
    }
  }
  for (const auto& message : kMessages) {
    if (message.direction != direction) continue;
    EXPECT_EQ(1U, walked.count(message.name)) << message.name;
  }
  far_side.say("end");
  EXPECT_EQ(0, far_side.wait());
}

TEST(TwoProcessesTest, EveryRequestReachesTheBrowserAndItsAnswerComesBack) {
  const OutputCapture output(stdout);
  ChildProcess browser(kBrowser);
  ASSERT_EQ("up", browser.hear());
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  walk(kRequests, Direction::kToBrowser, browser);
  EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize());
}

TEST(TwoProcessesTest, EveryNotificationAndQueryReachesThePlugin) {
  ChildProcess plugin(kPlugin);
  ASSERT_EQ("up", plugin.hear());
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  walk(kToPlugin, Direction::kToPlugin, plugin);
  EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
}

}  // namespace
}  // namespace hbbtv_ryn::test
