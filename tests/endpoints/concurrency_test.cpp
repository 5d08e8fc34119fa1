// Everything at once: the plug-in process asks from four threads and from within its callbacks while the
// browser process, a child, sends notifications and queries.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

#include "endpoints/wire.h"
#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "support/child_process.h"
#include "support/deadline.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

std::chrono::milliseconds duration() {
  const char* seconds = std::getenv("HBBTV_RYN_TEST_SECONDS");
  return std::chrono::milliseconds(seconds == nullptr ? 1500 : 1000 * std::atoi(seconds));
}

constexpr int valueFor(int appid, int orgid) {
  return 1000003 * appid + orgid;
}
constexpr bool isBlocked(int appid) {
  return appid % 3 == 0;
}

// --- The browser process

std::atomic<bool> g_stop{false};
std::atomic<int> g_wrong{0};

int sendNotifications() {
  const RawQueue queue(kNotificationKey);
  int sent = 0;
  while (!g_stop) {
    // A notification that finds the queue full for long is dropped, which is not what is tested here.
    if (queue.depth() < 8) {
      g_wrong += Zunt_RYN_Browser_SendAppLoaded(sent, 0) == 0 ? 0 : 1;
      ++sent;
    } else {
      std::this_thread::yield();
    }
  }
  return sent;
}

int sendQueries() {
  int asked = 0;
  for (; !g_stop; ++asked) {
    bool blocked = !isBlocked(asked);
    const int result = Zunt_RYN_Browser_IsParentalRatingBlocked(asked, 0, &blocked);
    g_wrong += result == 0 && blocked == isBlocked(asked) ? 0 : 1;
  }
  return asked;
}

const ChildRole kBusyBrowser("busy browser", [](Parent& parent) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetValue = [](int appid, int orgid, int* value) { *value = valueFor(appid, orgid); };
  handlers.GetKeyLabel = [](int appid, int orgid, int code, std::string& label) {
    label = std::to_string(valueFor(appid, orgid)) + std::string(static_cast<std::size_t>(code), '.');
  };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  Zunt_RYN_Browser_Initialize();
  parent.say("up");
  parent.hear();
  int sent = 0;
  int asked = 0;
  std::thread notifier([&] { sent = sendNotifications(); });
  std::thread questioner([&] { asked = sendQueries(); });
  parent.hear();
  g_stop = true;
  notifier.join();
  questioner.join();
  parent.say(std::to_string(sent));
  parent.say(std::to_string(asked));
  parent.say(std::to_string(g_wrong));
  parent.hear();
  return Zunt_RYN_Browser_Finalize();
});

// --- The plug-in process

std::atomic<int> g_notified{0};
std::atomic<int> g_queried{0};
std::atomic<int> g_misplaced{0};

bool asksRight(int appid, int orgid) {
  int value = 0;
  return Zunt_RYN_Plugin_GetValue(appid, orgid, &value) == 0 && value == valueFor(appid, orgid);
}

bool asksForALabelRight(int appid, int orgid) {
  std::string label;
  const int length = orgid % 3000;
  return Zunt_RYN_Plugin_GetKeyLabel(appid, orgid, length, label) == 0 &&
         label ==
             std::to_string(valueFor(appid, orgid)) + std::string(static_cast<std::size_t>(length), '.');
}

void registerCallbacks() {
  ZuntRynEventCallback callback;
  callback.onApp = [](int number, int, void*) {
    // In order, each once; every fourth asks back.
    if (number != g_notified || (number % 4 == 0 && !asksRight(100, number))) ++g_misplaced;
    ++g_notified;
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_APP_LOADED, callback);
  callback.onParentalRating = [](int number, int, bool* blocked) {
    if (number % 4 == 0 && !asksRight(200, number)) ++g_misplaced;
    *blocked = isBlocked(number);
    ++g_queried;
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY, callback);
}

TEST(ConcurrencyTest, EveryAnswerIsTheAnswerToItsOwnRequestAndNotificationsKeepTheirOrder) {
  ChildProcess browser(kBusyBrowser);
  ASSERT_EQ("up", browser.hear());
  registerCallbacks();
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  browser.say("go");

  std::atomic<bool> done{false};
  std::atomic<int> wrong{0};
  std::atomic<int> answered[4] = {};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; !done; ++i) {
        const bool right = i % 8 == 0 ? asksForALabelRight(thread, i) : asksRight(thread, i);
        ++(right ? answered[thread] : wrong);
      }
    });
  }
  std::this_thread::sleep_for(duration());
  browser.say("stop");
  const int sent = std::stoi(browser.hear());
  const int asked = std::stoi(browser.hear());
  EXPECT_EQ("0", browser.hear());
  waitUntil("every notification had arrived", [&] { return g_notified == sent; });
  done = true;
  for (auto& thread : threads) thread.join();
  browser.say("end");
  EXPECT_EQ(0, browser.wait());
  EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize());

  EXPECT_EQ(0, wrong);
  EXPECT_EQ(0, g_misplaced);
  EXPECT_EQ(asked, g_queried);
  EXPECT_LT(10, sent);
  EXPECT_LT(10, asked);
  for (const auto& count : answered) EXPECT_LT(10, count);
}

}  // namespace
}  // namespace hbbtv_ryn::test
