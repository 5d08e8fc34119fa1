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

using Handlers = ZuntRynBrowserEventCallback;

// A handler notes its arguments, the out-parameters with what they hold on entry, and then changes these.
CallLog g_log;
constexpr const char* kIcon = "icon \"\u00e9\n";

int shown(const int* value) {
  return *value;
}
bool shown(const bool* value) {
  return *value;
}
const char* shown(const void* unused) {
  return unused == nullptr ? "null" : "something";
}
std::string shown(const std::string& text) {
  return "'" + text + "'";
}
std::string shown(const char* text) {
  return shown(std::string(text));
}
int shown(int value) {
  return value;
}

void change(int* value, int position) {
  *value -= 10 * position;
}
void change(bool* value, int) {
  *value = !*value;
}
void change(std::string& text, int) {
  text = kIcon;
}
template <typename Value>
void change(const Value&, int) {}

template <typename Result, typename... Parameters>
void fill(Result (*&slot)(Parameters...)) {
  slot = [](Parameters... parameters) -> Result {
    g_log.note(shown(parameters)...);
    [[maybe_unused]] int position = 0;
    (change(parameters, ++position), ...);
    return Result(7);
  };
}
template <auto Slot>
void fill(Handlers& handlers) {
  fill(handlers.*Slot);
}
template <auto Slot, int Count>
void fillWithKeys(Handlers& handlers) {
  handlers.*Slot = [](int a, int o, int* keys, int* count) {
    g_log.note(a, o, *keys, *count);
    for (int i = 0; i < ZUNT_RYN_MAX_OTHER_KEYS; ++i) keys[i] = -i;
    *count = Count;
  };
}
void fillGetChildApps(Handlers& handlers) {
  handlers.GetChildApps = [](int a, int o, int* appids, int* orgids, int* count) {
    g_log.note(a, o, *count);
    appids[0] = 1;
    appids[1] = 23;
    orgids[0] = 100;
    orgids[1] = -200;
    *count = 2;
  };
}
void fillSetValue(Handlers& handlers) {
  handlers.SetValue = [](int a, int o, int value, const int* keys, int count) {
    std::ostringstream list;
    for (int i = 0; i < ZUNT_RYN_MAX_OTHER_KEYS; ++i) list << ' ' << keys[i];
    g_log.note(a, o, value, std::to_string(count) + ":" + list.str());
  };
}

struct Exchange {
  void (*fill_slot)(Handlers&);
  const char* request;
  const char* arguments;
  const char* reply;          // of that handler; null for a one-way request
  const char* default_reply;  // without a handler
};

constexpr const char* kOneWay = nullptr;

const Exchange kExchanges[] = {
    {fill<&Handlers::GetOwnerApp>, R"({"t":201,"appid":9})", "9 0 null",
     R"({"t":202,"appid":-1,"orgid":-20})", R"({"t":202,"appid":9,"orgid":0})"},
    {fill<&Handlers::GetCurrentApp>, R"({"t":203})", "0 0 null", R"({"t":204,"appid":-10,"orgid":-20})",
     R"({"t":204,"appid":0,"orgid":0})"},
    {fillGetChildApps, R"({"t":207,"appid":1,"orgid":2})", "1 2 0",
     R"({"t":208,"appNum":2,"appidArray":"               1              23",)"
     R"("orgidArray":"             100            -200"})",
     R"({"t":208,"appNum":0,"appidArray":"","orgidArray":""})"},
    {fill<&Handlers::CreateApp>,
     R"({"t":209,"appid":1,"orgid":2,"url":"http://a/?\"\\\u00e9","child":1,"opapp":0})",
     "1 2 'http://a/?\"\\\u00e9' 1 0 0 0", R"({"t":210,"appid":-60,"orgid":-70})",
     R"({"t":210,"appid":0,"orgid":0})"},
    {fill<&Handlers::DestroyApp>, R"({"t":211,"appid":1,"orgid":2})", "1 2", kOneWay, kOneWay},
    {fill<&Handlers::ShowApp>, R"({"t":212,"appid":1,"orgid":2})", "1 2", kOneWay, kOneWay},
    {fill<&Handlers::HideApp>, R"({"t":213,"appid":1,"orgid":2})", "1 2", kOneWay, kOneWay},
    {fill<&Handlers::ActivateInput>, R"({"t":214,"appid":1,"orgid":2,"focus":true})", "1 2 1", kOneWay,
     kOneWay},
    {fill<&Handlers::ActivateInput>, R"({"t":214,"appid":1,"orgid":2,"focus":1})", "1 2 1", kOneWay,
     kOneWay},
    {fill<&Handlers::ActivateInput>, R"({"t":214,"appid":1,"orgid":2,"focus":false})", "1 2 0", kOneWay,
     kOneWay},
    {fill<&Handlers::DeactivateInput>, R"({"t":215,"appid":1,"orgid":2})", "1 2", kOneWay, kOneWay},
    {fill<&Handlers::GetVisible>, R"({"t":216,"appid":5,"orgid":7})", "5 7 0", R"({"t":217,"visible":1})",
     R"({"t":217,"visible":0})"},
    {fill<&Handlers::GetActive>, R"({"t":218,"appid":1,"orgid":2})", "1 2 0", R"({"t":219,"active":1})",
     R"({"t":219,"active":0})"},
    {fill<&Handlers::GetPrimaryReceiver>, R"({"t":220,"appid":1,"orgid":2})", "1 2 0",
     R"({"t":221,"primary":1})", R"({"t":221,"primary":0})"},
    {fill<&Handlers::GetValue>, R"({"t":222,"appid":1,"orgid":2})", "1 2 0", R"({"t":223,"value":-30})",
     R"({"t":223,"value":0})"},
    {fillWithKeys<&Handlers::GetOtherKeys, 2>, R"({"t":224,"appid":1,"orgid":2})", "1 2 0 0",
     R"({"t":225,"num":2,"k0":0,"k1":-1})", R"({"t":225,"num":0})"},
    {fill<&Handlers::GetMaxiMumValue>, R"({"t":226,"appid":1,"orgid":2})", "1 2 0",
     R"({"t":227,"maxvalue":-30})", R"({"t":227,"maxvalue":0})"},
    {fillWithKeys<&Handlers::GetMaxiMumOtherKeys, 25>, R"({"t":228,"appid":1,"orgid":2})", "1 2 0 0",
     R"({"t":229,"num":20,"k0":0,"k1":-1,"k2":-2,"k3":-3,"k4":-4,"k5":-5,"k6":-6,"k7":-7,"k8":-8,"k9":-9,)"
     R"("k10":-10,"k11":-11,"k12":-12,"k13":-13,"k14":-14,"k15":-15,"k16":-16,"k17":-17,"k18":-18,)"
     R"("k19":-19})",
     R"({"t":229,"num":0})"},
    {fill<&Handlers::SetSupportsPointer>, R"({"t":230,"appid":1,"orgid":2,"pointer":1})", "1 2 1", kOneWay,
     kOneWay},
    {fill<&Handlers::GetSupportsPointer>, R"({"t":232,"appid":1,"orgid":2})", "1 2 0",
     R"({"t":233,"pointer":1})", R"({"t":233,"pointer":0})"},
    {fillSetValue, R"({"t":234,"appid":1,"orgid":2,"value":3,"keynum":2,"k0":37,"k1":38})",
     "1 2 3 2: 37 38 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0", kOneWay, kOneWay},
    {fill<&Handlers::GetKeyIcon>, R"({"t":235,"appid":1,"orgid":2,"code":415})", "1 2 415 ''",
     R"({"t":236,"pointer":"icon \"\u00e9\n"})", R"({"t":236,"pointer":""})"},
    {fill<&Handlers::GetKeyLabel>, R"({"t":237,"appid":1,"orgid":2,"code":415})", "1 2 415 ''",
     R"({"t":238,"label":"icon \"\u00e9\n"})", R"({"t":238,"label":""})"},
    {fill<&Handlers::Get_VB_Resouce_Allowed>, R"({"t":256,"tabid":4})", "4 0", R"({"t":257,"allowed":1})",
     R"({"t":257,"allowed":0})"},
    {fill<&Handlers::SetBRAppToBI>, R"({"t":258,"tabid":4})", "4", kOneWay, kOneWay},
    {fill<&Handlers::Get_APP_TYPE>, R"({"t":265,"tabid":4})", "4 0", R"({"t":266,"appType":-20})",
     R"({"t":266,"appType":0})"},
    {fill<&Handlers::SetBIAppToBR>, R"({"t":267,"tabid":4})", "4", kOneWay, kOneWay},
    {fill<&Handlers::KeyConsumedByBrowser>, R"({"t":268,"tabid":4,"keyCode":13})", "4 13 0",
     R"({"t":269,"consumed":1})", R"({"t":269,"consumed":0})"},
    {fill<&Handlers::OpApp_Uninstall_Judge>, R"({"t":278})", "1", R"({"flag":false})", R"({"flag":true})"},
    {fill<&Handlers::OpApp_GetStatus>, R"({"t":279})", "''", R"({"status":"icon \"\u00e9\n","ret":7})",
     R"({"status":"","ret":0})"},
    {fill<&Handlers::OpApp_SetStatus>, R"({"t":280,"status":"stop"})", "'stop'", R"({"ret":7})",
     R"({"ret":0})"},
    {fill<&Handlers::OpApp_RequestTransient>, R"({"t":281})", "", R"({"ret":7})", R"({"ret":0})"},
    {fill<&Handlers::OpApp_RequestForeground>, R"({"t":282})", "", R"({"ret":7})", R"({"ret":0})"},
    {fill<&Handlers::OpApp_RequestBackground>, R"({"t":283})", "", R"({"ret":7})", R"({"ret":0})"},
    {fill<&Handlers::OpApp_GetUpdateStatus>, R"({"t":284})", "-2", R"({"status":-12,"ret":7})",
     R"({"ret":0,"status":-2})"},
    {fill<&Handlers::OpApp_RequestUpdate>, R"({"t":285})", "", R"({"ret":7})", R"({"ret":0})"},
};

Handlers everyHandler() {
  Handlers handlers{};
  for (const auto& exchange : kExchanges) exchange.fill_slot(handlers);
  return handlers;
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

  static void serveWith(const Handlers& handlers) {
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

TEST_F(BrowserDispatcherTest, EachRequestCallsItsHandlerAndHasAnAnswerWithoutOne) {
  for (const auto& exchange : kExchanges) {
    SCOPED_TRACE(exchange.request);
    for (const bool handled : {false, true}) {
      Handlers handlers{};
      if (handled) exchange.fill_slot(handlers);
      serveWith(handlers);
      const char* const reply = handled ? exchange.reply : exchange.default_reply;
      if (reply == kOneWay) {
        tell(exchange.request);
        EXPECT_EQ(handled ? Calls{exchange.arguments} : Calls{}, g_log.take());
        EXPECT_EQ("", ask(exchange.request));
      } else {
        EXPECT_TRUE(sameJson(reply, ask(exchange.request)));
      }
      EXPECT_EQ(handled ? Calls{exchange.arguments} : Calls{}, g_log.take());
    }
  }
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
  serveWith(everyHandler());
  ask(R"({"t":216})");
  ask(R"({"t":209})");
  ask(R"({"t":280})");
  ask(R"(  /* a comment */ {"orgid" : true, "extra":[{}], "appid":5.9, "t":216.0})");
  EXPECT_EQ((Calls{"0 0 0", "0 0 '' 0 0 0 0", "''", "5 1 0"}), g_log.take());
}

TEST_F(BrowserDispatcherTest, KeyListsAreCutAtTwentyAndNegativeCountsTravel) {
  Handlers handlers{};
  handlers.GetOtherKeys = [](int, int, int*, int* count) { *count = -3; };
  fillSetValue(handlers);
  serveWith(handlers);
  EXPECT_TRUE(sameJson(R"({"t":225,"num":-3})", ask(R"({"t":224})")));

  std::string keys;
  for (int i = 0; i < 30; ++i) keys += ",\"k" + std::to_string(i) + "\":" + std::to_string(i + 1);
  tell(R"({"t":234,"keynum":30)" + keys + "}");
  tell(R"({"t":234,"keynum":2147483647)" + keys + "}");
  tell(R"({"t":234,"keynum":-2)" + keys + "}");
  const std::string twenty = "0 0 0 20: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20";
  EXPECT_EQ((Calls{twenty, twenty, "0 0 0 -2: 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0"}), g_log.take());
}

TEST_F(BrowserDispatcherTest, ChildListsAreBoundedByTheirArraysAndByTheMessage) {
  static std::atomic<int> reported{0};
  Handlers handlers{};
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
  Handlers handlers{};
  handlers.GetKeyLabel = [](int, int, int code, std::string& label) {
    label.assign(static_cast<std::size_t>(code), 'x');
  };
  serveWith(handlers);
  EXPECT_EQ(15000U, parsed(ask(R"({"t":237,"code":15000})"))["label"].asString().size());
  EXPECT_EQ("", ask(R"({"t":237,"code":17000})"));
  EXPECT_EQ(15U, parsed(ask(R"({"t":237,"code":15})"))["label"].asString().size());
}

TEST_F(BrowserDispatcherTest, WhatIsNoRequestGetsNoAnswerAndTheNextOneDoes) {
  serveWith(everyHandler());
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
                                 R"({"t":211,"appid":"1"})",
                                 R"({"t":214,"focus":"yes"})",
                                 R"({"t":230,"pointer":[]})",
                                 R"({"t":234,"keynum":"1"})",
                                 R"({"t":234,"keynum":1,"k0":"x"})",
                                 R"({"t":234,"value":{}})",
                                 R"({"t":258,"tabid":[]})",
                                 R"({"t":267,"tabid":9e9})",
                                 R"({"t":216,"appid":)" + nested(2000, "[", "]") + "}"});
  for (const auto& request : foreign) {
    EXPECT_EQ("", ask(request)) << request.substr(0, 60);
    EXPECT_EQ(Calls{}, g_log.take()) << request.substr(0, 60);
    EXPECT_TRUE(sameJson(R"({"flag":false})", ask(R"({"t":278})")));
    g_log.take();
  }
}

TEST_F(BrowserDispatcherTest, TextEndsAtItsNulAndAnEmptyRecordIsNoRequest) {
  EXPECT_TRUE(sameJson(R"({"t":217,"visible":0})", ask(std::string("{\"t\":216}\0 and more", 19))));
  RawRecord empty = rawRecord(kRawRequest, R"({"t":216})");
  empty.total_length = 0;
  m_plugin.requests.send(empty);
  EXPECT_EQ(kRawFailure, m_plugin.replies.takeMessage().kind);
}

TEST_F(BrowserDispatcherTest, InvalidUtf8InEitherDirectionDoesNotStopTheEndpoint) {
  auto handlers = everyHandler();
  handlers.GetKeyLabel = [](int, int, int, std::string& label) { label = "\xff\xc3(\xed\xa0\x80"; };
  serveWith(handlers);
  ask("{\"t\":280,\"status\":\"\xff\xfe\xc3\"}");
  ask("{\"t\":280,\"status\":\"\\ud800\"}");
  ask(R"({"t":237})");
  EXPECT_TRUE(sameJson(R"({"ret":7})", ask("{\"t\":280,\"status\":\"valid\"}")));
}

TEST_F(BrowserDispatcherTest, AHandlerThatThrowsCostsThatRequestOnly) {
  Handlers handlers{};
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
