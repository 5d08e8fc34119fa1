#include "endpoints/messages.h"

#include <json/reader.h>
#include <json/writer.h>

#include <sstream>

#include "endpoints/any_function.h"
#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {

std::string repeated(int times, const std::string& text) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

namespace {

using Handlers = ZuntRynBrowserEventCallback;
using Callback = ZuntRynEventCallback;

Handlers g_handlers;

template <int Code, auto Slot>
void onRequest() {
  noteCalls<Code>(g_handlers.*Slot);
  Zunt_RYN_Browser_RegisterCallback(g_handlers, nullptr);
}

void forgetHandlers() {
  g_handlers = {};
  Zunt_RYN_Browser_UnregisterCallback();
}

template <ZuntRynEvent Event, auto Member>
void onEvent() {
  Callback callback;
  noteCalls<Event>(callback.*Member);
  Zunt_RYN_Plugin_UnRegisterRynEventCallback(Event);
  Zunt_RYN_Plugin_RegisterRynEventCallback(Event, callback);
}

void forgetCallbacks() {
  for (int event = 1; event <= ZUNT_RYN_EVENT_OPAPP_UPDATE; ++event) {
    Zunt_RYN_Plugin_UnRegisterRynEventCallback(static_cast<ZuntRynEvent>(event));
  }
}

std::string joined(const std::string& a, const std::string& separator, const std::string& b) {
  return b.empty() ? a : a + separator + b;
}

Message message(key_t queue, std::string (*send)(), void (*receive)(), int code, int handler,
                const std::string& members, const std::string& arguments, const std::string& reply = "",
                const std::string& outcome = "0:") {
  const std::string text = joined("{\"t\":" + std::to_string(code), ",", members) + "}";
  return {queue, send, receive, text, joined(std::to_string(handler), " ", arguments), reply, outcome};
}

// A handler in the browser process is named by the code, one in the plug-in process by the event.
#define REQUEST(code, name, ...)                                                                    \
  message(kRequestKey, call<&Zunt_RYN_Plugin_##name>, onRequest<code, &Handlers::name>, code, code, \
          __VA_ARGS__)
#define TO_PLUGIN(queue, code, call, event, member, ...)                                                 \
  message(queue, call, onEvent<ZUNT_RYN_EVENT_##event, &Callback::member>, code, ZUNT_RYN_EVENT_##event, \
          __VA_ARGS__)
#define NOTIFICATION(code, name, ...) \
  TO_PLUGIN(kNotificationKey, code, (call<&Zunt_RYN_Browser_##name>), __VA_ARGS__)
#define QUERY(code, name, ...) TO_PLUGIN(kQueryKey, code, (call<&Zunt_RYN_Browser_##name>), __VA_ARGS__)

const std::string kApp = R"("appid":1,"orgid":2)";
const std::string kTab = R"("tabid":1)";
const std::string kThreeTexts = "1 2 '3" + kText + "' '4" + kText + "' '5" + kText + "'";
const std::string kFourZeros = repeated(4, "               0");
const std::string kRet = R"({"ret":7})";

const std::vector<Message> kToBrowser = {
    REQUEST(201, GetOwnerApp, R"("appid":77)", "77 0 null", R"({"t":202,"appid":78,"orgid":2})", "0: 78 2"),
    REQUEST(203, GetCurrentApp, "", "0 0 null", R"({"t":204,"appid":1,"orgid":2})", "0: 1 2"),
    REQUEST(207, GetChildApps, kApp, "1 2 0 0 0",
            R"({"t":208,"appNum":5,"appidArray":"               3)" + kFourZeros +
                R"(","orgidArray":"               4)" + kFourZeros + "\"}",
            "0: 3 0 0 0 0 4 0 0 0 0 5"),
    REQUEST(209, CreateApp, kApp + R"(,"url":"3\"\\\n\u00e9","child":0,"opapp":1)",
            "1 2 '3\"\\\n\u00e9' 0 1 0 0", R"({"t":210,"appid":6,"orgid":7})", "0: 6 7"),
    REQUEST(211, DestroyApp, kApp, "1 2"),
    REQUEST(212, ShowApp, kApp, "1 2"),
    REQUEST(213, HideApp, kApp, "1 2"),
    REQUEST(214, ActivateInput, kApp + R"(,"focus":true)", "1 2 1"),
    REQUEST(215, DeactivateInput, kApp, "1 2"),
    REQUEST(216, GetVisible, kApp, "1 2 0", R"({"t":217,"visible":1})", "0: 1"),
    REQUEST(218, GetActive, kApp, "1 2 0", R"({"t":219,"active":1})", "0: 1"),
    REQUEST(220, GetPrimaryReceiver, kApp, "1 2 0", R"({"t":221,"primary":1})", "0: 1"),
    REQUEST(222, GetValue, kApp, "1 2 0", R"({"t":223,"value":3})", "0: 3"),
    REQUEST(224, GetOtherKeys, kApp, "1 2 0 0", R"({"t":225,"num":4,"k0":3,"k1":0,"k2":0,"k3":0})",
            "0: 3 0 0 0 4"),
    REQUEST(226, GetMaxiMumValue, kApp, "1 2 0", R"({"t":227,"maxvalue":3})", "0: 3"),
    REQUEST(228, GetMaxiMumOtherKeys, kApp, "1 2 0 0", R"({"t":229,"num":4,"k0":3,"k1":0,"k2":0,"k3":0})",
            "0: 3 0 0 0 4"),
    REQUEST(230, SetSupportsPointer, kApp + R"(,"pointer":1)", "1 2 1"),
    REQUEST(232, GetSupportsPointer, kApp, "1 2 0", R"({"t":233,"pointer":1})", "0: 1"),
    REQUEST(234, SetValue, kApp + R"(,"value":3,"keynum":5,"k0":77,"k1":77,"k2":77,"k3":77,"k4":77)",
            "1 2 3 77 5"),
    REQUEST(235, GetKeyIcon, kApp + R"(,"code":3)", "1 2 3 ''", R"({"t":236,"pointer":"\"\\\n\u00e9"})",
            "0: " + kText),
    REQUEST(237, GetKeyLabel, kApp + R"(,"code":3)", "1 2 3 ''", R"({"t":238,"label":"\"\\\n\u00e9"})",
            "0: " + kText),
    REQUEST(256, Get_VB_Resouce_Allowed, kTab, "1 0", R"({"t":257,"allowed":1})", "0: 1"),
    REQUEST(258, SetBRAppToBI, kTab, "1"),
    REQUEST(265, Get_APP_TYPE, kTab, "1 0", R"({"t":266,"appType":2})", "0: 2"),
    REQUEST(267, SetBIAppToBR, kTab, "1"),
    REQUEST(268, KeyConsumedByBrowser, kTab + R"(,"keyCode":2)", "1 2 0", R"({"t":269,"consumed":1})",
            "0: 1"),
    REQUEST(278, OpApp_Uninstall_Judge, "", "1", R"({"flag":false})", "0:"),
    REQUEST(279, OpApp_GetStatus, "", "''", R"({"status":"\"\\\n\u00e9","ret":7})", "7: " + kText),
    REQUEST(280, OpApp_SetStatus, R"("status":"1\"\\\n\u00e9")", "'1\"\\\n\u00e9'", kRet, "7:"),
    REQUEST(281, OpApp_RequestTransient, "", "", kRet, "7:"),
    REQUEST(282, OpApp_RequestForeground, "", "", kRet, "7:"),
    REQUEST(283, OpApp_RequestBackground, "", "", kRet, "7:"),
    REQUEST(284, OpApp_GetUpdateStatus, "", "-2", R"({"status":-1,"ret":7})", "7: -1"),
    REQUEST(285, OpApp_RequestUpdate, "", "", kRet, "7:"),
};

const std::vector<Message> kToPlugin = {
    QUERY(245, IsParentalRatingBlocked, PARENTAL_RATING_QUERY, onParentalRating, kApp, "1 2 0",
          R"({"t":246,"blocked":1})", "0: 1"),
    QUERY(247, IsObjectSupported, OBJECT_SUPPORTED_QUERY, onObjectSupported, R"("mtype":"1\"\\\n\u00e9")",
          "'1\"\\\n\u00e9' 0", R"({"t":246,"supported":1})", "0: 1"),
    NOTIFICATION(239, SendAppLoadError, APP_LOAD_ERROR, onApp, kApp + R"(,"error":3)", "1 2 null"),
    NOTIFICATION(240, SendAppLoaded, APP_LOADED, onApp, kApp, "1 2 null"),
    NOTIFICATION(241, SendAppUnloaded, APP_UNLOADED, onApp, kApp, "1 2 null"),
    NOTIFICATION(242, SendTopMost, APP_TOPMOST, onApp, kApp + R"(,"topmost":true)", "1 2 null"),
    TO_PLUGIN(kNotificationKey, 242, (call<&Zunt_RYN_Browser_SendTopMost, 0>), APP_NOT_TOPMOST, onApp,
              R"("appid":0,"orgid":1,"topmost":false)", "0 1 null"),
    NOTIFICATION(243, RequestDestroyApp, APP_DESTROY_REQUEST, onApp, kApp, "1 2 null"),
    TO_PLUGIN(kNotificationKey, 244, (call<&Zunt_RYN_Browser_SendKey, -2>), KEY_TYPE_1, onApp,
              R"("appid":-2,"orgid":-1,"key":0,"keytype":1)", "-2 -1 null"),
    TO_PLUGIN(kNotificationKey, 244, (call<&Zunt_RYN_Browser_SendKey, -1>), KEY_TYPE_2, onApp,
              R"("appid":-1,"orgid":0,"key":1,"keytype":2)", "-1 0 null"),
    TO_PLUGIN(kNotificationKey, 244, (call<&Zunt_RYN_Browser_SendKey, 0>), KEY_TYPE_3, onApp,
              R"("appid":0,"orgid":1,"key":2,"keytype":3)", "0 1 null"),
    NOTIFICATION(270, Get_Configuration, GET_CONFIGURATION, onNotify, "", ""),
    NOTIFICATION(271, Handle_BroadcastService, BROADCAST_SERVICE, onFlag, R"("bValue":1)", "1"),
    NOTIFICATION(272, Set_BroadcastFullScreen, BROADCAST_FULLSCREEN, onFlag, R"("bValue":1)", "1"),
    NOTIFICATION(275, OpApp_StateChange, OPAPP_STATE_CHANGE, onOpAppChange,
                 kApp + R"(,"old":"3\"\\\n\u00e9","new":"4\"\\\n\u00e9","reason":"5\"\\\n\u00e9")",
                 kThreeTexts),
    NOTIFICATION(276, OpApp_ContextChange, OPAPP_CONTEXT_CHANGE, onOpAppChange,
                 kApp + R"(,"sloc":"3\"\\\n\u00e9","lloc":"4\"\\\n\u00e9","reason":"5\"\\\n\u00e9")",
                 kThreeTexts),
    NOTIFICATION(277, OpApp_Update, OPAPP_UPDATE, onOpAppUpdate, kApp + R"(,"event":"3\"\\\n\u00e9")",
                 "1 2 '3\"\\\n\u00e9'"),
};

const Message kBrowserMarker = REQUEST(212, ShowApp, R"("appid":-9,"orgid":-9)", "-9 -9");
const Message kPluginMarker =
    NOTIFICATION(240, SendAppLoaded, APP_LOADED, onApp, R"("appid":-9,"orgid":-9)", "-9 -9 null");

}  // namespace

const Endpoint kBrowser = {"Browser",
                           Zunt_RYN_Browser_Initialize,
                           Zunt_RYN_Browser_Finalize,
                           forgetHandlers,
                           kToPlugin,
                           kToBrowser,
                           kBrowserMarker,
                           1};
const Endpoint kPlugin = {"Plugin",
                          Zunt_RYN_Plugin_Initialize,
                          Zunt_RYN_Plugin_Finalize,
                          forgetCallbacks,
                          kToBrowser,
                          kToPlugin,
                          kPluginMarker,
                          2};

const Message& messageOf(int code) {
  const std::string begin = "{\"t\":" + std::to_string(code);
  for (const auto* messages : {&kToBrowser, &kToPlugin}) {
    for (const auto& message : *messages) {
      if (message.text.rfind(begin, 0) == 0) return message;
    }
  }
  throw std::logic_error("no message " + begin);
}

const Message& messageAt(std::size_t number) {
  number %= kToBrowser.size() + kToPlugin.size();
  return number < kToBrowser.size() ? kToBrowser[number] : kToPlugin[number - kToBrowser.size()];
}

std::string exchange(const Message& message, const std::string& reply) {
  RawPeer peer(message.queue);
  Concurrently call(message.send);
  const RawMessage sent = peer.nextRequest();
  EXPECT_EQ(message.isSynchronous() ? IPC_KIND_REQUEST : IPC_KIND_ONEWAY, sent.kind);
  EXPECT_TRUE(sameJson(message.text, sent.text));
  if (!reply.empty()) {
    peer.reply(reply);
  } else if (message.isSynchronous()) {
    peer.fail();
  }
  return call.result();
}

std::string ask(key_t queue, const std::string& text) {
  const RawMessage reply = RawPeer(queue).ask(text);
  return reply.kind == IPC_KIND_REPLY ? reply.text : "";
}

Json::Value parsed(const std::string& text) {
  Json::Value value;
  std::istringstream(text) >> value;
  return value;
}

testing::AssertionResult sameJson(const std::string& expected, const std::string& actual) {
  if (parsed(expected) == parsed(actual)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "expected " << expected << "\ngot " << actual;
}

std::vector<std::string> malformed(const std::string& message) {
  // The last are nested deeper than a reader's stack is.
  std::vector<std::string> texts = {" ",
                                    "no JSON",
                                    "{\"t\"",
                                    R"({"t":216)",
                                    "[216]",
                                    "216",
                                    "null",
                                    R"("t")",
                                    repeated(2000, "[") + repeated(2000, "]"),
                                    repeated(8000, "["),
                                    repeated(2000, R"({"t":)") + "0" + repeated(2000, "}")};
  const Json::Value whole = parsed(message);
  for (const auto& member : whole.getMemberNames()) {
    // Nobody reads these: the code of a reply, and two members of notifications.
    if (member == "t" || member == "error" || member == "key") continue;
    for (const char* value : {"[1]", "{}", "\"1\"", "2147483648", "-1e10"}) {
      Json::Value spoilt = whole;
      spoilt[member] = parsed(value);
      // A text may hold any number.
      if (whole[member].isString() && spoilt[member].isConvertibleTo(Json::stringValue)) continue;
      texts.push_back(Json::writeString(Json::StreamWriterBuilder(), spoilt));
    }
  }
  return texts;
}

}  // namespace hbbtv_ryn::test
