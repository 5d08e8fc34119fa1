// What the browser endpoint alone does, before a raw plug-in process.
#include "hbbtv_ryn/browser.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <thread>

#include "endpoints/any_function.h"
#include "endpoints/messages.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

class BrowserTest : public testing::Test {
 protected:
  BrowserTest() {
    EXPECT_EQ(0, kBrowser.start());
    g_calls.take();
  }
  ~BrowserTest() override {
    kBrowser.forget();
    EXPECT_EQ(0, kBrowser.stop());
  }
  static std::string ask(const std::string& request) { return test::ask(kRequestKey, request); }
};

TEST_F(BrowserTest, WithoutAHandlerADefaultIsAnsweredByteForByte) {
  EXPECT_EQ("{\n   \"t\" : 217,\n   \"visible\" : 0\n}\n", ask(R"({"t":216})"));
  EXPECT_EQ("{\n   \"ret\" : 0,\n   \"status\" : -2\n}\n", ask(R"({"t":284})"));
  EXPECT_TRUE(sameJson(R"({"t":208,"appNum":0,"appidArray":"","orgidArray":""})", ask(R"({"t":207})")));
}

TEST_F(BrowserTest, WithoutAHandlerEveryAnswerHoldsItsDefaults) {
  for (const auto& request : kBrowser.receives) {
    if (!request.isSynchronous()) continue;
    Json::Value defaults = parsed(request.reply);
    for (const auto& name : defaults.getMemberNames()) {
      if (name[0] == 'k') {
        defaults.removeMember(name);
      } else if (name != "t" && name != "flag") {
        defaults[name] = defaults[name].isString() ? Json::Value("") : Json::Value(0);
      }
    }
    const int code = parsed(request.text)["t"].asInt();
    if (code == 201) defaults["appid"] = 77;
    if (code == 278) defaults["flag"] = true;
    if (code == 284) defaults["status"] = -2;
    EXPECT_EQ(defaults, parsed(ask(request.text))) << request.text;
  }
}

TEST_F(BrowserTest, RequestsAreReadLeniently) {
  for (const int code : {209, 214, 216, 280}) messageOf(code).receive();
  // Missing members read as zero, numbers convert without their fraction, and a text ends at its NUL.
  ask(R"({"t":209})");
  ask(R"({"t":280})");
  ask(R"(  /* a comment */ {"orgid" : true, "extra":[{}], "appid":5.9, "t":216.0})");
  ask(std::string("{\"t\":216}\0 and more", 19));
  ask(R"({"t":214,"focus":0.5})");
  EXPECT_EQ((Calls{"209 0 0 '' 0 0 0 0", "280 ''", "216 5 1 0", "216 0 0 0", "214 0 0 0"}), g_calls.take());
  // Invalid UTF-8 may come out as anything.
  ask("{\"t\":280,\"status\":\"\xff\xfe\xc3\"}");
  ask(R"({"t":280,"status":"\ud800"})");
  g_calls.take();
  EXPECT_NE("", ask(R"({"t":280})"));
}

TEST_F(BrowserTest, WhatAsksForNoAnswerGetsNone) {
  messageOf(212).receive();
  EXPECT_EQ("", ask(R"({"t":212})"));
  EXPECT_EQ(Calls{"212 0 0"}, g_calls.take());
  RawPeer plugin(kRequestKey);
  IpcRecord empty = rawRecord(IPC_KIND_REQUEST, R"({"t":216})");
  empty.total_length = 0;
  plugin.requests.send(empty);
  EXPECT_EQ(IPC_KIND_FAILURE, plugin.replies.takeMessage().kind);
}

TEST_F(BrowserTest, NoAnswerIsMadeToAQuestionThatCameAsAOneWayMessage) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetKeyLabel = [](int, int, int, std::string& label) { label.assign(15000, 'x'); };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  RawPeer plugin(kRequestKey);
  const auto before = mallinfo2().uordblks;
  for (int i = 0; i < 100; ++i) plugin.notify(R"({"t":237})");
  EXPECT_EQ(IPC_KIND_FAILURE, plugin.ask("{}").kind);
  EXPECT_LT(mallinfo2().uordblks, before + 50 * 15000);
}

TEST_F(BrowserTest, OnceAHandlerIsUnregisteredItIsNotRunning) {
  static std::atomic<bool> running{false};
  static std::atomic<bool> released{false};
  ZuntRynBrowserEventCallback handlers{};
  handlers.ShowApp = [](int, int) {
    running = true;
    waitUntil("it may go on", [] { return released.load(); });
  };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  RawPeer(kRequestKey).notify(R"({"t":212})");
  waitUntil("the handler runs", [] { return running.load(); });
  Concurrently unregister(&Zunt_RYN_Browser_UnregisterCallback);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(unregister.returned());
  released = true;
  EXPECT_EQ(0, unregister.result());
}

// What the handlers below report.
std::atomic<int> g_count{0};

TEST_F(BrowserTest, ListsAndTextsAreBoundedByTheirArraysAndByTheMessage) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetOtherKeys = [](int, int, int* keys, int* count) {
    for (int i = 0; i < ZUNT_RYN_MAX_OTHER_KEYS; ++i) keys[i] = i;
    *count = g_count;
  };
  handlers.GetChildApps = [](int, int, int* appids, int* orgids, int* count) {
    for (int i = 0; i < ZUNT_RYN_MAX_CHILD_APPS; ++i) appids[i] = orgids[i] = -2147483647 + i;
    *count = g_count;
  };
  handlers.GetKeyLabel = [](int, int, int code, std::string& label) {
    label.assign(static_cast<std::size_t>(code), 'x');
  };
  handlers.SetValue = [](int, int, int, const int* keys, int count) {
    std::ostringstream list;
    for (int i = 0; i < ZUNT_RYN_MAX_OTHER_KEYS; ++i) list << ' ' << keys[i];
    g_calls.note(count, list.str());
  };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);

  g_count = -5;
  EXPECT_TRUE(sameJson(R"({"t":225,"num":-5})", ask(R"({"t":224})")));
  EXPECT_TRUE(sameJson(R"({"t":208,"appNum":-5,"appidArray":"","orgidArray":""})", ask(R"({"t":207})")));
  g_count = 500;
  const Json::Value keys = parsed(ask(R"({"t":224})"));
  EXPECT_EQ(20, keys["num"].asInt());
  EXPECT_EQ(19, keys["k19"].asInt());
  EXPECT_FALSE(keys.isMember("k20"));
  const Json::Value children = parsed(ask(R"({"t":207})"));
  EXPECT_EQ(500U * 16, children["appidArray"].asString().size());
  EXPECT_EQ("     -2147483148", children["orgidArray"].asString().substr(499 * 16));
  for (const int beyond_a_message : {512, 513, 2147483647}) {
    g_count = beyond_a_message;
    EXPECT_EQ("", ask(R"({"t":207})"));
  }
  EXPECT_EQ("", ask(R"({"t":237,"code":17000})"));
  EXPECT_EQ(15000U, parsed(ask(R"({"t":237,"code":15000})"))["label"].asString().size());

  std::string thirty;
  for (int i = 0; i < 30; ++i) thirty += ",\"k" + std::to_string(i) + "\":1";
  for (const char* count : {"30", "2147483647", "-2"}) {
    ask(std::string(R"({"t":234,"keynum":)") + count + thirty + "}");
  }
  const std::string twenty = "20 " + repeated(20, " 1");
  EXPECT_EQ((Calls{twenty, twenty, "-2 " + repeated(20, " 0")}), g_calls.take());
}

TEST_F(BrowserTest, BadArgumentsAreRefusedAndInvalidTextHarmsNothing) {
  const RawPeer queries(kQueryKey);
  RawQueue notifications(kNotificationKey);
  EXPECT_EQ(-3, Zunt_RYN_Browser_IsParentalRatingBlocked(1, 2, nullptr));
  EXPECT_EQ(-3, Zunt_RYN_Browser_IsObjectSupported("x", nullptr));
  EXPECT_EQ(0U, queries.requests.depth());
  // What is no UTF-8 is replaced.
  EXPECT_EQ(0, Zunt_RYN_Browser_OpApp_Update(1, 2, "a\xff"));
  EXPECT_EQ("a\ufffd", parsed(notifications.takeMessage().text)["event"].asString());
  EXPECT_EQ(0, Zunt_RYN_Browser_OpApp_Update(1, 2, "\xff\xc3(\xed\xa0\x80"));
  EXPECT_TRUE(parsed(notifications.takeMessage().text).isMember("event"));
  EXPECT_EQ("0:", exchange(messageOf(270)));
}

}  // namespace
}  // namespace hbbtv_ryn::test
