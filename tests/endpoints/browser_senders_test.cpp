// The browser endpoint's notifications and queries, seen by a raw plug-in process.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "endpoints/api_call.h"
#include "endpoints/wire.h"
#include "hbbtv_ryn/browser.h"
#include "support/deadline.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

struct Notification {
  std::string (*send)();
  const char* message;
};

const Notification kNotifications[] = {
    {call<&Zunt_RYN_Browser_SendAppLoadError>, R"({"t":239,"appid":1,"orgid":2,"error":3})"},
    {call<&Zunt_RYN_Browser_SendAppLoaded>, R"({"t":240,"appid":1,"orgid":2})"},
    {call<&Zunt_RYN_Browser_SendAppUnloaded>, R"({"t":241,"appid":1,"orgid":2})"},
    {call<&Zunt_RYN_Browser_SendTopMost>, R"({"t":242,"appid":1,"orgid":2,"topmost":true})"},
    {call<&Zunt_RYN_Browser_RequestDestroyApp>, R"({"t":243,"appid":1,"orgid":2})"},
    {call<&Zunt_RYN_Browser_SendKey>, R"({"t":244,"appid":1,"orgid":2,"key":3,"keytype":4})"},
    {call<&Zunt_RYN_Browser_Get_Configuration>, R"({"t":270})"},
    {call<&Zunt_RYN_Browser_Handle_BroadcastService>, R"({"t":271,"bValue":1})"},
    {call<&Zunt_RYN_Browser_Set_BroadcastFullScreen>, R"({"t":272,"bValue":1})"},
    {call<&Zunt_RYN_Browser_OpApp_StateChange>,
     R"({"t":275,"appid":1,"orgid":2,"old":"3a\"b\\\n\u00e9","new":"4a\"b\\\n\u00e9",)"
     R"("reason":"5a\"b\\\n\u00e9"})"},
    {call<&Zunt_RYN_Browser_OpApp_ContextChange>,
     R"({"t":276,"appid":1,"orgid":2,"sloc":"3a\"b\\\n\u00e9","lloc":"4a\"b\\\n\u00e9",)"
     R"("reason":"5a\"b\\\n\u00e9"})"},
    {call<&Zunt_RYN_Browser_OpApp_Update>, R"({"t":277,"appid":1,"orgid":2,"event":"3a\"b\\\n\u00e9"})"},
};

struct Query {
  std::string (*ask)();
  const char* message;
  const char* key;
};
const Query kQueries[] = {
    {call<&Zunt_RYN_Browser_IsParentalRatingBlocked>, R"({"t":245,"appid":1,"orgid":2})", "blocked"},
    {call<&Zunt_RYN_Browser_IsObjectSupported>, R"({"t":247,"mtype":"1a\"b\\\n\u00e9"})", "supported"},
};

class BrowserSendersTest : public testing::Test {
 protected:
  BrowserSendersTest() { Zunt_RYN_Browser_Initialize(); }
  ~BrowserSendersTest() override { Zunt_RYN_Browser_Finalize(); }

  // One exchange, in which the plug-in process gives this reply, or else the failure reply.
  std::string ask(const Query& query, const std::optional<std::string>& reply) {
    Concurrently call(query.ask);
    const RawMessage request = m_queries.nextRequest();
    EXPECT_EQ(kRawRequest, request.kind);
    EXPECT_TRUE(sameJson(query.message, request.text));
    reply ? m_queries.reply(*reply) : m_queries.fail();
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
    EXPECT_EQ("0:", notification.send());
    const RawMessage message = m_notifications.takeMessage();
    EXPECT_EQ(kRawOneWay, message.kind);
    EXPECT_TRUE(sameJson(notification.message, message.text));
  }
  Zunt_RYN_Browser_SendTopMost(1, -2, false);
  EXPECT_EQ("{\n   \"appid\" : 1,\n   \"orgid\" : -2,\n   \"t\" : 242,\n   \"topmost\" : false\n}\n",
            m_notifications.takeMessage().text);
}

TEST_F(BrowserSendersTest, WhatTheChannelDoesNotCarryIsRefusedAndTheNextMessageLeaves) {
  const std::string too_long(16384, 'x');
  bool answer = true;
  EXPECT_EQ(-1, Zunt_RYN_Browser_OpApp_Update(1, 2, too_long));
  EXPECT_EQ(-1, Zunt_RYN_Browser_IsObjectSupported(too_long, &answer));
  EXPECT_EQ(-3, Zunt_RYN_Browser_IsParentalRatingBlocked(1, 2, nullptr));
  EXPECT_EQ(-3, Zunt_RYN_Browser_IsObjectSupported("x", nullptr));
  EXPECT_EQ(0U, m_notifications.depth());
  EXPECT_EQ(0U, m_queries.requests.depth());
  // Invalid UTF-8 is either refused or sent as something that parses.
  const int odd = Zunt_RYN_Browser_OpApp_Update(1, 2, "\xff\xc3(\xed\xa0\x80");
  EXPECT_TRUE(odd == 0 || odd == -1);
  if (odd == 0) parsed(m_notifications.takeMessage().text);
  EXPECT_EQ(0, Zunt_RYN_Browser_Get_Configuration());
  EXPECT_TRUE(sameJson(R"({"t":270})", m_notifications.takeMessage().text));
}

TEST_F(BrowserSendersTest, QueriesStoreUsableAnswersAndNothingElse) {
  for (const auto& query : kQueries) {
    std::vector<std::optional<std::string>> unusable(std::begin(kNoObjects), std::end(kNoObjects));
    for (const char* value : {"\"1\"", "[]", "{}", "9e9"}) unusable.push_back(answer(query, value));
    unusable.insert(unusable.end(), {"", answer(query, nested(2000, "[", "]")), std::nullopt});
    for (const bool before : {true, false}) {
      g_old_flag = before;
      for (const auto& reply : unusable) {
        EXPECT_EQ(before ? "-1: 1" : "-1: 0", ask(query, reply)) << reply.value_or("none").substr(0, 40);
      }
      for (const char* value : {"1", "5", "true"}) EXPECT_EQ("0: 1", ask(query, answer(query, value)));
      EXPECT_EQ("0: 0", ask(query, answer(query, "0")));
      EXPECT_EQ("0: 0", ask(query, "{}"));
    }
  }
}

TEST(BrowserSendersWithoutAPluginTest, ReportThatThereIsNoneAndThatTheyAreNotStarted) {
  g_old_flag = true;
  for (const bool started : {true, false}) {
    if (started) Zunt_RYN_Browser_Initialize();
    for (const auto& notification : kNotifications) EXPECT_EQ("-3:", notification.send());
    for (const auto& query : kQueries) EXPECT_EQ("-3: 1", query.ask());
    if (started) Zunt_RYN_Browser_Finalize();
    const RawQueue exists_from_now_on(kNotificationKey);
    const RawPeer and_these(kQueryKey);
  }
}

}  // namespace
}  // namespace hbbtv_ryn::test
