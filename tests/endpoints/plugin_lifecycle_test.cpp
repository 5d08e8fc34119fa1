// Starting and stopping on the plug-in side.
#include <gtest/gtest.h>

#include <atomic>

#include "endpoints/process_resources.h"
#include "endpoints/wire.h"
#include "hbbtv_ryn/plugin.h"
#include "support/deadline.h"
#include "support/isolation.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

// One exchange in each direction.
void expectStarted() {
  RawPeer browser_queries(kQueryKey);
  EXPECT_EQ(kRawReply, browser_queries.ask(R"({"t":245})").kind);
  RawPeer browser(kRequestKey);
  Concurrently call([] { return Zunt_RYN_Plugin_OpApp_RequestUpdate(); });
  browser.nextRequest();
  browser.reply(R"({"ret":5})");
  EXPECT_EQ(5, call.result());
}

class PluginLifecycleTest : public testing::Test {
 protected:
  ~PluginLifecycleTest() override { EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize()); }
};

TEST_F(PluginLifecycleTest, StartsAndStopsAnyNumberOfTimesWithoutLeavingAnything) {
  EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize());
  Zunt_RYN_Plugin_Initialize();
  expectStarted();
  Zunt_RYN_Plugin_Finalize();
  const auto descriptors = descriptorCount();
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
    const auto threads = threadCount();
    ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
    EXPECT_EQ(threads, threadCount());
    expectStarted();
    ASSERT_EQ(0, Zunt_RYN_Plugin_Finalize());
    waitForThreadCount(threads - 2);
  }
  EXPECT_EQ(descriptors, descriptorCount());
}

std::atomic<bool> g_entered{false};

TEST_F(PluginLifecycleTest, StoppingDuringACallbackThatMakesRequestsEndsBoth) {
  RawPeer browser(kRequestKey);
  ZuntRynEventCallback callback;
  callback.onNotify = [] {
    g_entered = true;
    while (Zunt_RYN_Plugin_ShowApp(1, 2) != -3) RawQueue(kRequestKey).discardAll();
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_GET_CONFIGURATION, callback);
  Zunt_RYN_Plugin_Initialize();
  RawQueue(kNotificationKey).sendMessage(kRawOneWay, R"({"t":270})");
  waitUntil("the callback ran", [] { return g_entered.load(); });
  Concurrently stop([] { return Zunt_RYN_Plugin_Finalize(); });
  EXPECT_EQ(0, stop.result());
}

TEST_F(PluginLifecycleTest, AStartThatFailsLeavesNothingAndCanBeRepeated) {
  if (!isIsolated()) GTEST_SKIP() << "would change the machine";
  for (const int room : {0, 1, 2}) {
    setQueueLimit(room);
    EXPECT_EQ(-3, Zunt_RYN_Plugin_Initialize());
    EXPECT_GE(0, rawLife(kNotificationKey));
    EXPECT_GE(0, rawLife(kQueryKey));
    EXPECT_EQ(-3, Zunt_RYN_Plugin_ShowApp(1, 2));
  }
  setQueueLimit(100);
  EXPECT_EQ(0, Zunt_RYN_Plugin_Initialize());
  expectStarted();
}

}  // namespace
}  // namespace hbbtv_ryn::test
