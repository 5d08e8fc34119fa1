// The browser endpoint's notifications and queries, seen by a raw plug-in process.
#include <gtest/gtest.h>

#include <utility>

#include "endpoints/wire.h"
#include "hbbtv_ryn/browser.h"
#include "support/deadline.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

struct Notification {
  int (*send)();
  const char* message;
};

const Notification kNotifications[] = {
    {[] { return Zunt_RYN_Browser_SendAppLoadError(1, 2, -3); },
     R"({"t":239,"appid":1,"orgid":2,"error":-3})"},
    {[] { return Zunt_RYN_Browser_SendAppLoaded(1, 2); }, R"({"t":240,"appid":1,"orgid":2})"},
    {[] { return Zunt_RYN_Browser_SendAppUnloaded(1, 2); }, R"({"t":241,"appid":1,"orgid":2})"},
    {[] { return Zunt_RYN_Browser_SendTopMost(1, 2, true); },
     R"({"t":242,"appid":1,"orgid":2,"topmost":true})"},
    {[] { return Zunt_RYN_Browser_SendTopMost(1, 2, false); },
     R"({"t":242,"appid":1,"orgid":2,"topmost":false})"},
    {[] { return Zunt_RYN_Browser_RequestDestroyApp(1, 2); }, R"({"t":243,"appid":1,"orgid":2})"},
    {[] { return Zunt_RYN_Browser_SendKey(1, 2, ZuntKey{415}, ZuntKeyEventType{-4}); },
     R"({"t":244,"appid":1,"orgid":2,"key":415,"keytype":-4})"},
    {[] { return Zunt_RYN_Browser_Get_Configuration(); }, R"({"t":270})"},
    {[] { return Zunt_RYN_Browser_Handle_BroadcastService(true); }, R"({"t":271,"bValue":1})"},
    {[] { return Zunt_RYN_Browser_Set_BroadcastFullScreen(false); }, R"({"t":272,"bValue":0})"},
    {[] { return Zunt_RYN_Browser_OpApp_StateChange(1, 2, "a\"b", "c\\d", "e\n\u00e9"); },
     "{\"t\":275,\"appid\":1,\"orgid\":2,\"old\":\"a\\\"b\",\"new\":\"c\\\\d\",\"reason\":\"e\\n\u00e9\"}"},
    {[] { return Zunt_RYN_Browser_OpApp_ContextChange(1, 2, "s", "l", ""); },
     R"({"t":276,"appid":1,"orgid":2,"sloc":"s","lloc":"l","reason":""})"},
    {[] { return Zunt_RYN_Browser_OpApp_Update(1, 2, "E"); },
     R"({"t":277,"appid":1,"orgid":2,"event":"E"})"},
};

bool g_answer;
struct Query {
  int (*ask)();
  const char* message;
  const char* key;
};
const Query kQueries[] = {
    {[] { return Zunt_RYN_Browser_IsParentalRatingBlocked(3, 4, &g_answer); },
     R"({"t":245,"appid":3,"orgid":4})", "blocked"},
    {[] { return Zunt_RYN_Browser_IsObjectSupported("", &g_answer); }, R"({"t":247,"mtype":""})",
     "supported"},
};

class BrowserSendersTest : public testing::Test {
 protected:
  BrowserSendersTest() { Zunt_RYN_Browser_Initialize(); }
  ~BrowserSendersTest() override { Zunt_RYN_Browser_Finalize(); }

  // One exchange, in which the plug-in process gives this reply.
  int ask(const Query& query, const std::string& reply) {
    Concurrently call(query.ask);
    const RawMessage request = m_queries.nextRequest();
    EXPECT_EQ(kRawRequest, request.kind);
    EXPECT_TRUE(sameJson(query.message, request.text));
    m_queries.reply(reply);
    return call.result();
  }
  static std::string answer(const Query& query, const std::string& value) {
    return std::string("{\"t\":246,\"") + query.key + "\":" + value + "}";
  }

  RawQueue m_notifications{kNotificationKey};
  RawPeer m_queries{kQueryKey};
};

TEST_F(BrowserSendersTest, EachNotificationHasItsMembers) {
  for (const auto& notification : kNotifications) {
    EXPECT_EQ(0, notification.send());
    const RawMessage message = m_notifications.takeMessage();
    EXPECT_EQ(kRawOneWay, message.kind);
    EXPECT_TRUE(sameJson(notification.message, message.text));
  }
  Zunt_RYN_Browser_SendTopMost(1, -2, true);
  EXPECT_EQ("{\n   \"appid\" : 1,\n   \"orgid\" : -2,\n   \"t\" : 242,\n   \"topmost\" : true\n}\n",
            m_notifications.takeMessage().text);
}

TEST_F(BrowserSendersTest, WhatTheChannelDoesNotCarryIsRefusedAndTheNextMessageLeaves) {
  const std::string too_long(16384, 'x');
  EXPECT_EQ(-1, Zunt_RYN_Browser_OpApp_Update(1, 2, too_long));
  EXPECT_EQ(-1, Zunt_RYN_Browser_IsObjectSupported(too_long, &g_answer));
  EXPECT_EQ(0U, m_notifications.depth());
  EXPECT_EQ(0U, m_queries.requests.depth());
  // Invalid UTF-8 is either refused or sent as something that parses.
  const int odd = Zunt_RYN_Browser_OpApp_Update(1, 2, "\xff\xc3(\xed\xa0\x80");
  EXPECT_TRUE(odd == 0 || odd == -1);
  if (odd == 0) parsed(m_notifications.takeMessage().text);
  EXPECT_EQ(0, Zunt_RYN_Browser_Get_Configuration());
  EXPECT_TRUE(sameJson(R"({"t":270})", m_notifications.takeMessage().text));
}

TEST_F(BrowserSendersTest, QueriesStoreWhatTheAnswerSays) {
  for (const auto& query : kQueries) {
    for (const auto& [value, stored] : {std::pair("1", true), {"0", false}, {"5", true}, {"true", true}}) {
      g_answer = !stored;
      EXPECT_EQ(0, ask(query, answer(query, value)));
      EXPECT_EQ(stored, g_answer) << value;
    }
    g_answer = true;
    EXPECT_EQ(0, ask(query, "{}"));
    EXPECT_FALSE(g_answer);
  }
}

TEST_F(BrowserSendersTest, AnUnusableAnswerLeavesTheResultAloneAndTheNextIsTaken) {
  for (const auto& query : kQueries) {
    std::vector<std::string> unusable(std::begin(kNoObjects), std::end(kNoObjects));
    unusable.insert(unusable.end(), {"", answer(query, "\"1\""), answer(query, "[]"), answer(query, "{}"),
                                     answer(query, "9e9"), answer(query, nested(2000, "[", "]"))});
    for (const auto& reply : unusable) {
      for (const bool before : {true, false}) {
        g_answer = before;
        EXPECT_EQ(-1, ask(query, reply)) << reply.substr(0, 40);
        EXPECT_EQ(before, g_answer);
      }
    }
    Concurrently call(query.ask);
    m_queries.nextRequest();
    m_queries.fail();
    EXPECT_EQ(-1, call.result());
    EXPECT_EQ(0, ask(query, answer(query, "1")));
    EXPECT_TRUE(g_answer);
  }
}

TEST_F(BrowserSendersTest, NullIsRefusedBeforeAnythingIsSent) {
  EXPECT_EQ(-3, Zunt_RYN_Browser_IsParentalRatingBlocked(1, 2, nullptr));
  EXPECT_EQ(-3, Zunt_RYN_Browser_IsObjectSupported("x", nullptr));
  EXPECT_EQ(0U, m_queries.requests.depth());
}

TEST(BrowserSendersWithoutAPluginTest, ReportThatThereIsNoneAndThatTheyAreNotStarted) {
  g_answer = true;
  for (const bool started : {true, false}) {
    if (started) Zunt_RYN_Browser_Initialize();
    for (const auto& notification : kNotifications) EXPECT_EQ(-3, notification.send());
    for (const auto& query : kQueries) EXPECT_EQ(-3, query.ask());
    if (started) Zunt_RYN_Browser_Finalize();
    const RawQueue exists_from_now_on(kNotificationKey);
    const RawPeer and_these(kQueryKey);
  }
  EXPECT_TRUE(g_answer);
}

}  // namespace
}  // namespace hbbtv_ryn::test
