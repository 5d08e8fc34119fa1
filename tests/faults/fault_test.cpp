// Each operation with each of its calls failing in turn, until it makes no more of them: what it returns,
// what it leaves behind, and that the next call works. What stays allocated is seen under the address
// sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>

#include "faults/injection.h"
#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "hbbtv_ryn/request_registry.h"
#include "support/output_capture.h"
#include "tools/support/deadline.h"

namespace hbbtv_ryn::test {
namespace {

// Set: the next client with a reply queue is created in vain, once a handler is sending.
std::atomic<bool> g_refuse_client{false};
std::atomic<bool> g_handler_sends{false};

}  // namespace
}  // namespace hbbtv_ryn::test

// What the linker puts in the place of zunt_ipc_client_create(), and that function.
extern "C" {
int __real__Z22zunt_ipc_client_createiliiPP9IpcClient(key_t, long, int, int, IpcClient**);
int __wrap__Z22zunt_ipc_client_createiliiPP9IpcClient(key_t key, long channel, int with_reply,
                                                      int chunk_size, IpcClient** client) {
  using namespace hbbtv_ryn::test;
  if (with_reply == 0 || !g_refuse_client.exchange(false)) {
    return __real__Z22zunt_ipc_client_createiliiPP9IpcClient(key, channel, with_reply, chunk_size, client);
  }
  waitUntil("a handler sends", [] { return g_handler_sends.load(); });
  return -4;
}
}

namespace hbbtv_ryn::test {
namespace {

struct Expectation {
  Fault fault;
  std::set<int> results;  // of an operation that a fault has struck, each of them at some call
  Where where = Where::kThisThread;
};

class FaultTest : public testing::Test {
 protected:
  // Calls `operation` with the first, second, … call failing, and `next` after each time, until no call is
  // left to fail. `next` runs on another thread: a lock that stayed held ends the test at the deadline.
  void withEachCallFailing(const Expectation& expected, const std::function<int()>& operation,
                           const std::function<void()>& next) {
    std::set<int> seen;
    for (int nth = 1; nth < 500; ++nth) {
      SCOPED_TRACE("fault " + std::to_string(static_cast<int>(expected.fault)) + ", call " +
                   std::to_string(nth));
      int result = 0;
      bool struck = false;
      {
        const Injection injection(expected.fault, nth, expected.where);
        result = operation();
        struck = injection.struck();
      }
      if (struck) seen.insert(result);
      Concurrently(next).result();
      if (struck) continue;
      EXPECT_EQ(0, result);
      EXPECT_EQ(expected.results, seen);
      return;
    }
    FAIL() << "the operation makes calls without end";
  }

  OutputCapture errors_{stderr};
};

// --- The endpoints, both in this process

class EndpointFaultTest : public FaultTest {
 protected:
  static void start() {
    ZuntRynBrowserEventCallback handlers{};
    handlers.GetKeyLabel = [](int appid, int, int, std::string& label) {
      label.assign(sizeFor(appid), 'l');
    };
    Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
    ZuntRynEventCallback callback;
    callback.onParentalRating = [](int appid, int, bool* blocked) { *blocked = appid % 2 != 0; };
    Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY, callback);
    ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
    ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  }
  static void stop() {
    EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize());
    EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
  }

  // An answer of several records.
  static std::size_t sizeFor(int appid) { return 3000 + static_cast<std::size_t>(appid % 1000); }

  // Each asks something else than the one before. These allocate nothing themselves, or it would be they
  // that are struck.
  int askLabel() {
    std::string label;
    const int result = Zunt_RYN_Plugin_GetKeyLabel(++appid_, 1, 1, label);
    right_ = right_ && label.size() == (result == 0 ? sizeFor(appid_) : 0);
    return result;
  }
  int askBlocked() {
    const bool expected = ++appid_ % 2 != 0;
    bool blocked = !expected;
    const int result = Zunt_RYN_Browser_IsParentalRatingBlocked(appid_, 1, &blocked);
    right_ = right_ && (blocked == expected) == (result == 0);
    return result;
  }
  void expectAnswers() {
    EXPECT_TRUE(right_) << "an answer was wrong, or an out-parameter changed without one";
    right_ = true;
    EXPECT_EQ(0, askLabel());
    EXPECT_EQ(0, askBlocked());
    EXPECT_TRUE(right_) << "the next answer was wrong";
    right_ = true;
  }

  int appid_ = 1;
  bool right_ = true;  // whether the answers since the last look were
};

// Without the sign of life a server may serve. What has not started sends nothing.
TEST_F(EndpointFaultTest, Starting) {
  const auto started = [](int result, int (*send)(int, int)) {
    return result == 0 || send(1, 2) == -3 ? result : 1;
  };
  for (const Expectation& expected : {Expectation{Fault::kMemory, {-4}},
                                      {Fault::kQueueOpen, {-3}, Where::kOtherThreads},
                                      {Fault::kThread, {-5}},
                                      {Fault::kSemaphore, {0}, Where::kOtherThreads}}) {
    const auto next = [&] {
      start();
      expectAnswers();
      stop();
    };
    withEachCallFailing(
        expected, [&] { return started(Zunt_RYN_Plugin_Initialize(), &Zunt_RYN_Plugin_ShowApp); }, next);
    Expectation untold = expected;  // the browser's host is not told why
    if (expected.fault != Fault::kSemaphore) untold.results = {-1};
    withEachCallFailing(
        untold, [&] { return started(Zunt_RYN_Browser_Initialize(), &Zunt_RYN_Browser_SendAppLoaded); },
        next);
  }
}

// The endpoint is taken back in the order in which it stops: whoever is sending keeps what he sends with.
TEST_F(EndpointFaultTest, StartingFailsWhileAHandlerSends) {
  static std::atomic<int> refused{0};
  start();
  EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
  ZuntRynBrowserEventCallback handlers{};
  handlers.ShowApp = [](int appid, int orgid) {
    waitUntil("the handler can send", [&] { return Zunt_RYN_Browser_SendAppLoaded(appid, orgid) == 0; });
    g_handler_sends = true;
    for (int i = 0; i < 300; ++i) refused += Zunt_RYN_Browser_SendAppLoaded(appid, orgid) != 0;
  };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  EXPECT_EQ(0, Zunt_RYN_Plugin_ShowApp(1, 2));  // waits on the queue for the server
  g_refuse_client = true;
  EXPECT_EQ(-1, Zunt_RYN_Browser_Initialize());
  EXPECT_TRUE(g_handler_sends);
  EXPECT_EQ(0, refused);
  start();
  expectAnswers();
  stop();
}

// With a handle that has done nothing yet, so that every fault can strike its first exchange, and with one
// in use. An answer that was given up must not answer the next request.
TEST_F(EndpointFaultTest, RequestsAndQueries) {
  start();
  const struct {
    Fault fault;
    std::set<int> first, later;
  } rows[] = {{Fault::kMemory, {-4}, {-4}},  {Fault::kQueueOpen, {-3}, {}}, {Fault::kSend, {0}, {0}},
              {Fault::kReceive, {-1}, {-1}}, {Fault::kSemaphore, {0}, {0}}, {Fault::kThread, {-4}, {}}};
  for (const auto& row : rows) {
    for (const bool first_exchange : {true, false}) {
      const auto next = [&] {
        expectAnswers();
        if (!first_exchange) return;
        stop();
        start();
      };
      next();
      Expectation expected{row.fault, first_exchange ? row.first : row.later};
      withEachCallFailing(
          expected, [&] { return askBlocked(); }, next);
      // Its answer, of several records, may find no room to grow.
      if (row.fault == Fault::kMemory) expected.results.insert(-1);
      withEachCallFailing(
          expected, [&] { return askLabel(); }, next);
    }
  }
  stop();
}

TEST_F(EndpointFaultTest, NotificationsAndCommands) {
  const int keys[] = {1, 2};
  const auto notify = [] { return Zunt_RYN_Browser_OpApp_Update(1, 2, "u"); };
  const auto command = [&] { return Zunt_RYN_Plugin_SetValue(1, 2, 3, keys, 2); };
  const auto next = [&] {
    EXPECT_EQ(0, notify());
    EXPECT_EQ(0, command());
    stop();
    start();
  };
  start();
  for (const Expectation& expected :
       {Expectation{Fault::kMemory, {-4, -1}}, {Fault::kQueueOpen, {-3}}, {Fault::kSend, {0}}}) {
    withEachCallFailing(expected, notify, next);
    // The line that the command writes may lose its end, which hinders nobody.
    Expectation of_command = expected;
    if (expected.fault == Fault::kMemory) of_command.results.insert(0);
    withEachCallFailing(of_command, command, next);
  }
  stop();
}

// Beside the four calls of the bare queue.
TEST_F(EndpointFaultTest, AnExchangeAsksForThePeersLifeOnce) {
  start();
  expectAnswers();
  constexpr int kExchanges = 50;
  for (const Where where : {Where::kThisThread, Where::kOtherThreads}) {
    // The watch looks now and then.
    const int calls = where == Where::kThisThread ? kExchanges : 10;
    const Injection injection(Fault::kSemaphore, calls + 1, where);
    for (int i = 0; i < kExchanges; ++i) EXPECT_EQ(0, askLabel());
    EXPECT_FALSE(injection.struck());
  }
  stop();
}

// Faults on the library's own threads strike when they like: so many calls are tried.
TEST_F(EndpointFaultTest, ThePeersOwnTroubleCostsOneAnswerAtMost) {
  start();
  expectAnswers();
  // The server makes no use of its semaphores but at its beginning and end.
  for (const Fault fault : {Fault::kMemory, Fault::kSend, Fault::kReceive}) {
    int strikes = 0;
    for (int nth = 1; nth <= (fault == Fault::kMemory ? 60 : 4); ++nth) {
      SCOPED_TRACE("fault " + std::to_string(static_cast<int>(fault)) + ", call " + std::to_string(nth));
      {
        const Injection injection(fault, nth, Where::kOtherThreads);
        // Behind the first answer the server waits anew.
        for (const int result : {askLabel(), askLabel()})
          EXPECT_TRUE(result == 0 || result == -1) << result;
        strikes += injection.struck() ? 1 : 0;
      }
      expectAnswers();
    }
    EXPECT_GT(strikes, 0);
  }
  stop();
}

// --- What needs no peer

TEST_F(FaultTest, RegisteringAnEvent) {
  ZuntRynEventCallback callback;
  callback.onNotify = [] {};
  const auto add = [&] {
    return Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_GET_CONFIGURATION, callback);
  };
  withEachCallFailing({Fault::kMemory, {-4}}, add, [&] {
    EXPECT_EQ(0, add());
    EXPECT_EQ(0, Zunt_RYN_Plugin_UnRegisterRynEventCallback(ZUNT_RYN_EVENT_GET_CONFIGURATION));
  });
}

TEST_F(FaultTest, AddingARequest) {
  int value = 0;
  const std::string name(100, 'n');
  const auto add = [&] { return addRequest(true, name, nullptr, &value); };
  withEachCallFailing({Fault::kMemory, {-1}}, add, [&] {
    EXPECT_EQ(findRequest(true, name, nullptr) == nullptr ? 0 : 1, getRequestSize());
    EXPECT_EQ(0, add());
    EXPECT_EQ(&value, findRequest(true, name, nullptr));
    deleteAllRequest();
  });
}

TEST_F(FaultTest, EditingTheModuleListTakesNoMemory) {
  const Injection injection(Fault::kMemory, 1, Where::kThisThread);
  EXPECT_EQ(0, insert_modules_list("player|tuner", 1));
  EXPECT_EQ(0, clear_modules_list());
  EXPECT_FALSE(injection.struck());
}

}  // namespace
}  // namespace hbbtv_ryn::test
