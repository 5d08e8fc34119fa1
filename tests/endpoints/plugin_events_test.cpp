// The plug-in endpoint's events and query answers, caused by a raw browser process.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

#include "endpoints/call_log.h"
#include "endpoints/wire.h"
#include "hbbtv_ryn/plugin.h"
#include "support/deadline.h"
#include "support/output_capture.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

CallLog g_log;
std::atomic<int> g_configurations{0};

template <int Event>
ZuntRynEventCallback noting() {
  ZuntRynEventCallback callback;
  if constexpr (Event == 21 || Event == 22) {
    callback.onFlag = [](bool value) { g_log.note("flag", Event, value); };
  } else if constexpr (Event == 23 || Event == 24) {
    callback.onOpAppChange = [](int appid, int orgid, std::string a, std::string b, std::string reason) {
      g_log.note("change", Event, appid, orgid, a, b, reason);
    };
  } else {
    callback.onApp = [](int appid, int orgid, void* user_data) {
      g_log.note("app", Event, appid, orgid, user_data == nullptr ? "null" : "something");
    };
  }
  return callback;
}

void set(int event, ZuntRynEventCallback callback) {
  EXPECT_EQ(0, Zunt_RYN_Plugin_UnRegisterRynEventCallback(static_cast<ZuntRynEvent>(event)));
  EXPECT_EQ(0, Zunt_RYN_Plugin_RegisterRynEventCallback(static_cast<ZuntRynEvent>(event), callback));
}
void unset(int event) {
  EXPECT_EQ(0, Zunt_RYN_Plugin_UnRegisterRynEventCallback(static_cast<ZuntRynEvent>(event)));
}

template <int... Events>
void setNoting() {
  (set(Events, noting<Events>()), ...);
}

void registerEverything() {
  setNoting<1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 21, 22, 23, 24>();
  ZuntRynEventCallback callback;
  callback.onOpAppUpdate = [](int appid, int orgid, std::string event) {
    g_log.note("update", appid, orgid, event);
  };
  set(25, callback);
  callback.onNotify = [] { ++g_configurations; };
  set(20, callback);
  callback.onParentalRating = [](int appid, int orgid, bool* blocked) {
    g_log.note("rating", appid, orgid, *blocked);
    *blocked = true;
  };
  set(10, callback);
  callback.onObjectSupported = [](const std::string& mtype, bool* supported) {
    g_log.note("object", "'" + mtype + "'", *supported);
    *supported = mtype == "video/mp4";
  };
  set(19, callback);
}

class PluginEventsTest : public testing::Test {
 protected:
  PluginEventsTest() {
    g_log.take();
    registerEverything();
    EXPECT_EQ(0, Zunt_RYN_Plugin_Initialize());
  }
  ~PluginEventsTest() override {
    EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize());
    for (int event = 0; event <= 25; ++event) unset(event);
  }

  // What the message makes the endpoint call. Messages are served in order: when the one behind it has
  // arrived, nothing more will come of it.
  Calls callsOf(const std::string& message) {
    m_notifications.sendMessage(kRawOneWay, message);
    passBy();
    return g_log.take();
  }
  void passBy() {
    const int before = g_configurations;
    m_notifications.sendMessage(kRawOneWay, R"({"t":270})");
    waitUntil("the notification arrived", [&] { return g_configurations == before + 1; });
  }
  // The answer; none when it is the failure reply.
  std::string answerTo(const std::string& query) {
    const RawMessage reply = m_queries.ask(query);
    return reply.kind == kRawReply ? reply.text : "";
  }

  OutputCapture m_output{stdout};
  RawQueue m_notifications{kNotificationKey};
  RawPeer m_queries{kQueryKey};
};

TEST_F(PluginEventsTest, EachNotificationRaisesItsEvent) {
  const std::pair<const char*, const char*> raised[] = {
      {R"({"t":239,"appid":1,"orgid":2,"error":3})", "app 1 1 2 null"},
      {R"({"t":240,"appid":1,"orgid":2})", "app 2 1 2 null"},
      {R"({"t":241,"appid":1,"orgid":2})", "app 3 1 2 null"},
      {R"({"t":242,"appid":1,"orgid":2,"topmost":true})", "app 4 1 2 null"},
      {R"({"t":242,"appid":1,"orgid":2,"topmost":7})", "app 4 1 2 null"},
      {R"({"t":242,"appid":1,"orgid":2,"topmost":false})", "app 5 1 2 null"},
      {R"({"t":242,"appid":1,"orgid":2})", "app 5 1 2 null"},
      {R"({"t":243,"appid":1,"orgid":2})", "app 6 1 2 null"},
      {R"({"t":244,"appid":1,"orgid":2,"key":415,"keytype":1})", "app 7 1 2 null"},
      {R"({"t":244,"appid":1,"orgid":2,"key":"not read","keytype":2})", "app 8 1 2 null"},
      {R"({"t":244,"appid":1,"orgid":2,"keytype":3})", "app 9 1 2 null"},
      {R"({"t":271,"bValue":1})", "flag 21 1"},
      {R"({"t":271})", "flag 21 0"},
      {R"({"t":272,"bValue":7})", "flag 22 1"},
      {R"({"t":272,"bValue":0})", "flag 22 0"},
      {R"({"t":275,"appid":1,"orgid":2,"old":"a\"b","new":"c\\d","reason":"e"})",
       "change 23 1 2 a\"b c\\d e"},
      {R"({"t":276,"appid":1,"orgid":2,"sloc":"s","lloc":"l","reason":"r"})", "change 24 1 2 s l r"},
      {"{\"t\":277,\"appid\":1,\"orgid\":2,\"event\":\"E \u00e9\"}", "update 1 2 E \u00e9"},
      {R"({"t":240})", "app 2 0 0 null"},
  };
  for (const auto& [message, call] : raised) EXPECT_EQ(Calls{call}, callsOf(message)) << message;
}

TEST_F(PluginEventsTest, WhatIsNoNotificationRaisesNothingAndTheNextOneDoes) {
  Calls foreign(std::begin(kNoObjects), std::end(kNoObjects));
  foreign.insert(foreign.end(), {"",
                                 "{}",
                                 R"({"t":238})",
                                 R"({"t":278})",
                                 R"({"t":245,"appid":1})",
                                 R"({"t":246})",
                                 R"({"t":247,"mtype":"x"})",
                                 R"({"t":273})",
                                 R"({"t":"240"})",
                                 R"({"t":1e300})",
                                 R"({"t":244,"keytype":0})",
                                 R"({"t":244,"keytype":4})",
                                 R"({"t":244,"keytype":-1})",
                                 R"({"t":239,"appid":"1"})",
                                 R"({"t":240,"orgid":[1]})",
                                 R"({"t":242,"topmost":"yes"})",
                                 R"({"t":244,"keytype":"1"})",
                                 R"({"t":244,"appid":2147483648,"keytype":1})",
                                 R"({"t":271,"bValue":"1"})",
                                 R"({"t":272,"bValue":[1]})",
                                 R"({"t":275,"old":[1]})",
                                 R"({"t":275,"new":{"a":1}})",
                                 R"({"t":276,"reason":["r"]})",
                                 R"({"t":276,"appid":"1"})",
                                 R"({"t":277,"event":[1]})",
                                 R"({"t":277,"orgid":1e10})"});
  for (const auto& message : foreign) {
    EXPECT_EQ(Calls{}, callsOf(message)) << message.substr(0, 60);
    EXPECT_EQ(Calls{"app 2 3 4 null"}, callsOf(R"({"t":240,"appid":3,"orgid":4})"));
  }
  EXPECT_EQ("", m_output.text());
}

TEST_F(PluginEventsTest, StateAndContextChangesAreTracedWhenSomebodyListens) {
  callsOf(R"({"t":275})");
  const std::string state =
      "\033[0;32;31m @mervo,ipc/ryn_plugin/ryn_plugin,Zunt_RYN_Plugin_Server_Callback,283\n";
  EXPECT_EQ(state, m_output.text());
  callsOf(R"({"t":276})");
  const std::string both =
      state + "\033[0;32;31m @mervo,ipc/ryn_plugin/ryn_plugin,Zunt_RYN_Plugin_Server_Callback,298\n";
  EXPECT_EQ(both, m_output.text());
  callsOf(R"({"t":277})");
  unset(23);
  unset(24);
  EXPECT_EQ(Calls{}, callsOf(R"({"t":275})"));
  EXPECT_EQ(Calls{}, callsOf(R"({"t":276})"));
  EXPECT_EQ(both, m_output.text());
}

TEST_F(PluginEventsTest, QueriesAreAnswered) {
  EXPECT_TRUE(sameJson(R"({"t":246,"blocked":1})", answerTo(R"({"t":245,"appid":3,"orgid":4})")));
  EXPECT_TRUE(sameJson(R"({"t":246,"supported":1})", answerTo(R"({"t":247,"mtype":"video/mp4"})")));
  EXPECT_TRUE(sameJson(R"({"t":246,"supported":0})", answerTo(R"({"t":247})")));
  EXPECT_EQ((Calls{"rating 3 4 0", "object 'video/mp4' 0", "object '' 0"}), g_log.take());
  EXPECT_EQ("{\n   \"blocked\" : 1,\n   \"t\" : 246\n}\n", answerTo(R"({"t":245})"));
  unset(10);
  unset(19);
  EXPECT_TRUE(sameJson(R"({"t":246,"blocked":0})", answerTo(R"({"t":245})")));
  EXPECT_TRUE(sameJson(R"({"t":246,"supported":0})", answerTo(R"({"t":247,"mtype":"video/mp4"})")));
}

TEST_F(PluginEventsTest, WhatIsNoQueryGetsNoAnswerAndTheNextOneDoes) {
  Calls foreign(std::begin(kNoObjects), std::end(kNoObjects));
  foreign.insert(foreign.end(), {"", "{}", R"({"t":240})", R"({"t":246})", R"({"t":248})", R"({"t":"245"})",
                                 R"({"t":245,"appid":"1"})", R"({"t":245,"orgid":1e10})",
                                 R"({"t":247,"mtype":["x"]})", R"({"t":247,"mtype":{"a":1}})"});
  for (const auto& query : foreign) {
    EXPECT_EQ("", answerTo(query)) << query.substr(0, 60);
    EXPECT_EQ(Calls{}, g_log.take());
    EXPECT_NE("", answerTo(R"({"t":245})"));
    g_log.take();
  }
}

TEST_F(PluginEventsTest, ACallbackThatThrowsCostsThatMessageOnly) {
  ZuntRynEventCallback callback;
  callback.onApp = [](int, int, void*) { throw std::runtime_error("from a host"); };
  set(1, callback);
  callback.onFlag = [](bool) { throw 42; };
  set(21, callback);
  callback.onParentalRating = [](int, int, bool*) { throw std::runtime_error("from a host"); };
  set(10, callback);
  EXPECT_EQ(Calls{}, callsOf(R"({"t":239})"));
  EXPECT_EQ(Calls{}, callsOf(R"({"t":271})"));
  EXPECT_EQ("", answerTo(R"({"t":245})"));
  EXPECT_NE("", answerTo(R"({"t":247})"));
}

TEST_F(PluginEventsTest, TheFirstRegistrationStaysUntilItIsRemovedAlsoWhileStopped) {
  const auto add = [] {
    return Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_APP_LOADED, noting<99>());
  };
  EXPECT_EQ(0, add());
  EXPECT_EQ(Calls{"app 2 0 0 null"}, callsOf(R"({"t":240})"));
  unset(2);
  unset(2);
  EXPECT_EQ(Calls{}, callsOf(R"({"t":240})"));
  EXPECT_EQ(0, add());
  EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize());
  unset(3);
  EXPECT_EQ(0, Zunt_RYN_Plugin_Initialize());
  EXPECT_EQ(Calls{"app 99 0 0 null"}, callsOf(R"({"t":240})"));
  EXPECT_EQ(Calls{}, callsOf(R"({"t":241})"));
}

TEST_F(PluginEventsTest, RegisteringWhileMessagesArriveIsSafe) {
  std::atomic<bool> done{false};
  std::thread registrar([&] {
    while (!done) {
      unset(2);
      set(2, noting<2>());
      unset(10);
    }
  });
  for (int i = 0; i < 300; ++i) {
    for (const auto& call : callsOf(R"({"t":240})")) EXPECT_EQ("app 2 0 0 null", call);
    EXPECT_NE("", answerTo(R"({"t":245})"));
    g_log.take();
  }
  done = true;
  registrar.join();
}

}  // namespace
}  // namespace hbbtv_ryn::test
