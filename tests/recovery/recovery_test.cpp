// How the endpoints come back from what no well-behaved peer does.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/plugin.h"
#include "support/child_process.h"
#include "support/deadline.h"
#include "support/output_capture.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

// A browser whose answer tells the question.
void startBrowser() {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetValue = [](int appid, int, int* value) { *value = appid; };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
}

const ChildRole kBrowser("browser", [](Parent& parent) {
  startBrowser();
  parent.say("up");
  for (;;) pause();
  return 0;
});

struct PluginEndpoint {
  PluginEndpoint() { EXPECT_EQ(0, Zunt_RYN_Plugin_Initialize()); }
  ~PluginEndpoint() { EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize()); }

  static bool isAnswered(int appid) {
    int value = -1;
    return Zunt_RYN_Plugin_GetValue(appid, 0, &value) == 0 && value == appid;
  }
};

TEST(StrayAnswerTest, AnswersToAStrangersRequestsShiftNoLaterAnswerForLong) {
  startBrowser();
  PluginEndpoint plugin;
  ASSERT_TRUE(plugin.isAnswered(0));
  RawPeer stranger(kRequestKey);
  int appid = 1;
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 3; ++i) {
      stranger.requests.sendMessage(IPC_KIND_REQUEST, R"({"t":222,"appid":-5,"orgid":0})");
    }
    waitUntil("the stranger was answered", [&] { return stranger.replies.depth() == 3; });
    waitUntil("the plug-in's own answer came", [&] { return plugin.isAnswered(++appid); });
    for (int i = 0; i < 50; ++i) EXPECT_TRUE(plugin.isAnswered(++appid));
  }
  EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
}

TEST(StrayAnswerTest, TheFailureReplyToAStrangersJunkShiftsNoLaterAnswer) {
  ChildProcess browser(kBrowser);
  ASSERT_EQ("up", browser.hear());
  PluginEndpoint plugin;
  ASSERT_TRUE(plugin.isAnswered(1));
  browser.halt();
  RawQueue requests(kRequestKey);
  requests.sendMessage(IPC_KIND_REQUEST, "junk");
  Concurrently call([&] { return plugin.isAnswered(3); });
  waitUntil("both requests lay there", [&] { return requests.depth() == 2; });
  browser.goOn();
  EXPECT_FALSE(call.result());
  for (int appid = 4; appid < 50; ++appid) EXPECT_TRUE(plugin.isAnswered(appid));
}

TEST(DeadServerTest, ALongRequestIsNotPressedUponAFullQueueWhoseServerDies) {
  ChildProcess browser(kBrowser);
  ASSERT_EQ("up", browser.hear());
  PluginEndpoint plugin;
  ASSERT_TRUE(plugin.isAnswered(1));
  browser.halt();
  RawQueue requests(kRequestKey);
  while (requests.trySend(rawRecord(IPC_KIND_ONEWAY, "filler"))) continue;
  OutputCapture output(stdout);
  Concurrently call([] { return Zunt_RYN_Plugin_OpApp_SetStatus(std::string(10 * kRawPayload, 's')); });
  waitUntil("the queue was found full", [&] { return occurrences(output.text(), "msgsnd EAGAIN") > 0; });
  browser.kill();
  EXPECT_EQ(-1, call.result());
  // A live server would have been given all attempts for each of eleven records.
  EXPECT_LT(occurrences(output.text(), "msgsnd EAGAIN"), 11 * (1 + IPC_RETRY_COUNT));
}

TEST(ChildAppsTest, NoMoreAreStoredThanCallersMakeRoomFor) {
  RawPeer browser(kRequestKey);
  PluginEndpoint plugin;
  std::array<int, ZUNT_RYN_MAX_CHILD_APPS + 1> ids{};
  int count = 0;
  Concurrently call([&] { return Zunt_RYN_Plugin_GetChildApps(1, 2, ids.data(), ids.data(), &count); });
  browser.nextRequest();
  std::string fields;
  for (int i = 0; i < 1000; ++i) fields += "               7";
  browser.replies.sendMessage(IPC_KIND_REPLY,
                              R"({"appNum":1000,"orgidArray":"","appidArray":")" + fields + "\"}");
  EXPECT_EQ(0, call.result());
  EXPECT_EQ(1000, count);
  EXPECT_EQ(7, ids[ZUNT_RYN_MAX_CHILD_APPS - 1]);
  EXPECT_EQ(0, ids[ZUNT_RYN_MAX_CHILD_APPS]);
}

}  // namespace
}  // namespace hbbtv_ryn::test
