// Starting, stopping and registering on the browser side.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "endpoints/process_resources.h"
#include "endpoints/wire.h"
#include "hbbtv_ryn/browser.h"
#include "support/isolation.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

ZuntRynBrowserEventCallback withValue(void (*get_value)(int, int, int*)) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetValue = get_value;
  return handlers;
}
const auto kOne = withValue([](int, int, int* value) { *value = 1; });
const auto kTwo = withValue([](int, int, int* value) { *value = 2; });

int askedValue() {
  RawPeer plugin(kRequestKey);
  return parsed(plugin.ask(R"({"t":222})").text)["value"].asInt();
}

class BrowserLifecycleTest : public testing::Test {
 protected:
  ~BrowserLifecycleTest() override {
    Zunt_RYN_Browser_UnregisterCallback();
    EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
  }
};

TEST_F(BrowserLifecycleTest, StartsAndStopsAnyNumberOfTimesWithoutLeavingAnything) {
  EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
  Zunt_RYN_Browser_Initialize();
  Zunt_RYN_Browser_Finalize();
  const auto descriptors = descriptorCount();
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
    const auto threads = threadCount();
    ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
    EXPECT_EQ(threads, threadCount());
    ASSERT_EQ(0, askedValue());
    ASSERT_EQ(0, Zunt_RYN_Browser_Finalize());
    waitForThreadCount(threads - 1);
  }
  EXPECT_EQ(descriptors, descriptorCount());
}

TEST_F(BrowserLifecycleTest, AStartThatFailsLeavesNothingAndCanBeRepeated) {
  if (!isIsolated()) GTEST_SKIP() << "would change the machine";
  setQueueLimit(1);
  EXPECT_EQ(-1, Zunt_RYN_Browser_Initialize());
  EXPECT_GE(0, rawLife(kRequestKey));
  setQueueLimit(100);
  EXPECT_EQ(0, Zunt_RYN_Browser_Initialize());
  EXPECT_EQ(0, askedValue());
}

TEST_F(BrowserLifecycleTest, HandlersOutliveTheEndpointAndAreReplacedAsAWhole) {
  EXPECT_EQ(0, Zunt_RYN_Browser_RegisterCallback(kOne, nullptr));
  for (int i = 0; i < 2; ++i) {
    Zunt_RYN_Browser_Initialize();
    EXPECT_EQ(1, askedValue());
    Zunt_RYN_Browser_Finalize();
  }
  Zunt_RYN_Browser_Initialize();
  EXPECT_EQ(0, Zunt_RYN_Browser_RegisterCallback(kTwo, nullptr));
  EXPECT_EQ(2, askedValue());
  ZuntRynBrowserEventCallback without_value{};
  without_value.GetVisible = [](int, int, bool*) {};
  EXPECT_EQ(0, Zunt_RYN_Browser_RegisterCallback(without_value, nullptr));
  EXPECT_EQ(0, askedValue());
  Zunt_RYN_Browser_RegisterCallback(kTwo, nullptr);
  EXPECT_EQ(0, Zunt_RYN_Browser_UnregisterCallback());
  EXPECT_EQ(0, askedValue());
}

TEST_F(BrowserLifecycleTest, RegisteringWhileRequestsArriveIsSafe) {
  Zunt_RYN_Browser_Initialize();
  std::atomic<bool> done{false};
  std::thread registrar([&] {
    while (!done) {
      Zunt_RYN_Browser_RegisterCallback(kOne, nullptr);
      Zunt_RYN_Browser_RegisterCallback(kTwo, nullptr);
      Zunt_RYN_Browser_UnregisterCallback();
    }
  });
  for (int i = 0; i < 300; ++i) {
    const int value = askedValue();
    EXPECT_TRUE(value >= 0 && value <= 2) << value;
  }
  done = true;
  registrar.join();
}

}  // namespace
}  // namespace hbbtv_ryn::test
