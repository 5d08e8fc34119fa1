// The browser endpoint's answers to a raw plug-in process.
#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <stdexcept>

#include "endpoints/call_log.h"
#include "endpoints/wire.h"
#include "hbbtv_ryn/browser.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

struct Exchange {
  const char* request;
  const char* call;           // the handler and its arguments
  const char* reply;          // of the handlers below; null for a one-way request
  const char* default_reply;  // without a handler
};

constexpr const char* kOneWay = nullptr;

const Exchange kExchanges[] = {
    {R"({"t":201,"appid":9})", "GetOwnerApp 9 0 null", R"({"t":202,"appid":19,"orgid":10})",
     R"({"t":202,"appid":9,"orgid":0})"},
    {R"({"t":203})", "GetCurrentApp 0 0 null", R"({"t":204,"appid":11,"orgid":12})",
     R"({"t":204,"appid":0,"orgid":0})"},
    {R"({"t":207,"appid":1,"orgid":2})", "GetChildApps 1 2 0",
     R"({"t":208,"appNum":2,"appidArray":"               1              23",)"
     R"("orgidArray":"             100             200"})",
     R"({"t":208,"appNum":0,"appidArray":"","orgidArray":""})"},
    {R"({"t":209,"appid":1,"orgid":2,"url":"http://a/?\"\\\u00e9","child":1,"opapp":0})",
     "CreateApp 1 2 http://a/?\"\\\u00e9 1 0", R"({"t":210,"appid":21,"orgid":22})",
     R"({"t":210,"appid":0,"orgid":0})"},
    {R"({"t":211,"appid":1,"orgid":2})", "DestroyApp 1 2", kOneWay, kOneWay},
    {R"({"t":212,"appid":1,"orgid":2})", "ShowApp 1 2", kOneWay, kOneWay},
    {R"({"t":213,"appid":1,"orgid":2})", "HideApp 1 2", kOneWay, kOneWay},
    {R"({"t":214,"appid":1,"orgid":2,"focus":true})", "ActivateInput 1 2 1", kOneWay, kOneWay},
    {R"({"t":214,"appid":1,"orgid":2,"focus":1})", "ActivateInput 1 2 1", kOneWay, kOneWay},
    {R"({"t":214,"appid":1,"orgid":2,"focus":false})", "ActivateInput 1 2 0", kOneWay, kOneWay},
    {R"({"t":215,"appid":1,"orgid":2})", "DeactivateInput 1 2", kOneWay, kOneWay},
    {R"({"t":216,"appid":5,"orgid":7})", "GetVisible 5 7 0", R"({"t":217,"visible":1})",
     R"({"t":217,"visible":0})"},
    {R"({"t":218,"appid":1,"orgid":2})", "GetActive 1 2 0", R"({"t":219,"active":1})",
     R"({"t":219,"active":0})"},
    {R"({"t":220,"appid":1,"orgid":2})", "GetPrimaryReceiver 1 2 0", R"({"t":221,"primary":1})",
     R"({"t":221,"primary":0})"},
    {R"({"t":222,"appid":1,"orgid":2})", "GetValue 1 2 0", R"({"t":223,"value":-31})",
     R"({"t":223,"value":0})"},
    {R"({"t":224,"appid":1,"orgid":2})", "GetOtherKeys 1 2 0 0", R"({"t":225,"num":2,"k0":415,"k1":-1})",
     R"({"t":225,"num":0})"},
    {R"({"t":226,"appid":1,"orgid":2})", "GetMaxiMumValue 1 2 0", R"({"t":227,"maxvalue":1023})",
     R"({"t":227,"maxvalue":0})"},
    {R"({"t":228,"appid":1,"orgid":2})", "GetMaxiMumOtherKeys 1 2 0 0",
     R"({"t":229,"num":20,"k0":0,"k1":1,"k2":2,"k3":3,"k4":4,"k5":5,"k6":6,"k7":7,"k8":8,"k9":9,"k10":10,)"
     R"("k11":11,"k12":12,"k13":13,"k14":14,"k15":15,"k16":16,"k17":17,"k18":18,"k19":19})",
     R"({"t":229,"num":0})"},
    {R"({"t":230,"appid":1,"orgid":2,"pointer":1})", "SetSupportsPointer 1 2 1", kOneWay, kOneWay},
    {R"({"t":232,"appid":1,"orgid":2})", "GetSupportsPointer 1 2 0", R"({"t":233,"pointer":1})",
     R"({"t":233,"pointer":0})"},
    {R"({"t":234,"appid":1,"orgid":2,"value":3,"keynum":2,"k0":37,"k1":38})",
     "SetValue 1 2 3 2: 37 38 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0", kOneWay, kOneWay},
    {R"({"t":235,"appid":1,"orgid":2,"code":415})", "GetKeyIcon 1 2 415 ''",
     "{\"t\":236,\"pointer\":\"icon \\\"\u00e9\\n\"}", R"({"t":236,"pointer":""})"},
    {R"({"t":237,"appid":1,"orgid":2,"code":415})", "GetKeyLabel 1 2 415 ''",
     R"({"t":238,"label":"label"})", R"({"t":238,"label":""})"},
    {R"({"t":256,"tabid":4})", "Get_VB_Resouce_Allowed 4 0", R"({"t":257,"allowed":1})",
     R"({"t":257,"allowed":0})"},
    {R"({"t":258,"tabid":4})", "SetBRAppToBI 4", kOneWay, kOneWay},
    {R"({"t":265,"tabid":4})", "Get_APP_TYPE 4 0", R"({"t":266,"appType":3})", R"({"t":266,"appType":0})"},
    {R"({"t":267,"tabid":4})", "SetBIAppToBR 4", kOneWay, kOneWay},
    {R"({"t":268,"tabid":4,"keyCode":13})", "KeyConsumedByBrowser 4 13 0", R"({"t":269,"consumed":1})",
     R"({"t":269,"consumed":0})"},
    {R"({"t":278})", "OpApp_Uninstall_Judge 1", R"({"flag":false})", R"({"flag":true})"},
    {R"({"t":279})", "OpApp_GetStatus ''", R"({"status":"running","ret":2})", R"({"status":"","ret":0})"},
    {R"({"t":280,"status":"stop"})", "OpApp_SetStatus stop", R"({"ret":3})", R"({"ret":0})"},
    {R"({"t":281})", "OpApp_RequestTransient", R"({"ret":4})", R"({"ret":0})"},
    {R"({"t":282})", "OpApp_RequestForeground", R"({"ret":-1})", R"({"ret":0})"},
    {R"({"t":283})", "OpApp_RequestBackground", R"({"ret":6})", R"({"ret":0})"},
    {R"({"t":284})", "OpApp_GetUpdateStatus -2", R"({"status":5,"ret":7})", R"({"ret":0,"status":-2})"},
    {R"({"t":285})", "OpApp_RequestUpdate", R"({"ret":8})", R"({"ret":0})"},
};

// The host: each handler notes its call, with what its out-parameters hold on entry, and then answers.
CallLog g_log;

template <typename... Arguments>
void note(const char* name, Arguments... arguments) {
  g_log.note(name, arguments...);
}

const char* nullness(const void* pointer) {
  return pointer == nullptr ? "null" : "something";
}

ZuntRynBrowserEventCallback recordingHandlers() {
  ZuntRynBrowserEventCallback h{};
  h.GetOwnerApp = [](int* a, int* o, void* unused) {
    note("GetOwnerApp", *a, *o, nullness(unused));
    *a += 10;
    *o = 10;
  };
  h.GetCurrentApp = [](int* a, int* o, void* unused) {
    note("GetCurrentApp", *a, *o, nullness(unused));
    *a = 11;
    *o = 12;
  };
  h.GetChildApps = [](int a, int o, int* appids, int* orgids, int* count) {
    note("GetChildApps", a, o, *count);
    appids[0] = 1;
    appids[1] = 23;
    orgids[0] = 100;
    orgids[1] = 200;
    *count = 2;
  };
  h.CreateApp = [](int a, int o, const char* url, bool child, bool opapp, int* new_a, int* new_o) {
    note("CreateApp", a, o, url, child, opapp);
    *new_a += 21;
    *new_o += 22;
  };
  h.DestroyApp = [](int a, int o) { note("DestroyApp", a, o); };
  h.ShowApp = [](int a, int o) { note("ShowApp", a, o); };
  h.HideApp = [](int a, int o) { note("HideApp", a, o); };
  h.ActivateInput = [](int a, int o, bool focus) { note("ActivateInput", a, o, focus); };
  h.DeactivateInput = [](int a, int o) { note("DeactivateInput", a, o); };
  h.GetVisible = [](int a, int o, bool* v) { note("GetVisible", a, o, *v), *v = true; };
  h.GetActive = [](int a, int o, bool* v) { note("GetActive", a, o, *v), *v = true; };
  h.GetPrimaryReceiver = [](int a, int o, bool* v) { note("GetPrimaryReceiver", a, o, *v), *v = true; };
  h.GetValue = [](int a, int o, int* v) { note("GetValue", a, o, *v), *v = -31; };
  h.GetOtherKeys = [](int a, int o, int* keys, int* count) {
    note("GetOtherKeys", a, o, *keys, *count);
    keys[0] = 415;
    keys[1] = -1;
    *count = 2;
  };
  h.GetMaxiMumValue = [](int a, int o, int* v) { note("GetMaxiMumValue", a, o, *v), *v = 1023; };
  h.GetMaxiMumOtherKeys = [](int a, int o, int* keys, int* count) {
    note("GetMaxiMumOtherKeys", a, o, *keys, *count);
    for (int i = 0; i < ZUNT_RYN_MAX_OTHER_KEYS; ++i) keys[i] = i;
    *count = 25;
  };
  h.SetSupportsPointer = [](int a, int o, bool v) { note("SetSupportsPointer", a, o, v); };
  h.GetSupportsPointer = [](int a, int o, bool* v) { note("GetSupportsPointer", a, o, *v), *v = true; };
  h.GetKeyIcon = [](int a, int o, int code, std::string& icon) {
    note("GetKeyIcon", a, o, code, "'" + icon + "'");
    icon = "icon \"\u00e9\n";
  };
  h.GetKeyLabel = [](int a, int o, int code, std::string& label) {
    note("GetKeyLabel", a, o, code, "'" + label + "'");
    label = "label";
  };
  h.SetValue = [](int a, int o, int value, const int* keys, int count) {
    std::ostringstream list;
    for (int i = 0; i < ZUNT_RYN_MAX_OTHER_KEYS; ++i) list << ' ' << keys[i];
    note("SetValue", a, o, value, std::to_string(count) + ":" + list.str());
  };
  h.Get_VB_Resouce_Allowed = [](int tab, bool* v) { note("Get_VB_Resouce_Allowed", tab, *v), *v = true; };
  h.SetBRAppToBI = [](int tab) { note("SetBRAppToBI", tab); };
  h.Get_APP_TYPE = [](int tab, int* v) { note("Get_APP_TYPE", tab, *v), *v = 3; };
  h.SetBIAppToBR = [](int tab) { note("SetBIAppToBR", tab); };
  h.KeyConsumedByBrowser = [](int tab, int key, bool* v) {
    note("KeyConsumedByBrowser", tab, key, *v);
    *v = true;
  };
  h.OpApp_Uninstall_Judge = [](bool* v) { note("OpApp_Uninstall_Judge", *v), *v = false; };
  h.OpApp_GetStatus = [](std::string& status) {
    note("OpApp_GetStatus", "'" + status + "'");
    status = "running";
    return 2;
  };
  h.OpApp_SetStatus = [](std::string status) { return note("OpApp_SetStatus", status), 3; };
  h.OpApp_RequestTransient = [] { return note("OpApp_RequestTransient"), 4; };
  h.OpApp_RequestForeground = [] { return note("OpApp_RequestForeground"), -1; };
  h.OpApp_RequestBackground = [] { return note("OpApp_RequestBackground"), 6; };
  h.OpApp_GetUpdateStatus = [](int* v) { return note("OpApp_GetUpdateStatus", *v), *v = 5, 7; };
  h.OpApp_RequestUpdate = [] { return note("OpApp_RequestUpdate"), 8; };
  return h;
}

class BrowserDispatcherTest : public testing::Test {
 protected:
  BrowserDispatcherTest() {
    g_log.take();
    EXPECT_EQ(0, Zunt_RYN_Browser_Initialize());
  }
  ~BrowserDispatcherTest() override {
    Zunt_RYN_Browser_UnregisterCallback();
    EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
  }

  static void serveWith(const ZuntRynBrowserEventCallback& handlers) {
    EXPECT_EQ(0, Zunt_RYN_Browser_RegisterCallback(handlers, nullptr));
  }
  // The reply to a synchronous request; none when it is the failure reply.
  std::string ask(const std::string& request) {
    const RawMessage reply = m_plugin.ask(request);
    return reply.kind == kRawReply ? reply.text : "";
  }
  // Sends a command and waits until it has been served; no answer to it may come in between.
  void tell(const std::string& command) {
    m_plugin.notify(command);
    expectServing();
  }
  void expectServing() { EXPECT_EQ("", ask(R"({"t":0})")); }

  RawPeer m_plugin{kRequestKey};
};

TEST_F(BrowserDispatcherTest, WithoutHandlersEveryRequestGetsItsDefaultAnswer) {
  for (const auto& exchange : kExchanges) {
    if (exchange.default_reply == kOneWay) {
      tell(exchange.request);
    } else {
      EXPECT_TRUE(sameJson(exchange.default_reply, ask(exchange.request))) << exchange.request;
    }
  }
}

TEST_F(BrowserDispatcherTest, EveryHandlerGetsItsArgumentsAndItsAnswerTravels) {
  serveWith(recordingHandlers());
  for (const auto& exchange : kExchanges) {
    if (exchange.reply == kOneWay) {
      tell(exchange.request);
    } else {
      EXPECT_TRUE(sameJson(exchange.reply, ask(exchange.request))) << exchange.request;
    }
    EXPECT_EQ(Calls{exchange.call}, g_log.take());
  }
}

TEST_F(BrowserDispatcherTest, AOneWayCodeThatIsAskedForAnAnswerHasNone) {
  serveWith(recordingHandlers());
  EXPECT_EQ("", ask(R"({"t":212,"appid":5,"orgid":7})"));
  EXPECT_EQ(Calls{"ShowApp 5 7"}, g_log.take());
}

TEST_F(BrowserDispatcherTest, AnswersAreWrittenInTheStyledForm) {
  EXPECT_EQ("{\n   \"t\" : 217,\n   \"visible\" : 0\n}\n", ask(R"({"t":216})"));
  EXPECT_EQ("{\n   \"ret\" : 0,\n   \"status\" : -2\n}\n", ask(R"({"t":284})"));
  EXPECT_EQ("{\n   \"flag\" : true\n}\n", ask(R"({"t":278})"));
  EXPECT_EQ(
      "{\n   \"appNum\" : 0,\n   \"appidArray\" : \"\",\n   \"orgidArray\" : \"\",\n   \"t\" : 208\n}\n",
      ask(R"({"t":207})"));
}

TEST_F(BrowserDispatcherTest, MissingMembersReadAsZeroAndForeignFormsOfNumbersConvert) {
  serveWith(recordingHandlers());
  ask(R"({"t":216})");
  ask(R"({"t":209})");
  ask(R"({"t":280})");
  ask(R"(  /* a comment */ {"orgid" : true, "extra":[{}], "appid":5.9, "t":216.0})");
  EXPECT_EQ((Calls{"GetVisible 0 0 0", "CreateApp 0 0  0 0", "OpApp_SetStatus ", "GetVisible 5 1 0"}),
            g_log.take());
}

TEST_F(BrowserDispatcherTest, KeyListsAreCutAtTwentyAndNegativeCountsTravel) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetOtherKeys = [](int, int, int*, int* count) { *count = -3; };
  handlers.SetValue = recordingHandlers().SetValue;
  serveWith(handlers);
  EXPECT_TRUE(sameJson(R"({"t":225,"num":-3})", ask(R"({"t":224})")));

  std::string keys;
  for (int i = 0; i < 30; ++i) keys += ",\"k" + std::to_string(i) + "\":" + std::to_string(i + 1);
  tell(R"({"t":234,"keynum":30)" + keys + "}");
  tell(R"({"t":234,"keynum":2147483647)" + keys + "}");
  tell(R"({"t":234,"keynum":-2)" + keys + "}");
  const std::string twenty = "SetValue 0 0 0 20: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20";
  EXPECT_EQ((Calls{twenty, twenty, "SetValue 0 0 0 -2: 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0"}),
            g_log.take());
}

TEST_F(BrowserDispatcherTest, ChildListsAreBoundedByTheirArraysAndByTheMessage) {
  static std::atomic<int> reported{0};
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetChildApps = [](int, int, int* appids, int* orgids, int* count) {
    for (int i = 0; i < ZUNT_RYN_MAX_CHILD_APPS; ++i) appids[i] = orgids[i] = -2147483647 + i;
    *count = reported;
  };
  serveWith(handlers);
  reported = 500;
  const Json::Value reply = parsed(ask(R"({"t":207})"));
  EXPECT_EQ(500, reply["appNum"].asInt());
  EXPECT_EQ(500U * 16, reply["appidArray"].asString().size());
  EXPECT_EQ("     -2147483148", reply["orgidArray"].asString().substr(499 * 16));
  for (const int beyond_a_message : {512, 513, 2147483647}) {
    reported = beyond_a_message;
    EXPECT_EQ("", ask(R"({"t":207})"));
  }
  reported = -5;
  EXPECT_TRUE(sameJson(R"({"t":208,"appNum":-5,"appidArray":"","orgidArray":""})", ask(R"({"t":207})")));
}

TEST_F(BrowserDispatcherTest, AnAnswerThatNoMessageHoldsBecomesTheFailureReply) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetKeyLabel = [](int, int, int code, std::string& label) {
    label.assign(static_cast<std::size_t>(code), 'x');
  };
  serveWith(handlers);
  EXPECT_EQ(15000U, parsed(ask(R"({"t":237,"code":15000})"))["label"].asString().size());
  EXPECT_EQ("", ask(R"({"t":237,"code":17000})"));
  EXPECT_EQ(15U, parsed(ask(R"({"t":237,"code":15})"))["label"].asString().size());
}

TEST_F(BrowserDispatcherTest, WhatIsNoRequestGetsNoAnswerAndTheNextOneDoes) {
  serveWith(recordingHandlers());
  std::vector<std::string> foreign(std::begin(kNoObjects), std::end(kNoObjects));
  foreign.insert(foreign.end(), {"",
                                 "{}",
                                 R"({"t":0})",
                                 R"({"t":202})",
                                 R"({"t":205})",
                                 R"({"t":286})",
                                 R"({"t":240})",
                                 R"({"t":-216})",
                                 R"({"t":"216"})",
                                 R"({"t":[216]})",
                                 R"({"t":{}})",
                                 R"({"t":4294967512})",
                                 R"({"t":1e300})",
                                 R"({"t":216,"appid":"5"})",
                                 R"({"t":216,"orgid":[5]})",
                                 R"({"t":216,"appid":{}})",
                                 R"({"t":216,"appid":2147483648})",
                                 R"({"t":216,"appid":-2147483649})",
                                 R"({"t":216,"orgid":1e10})",
                                 R"({"t":209,"url":[]})",
                                 R"({"t":209,"url":{}})",
                                 R"({"t":209,"child":"1"})",
                                 R"({"t":209,"opapp":[]})",
                                 R"({"t":235,"code":"a"})",
                                 R"({"t":256,"tabid":"x"})",
                                 R"({"t":268,"keyCode":{}})",
                                 R"({"t":280,"status":{}})",
                                 R"({"t":201,"appid":"x"})",
                                 R"({"t":216,"appid":)" + nested(2000, "[", "]") + "}"});
  for (const auto& request : foreign) {
    EXPECT_EQ("", ask(request)) << request.substr(0, 60);
    EXPECT_EQ(Calls{}, g_log.take()) << request.substr(0, 60);
    EXPECT_TRUE(sameJson(R"({"flag":false})", ask(R"({"t":278})")));
    g_log.take();
  }
}

TEST_F(BrowserDispatcherTest, CommandsWithMembersThatDoNotConvertAreDropped) {
  serveWith(recordingHandlers());
  for (const char* command :
       {R"({"t":211,"appid":"1"})", R"({"t":214,"focus":"yes"})", R"({"t":230,"pointer":[]})",
        R"({"t":234,"keynum":"1"})", R"({"t":234,"keynum":1,"k0":"x"})", R"({"t":234,"value":{}})",
        R"({"t":258,"tabid":[]})", R"({"t":267,"tabid":9e9})"}) {
    tell(command);
  }
  EXPECT_EQ(Calls{}, g_log.take());
}

TEST_F(BrowserDispatcherTest, TextEndsAtItsNulAndAnEmptyRecordIsNoRequest) {
  EXPECT_TRUE(sameJson(R"({"t":217,"visible":0})", ask(std::string("{\"t\":216}\0 and more", 19))));
  RawRecord empty = rawRecord(kRawRequest, R"({"t":216})");
  empty.total_length = 0;
  m_plugin.requests.send(empty);
  EXPECT_EQ(kRawFailure, m_plugin.replies.takeMessage().kind);
}

TEST_F(BrowserDispatcherTest, InvalidUtf8InEitherDirectionDoesNotStopTheEndpoint) {
  auto handlers = recordingHandlers();
  handlers.GetKeyLabel = [](int, int, int, std::string& label) { label = "\xff\xc3(\xed\xa0\x80"; };
  serveWith(handlers);
  ask("{\"t\":280,\"status\":\"\xff\xfe\xc3\"}");
  ask("{\"t\":280,\"status\":\"\\ud800\"}");
  ask(R"({"t":237})");
  EXPECT_TRUE(sameJson(R"({"ret":3})", ask("{\"t\":280,\"status\":\"valid\"}")));
}

TEST_F(BrowserDispatcherTest, AHandlerThatThrowsCostsThatRequestOnly) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetVisible = [](int, int, bool*) { throw std::runtime_error("from a host"); };
  handlers.GetActive = [](int, int, bool*) { throw 42; };
  handlers.ShowApp = [](int, int) { throw std::runtime_error("from a host"); };
  serveWith(handlers);
  EXPECT_EQ("", ask(R"({"t":216})"));
  EXPECT_EQ("", ask(R"({"t":218})"));
  tell(R"({"t":212})");
  // The lock is free, too.
  serveWith({});
  EXPECT_TRUE(sameJson(R"({"t":217,"visible":0})", ask(R"({"t":216})")));
}

}  // namespace
}  // namespace hbbtv_ryn::test
