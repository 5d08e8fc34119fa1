// Each operation with each of its calls failing in turn, until it makes no more of them: what it returns,
// what it leaves behind, and that the next call works. What stays allocated is seen under the address
// sanitizer.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>

#include "faults/injection.h"
#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "hbbtv_ryn/request_registry.h"
#include "support/deadline.h"
#include "support/output_capture.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

constexpr auto kKey = static_cast<key_t>(0x92101081);
constexpr int kUntouched = -77;

struct Expectation {
  Fault fault;
  std::set<int> results;  // of an operation that a fault has struck
};

class FaultTest : public testing::Test {
 protected:
  // Calls `operation` with the first, second, … call failing, and `next` after each time, until no call is
  // left to fail. `next` runs on another thread: a lock that stayed held ends the test at the deadline.
  void withEachCallFailing(const Expectation& expected, const std::function<int()>& operation,
                           const std::function<void()>& next) {
    for (int nth = 1; nth < 500; ++nth) {
      SCOPED_TRACE("fault " + std::to_string(static_cast<int>(expected.fault)) + ", call " +
                   std::to_string(nth));
      int result = kUntouched;
      bool struck = false;
      {
        const Injection injection(expected.fault, nth, Where::kThisThread);
        result = operation();
        struck = injection.struck();
      }
      if (struck) {
        EXPECT_EQ(1U, expected.results.count(result)) << "result " << result;
      } else {
        EXPECT_EQ(0, result);
      }
      Concurrently(next).result();
      if (!struck) return;
    }
    FAIL() << "the operation makes calls without end";
  }

  // Faults on the library's own threads strike when they like: so many calls are tried.
  template <typename Operation>
  void withCallsOfOtherThreadsFailing(Operation operation) {
    for (const Fault fault : {Fault::kMemory, Fault::kSend, Fault::kReceive, Fault::kSemaphore}) {
      for (int nth = 1; nth <= (fault == Fault::kMemory ? 60 : 4); ++nth) {
        SCOPED_TRACE("fault " + std::to_string(static_cast<int>(fault)) + ", call " + std::to_string(nth));
        {
          const Injection injection(fault, nth, Where::kOtherThreads);
          operation(true);
        }
        operation(false);
      }
    }
  }

  OutputCapture m_errors{stderr};
};

// --- The channel

IpcMessage* echo(const IpcMessage* request, void*) {
  return new IpcMessage{request->length, strdup(request->text)};
}

class ChannelFaultTest : public FaultTest {
 protected:
  ~ChannelFaultTest() override {
    if (m_client != nullptr) zunt_ipc_client_destroy(m_client);
    if (m_server != nullptr) zunt_ipc_server_destroy(m_server);
  }
  int createClient() { return zunt_ipc_client_create(kKey, 1, 1, IPC_CHUNK_SIZE, &m_client); }
  int createServer() { return zunt_ipc_server_create(kKey, 1, 1, IPC_CHUNK_SIZE, &m_server); }
  void destroyClient() {
    if (m_client == nullptr) return;
    EXPECT_EQ(0, zunt_ipc_client_destroy(m_client));
    m_client = nullptr;
  }
  void destroyServer() {
    if (m_server == nullptr) return;
    EXPECT_EQ(0, zunt_ipc_server_destroy(m_server));
    m_server = nullptr;
  }
  void startEcho() {
    ASSERT_EQ(0, createServer());
    zunt_ipc_server_register_callback(m_server, &echo, nullptr);
  }
  int ask(std::string text, std::string* answer) {
    const IpcMessage request{static_cast<int32_t>(text.size()), text.data()};
    IpcMessage reply{0, nullptr};
    const int result = zunt_ipc_client_send_sync_with_params(m_client, &request, &reply);
    if (reply.text != nullptr) answer->assign(reply.text);
    std::free(reply.text);
    return result;
  }
  void expectEchoed() {
    std::string answer;
    const std::string text = "next " + std::to_string(++m_asked);
    EXPECT_EQ(0, ask(text, &answer));
    EXPECT_EQ(text, answer);
  }

  IpcClient* m_client = nullptr;
  IpcServer* m_server = nullptr;
  int m_asked = 0;
};

TEST_F(ChannelFaultTest, CreatingAClientOrAServer) {
  withEachCallFailing(
      {Fault::kMemory, {-4}}, [&] { return createClient(); }, [&] { destroyClient(); });
  ASSERT_EQ(0, createClient());
  // Without the sign of life it may serve; with one that says it is dead it must not.
  for (const Expectation& expected : {Expectation{Fault::kMemory, {-4}},
                                      {Fault::kQueueOpen, {-3}},
                                      {Fault::kThread, {-5}},
                                      {Fault::kSemaphore, {0, -3}}}) {
    withEachCallFailing(
        expected, [&] { return createServer(); },
        [&] {
          if (m_server == nullptr) startEcho();
          zunt_ipc_server_register_callback(m_server, &echo, nullptr);
          expectEchoed();
          destroyServer();
        });
  }
}

TEST_F(ChannelFaultTest, SendingOneWay) {
  ASSERT_EQ(0, createServer());
  char text[] = "one way";
  const IpcMessage message{sizeof text - 1, text};
  for (const Expectation& expected :
       {Expectation{Fault::kMemory, {-1}}, {Fault::kQueueOpen, {-3}}, {Fault::kSend, {0}}}) {
    destroyClient();
    ASSERT_EQ(0, createClient());
    withEachCallFailing(
        expected, [&] { return zunt_ipc_client_send(m_client, &message); },
        [&] { EXPECT_EQ(0, zunt_ipc_client_send(m_client, &message)); });
  }
}

// With a handle that has done nothing yet, so that every fault can strike its first exchange, and with one
// in use. An answer that was given up must not answer the next request.
TEST_F(ChannelFaultTest, ASynchronousExchange) {
  startEcho();
  for (const bool first_exchange : {true, false}) {
    for (const Expectation& expected : {Expectation{Fault::kMemory, {-1, -4}},
                                        {Fault::kQueueOpen, {-3}},
                                        {Fault::kSend, {0}},
                                        {Fault::kReceive, {-1}},
                                        {Fault::kSemaphore, {0}},
                                        {Fault::kThread, {-4}}}) {
      destroyClient();
      ASSERT_EQ(0, createClient());
      std::string answer;
      withEachCallFailing(
          expected,
          [&] {
            answer.clear();
            return ask("asked", &answer);
          },
          [&] {
            EXPECT_TRUE(answer.empty() || answer == "asked") << answer;
            expectEchoed();
            if (!first_exchange) return;
            destroyClient();
            ASSERT_EQ(0, createClient());
          });
    }
  }
}

TEST_F(ChannelFaultTest, AServersOwnTroubleCostsOneAnswerAtMost) {
  startEcho();
  ASSERT_EQ(0, createClient());
  expectEchoed();
  withCallsOfOtherThreadsFailing([&](bool with_fault) {
    if (!with_fault) return expectEchoed();
    std::string answer;
    const int result = ask("asked", &answer);
    EXPECT_TRUE(result == 0 || result == -1) << result;
    EXPECT_TRUE(result != 0 || answer == "asked" || answer == "a") << answer;
  });
}

// --- The endpoints, both in this process

void startBoth() {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetKeyLabel = [](int appid, int, int, std::string& label) {
    label = std::to_string(appid) + std::string(3000, 'l');
  };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  ZuntRynEventCallback callback;
  callback.onParentalRating = [](int appid, int, bool* blocked) { *blocked = appid % 2 != 0; };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY, callback);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
}

void stopBoth() {
  EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize());
  EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
}

void expectLabel(int appid) {
  std::string label;
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetKeyLabel(appid, 1, 1, label));
  EXPECT_EQ(std::to_string(appid), label.substr(0, label.find('l')));
}

void expectBlocked(int appid) {
  bool blocked = appid % 2 == 0;
  EXPECT_EQ(0, Zunt_RYN_Browser_IsParentalRatingBlocked(appid, 1, &blocked));
  EXPECT_EQ(appid % 2 != 0, blocked);
}

class EndpointFaultTest : public FaultTest {
 protected:
  int m_appid = 1;
};

TEST_F(EndpointFaultTest, Starting) {
  for (const Expectation& expected : {Expectation{Fault::kMemory, {-4}},
                                      {Fault::kQueueOpen, {-3}},
                                      {Fault::kThread, {-5}},
                                      {Fault::kSemaphore, {0, -3}}}) {
    const auto next = [&] {
      startBoth();
      expectLabel(++m_appid);
      expectBlocked(++m_appid);
      stopBoth();
    };
    withEachCallFailing(
        expected, [] { return Zunt_RYN_Plugin_Initialize(); }, next);
    // The browser's host is not told why.
    const std::set<int> untold =
        expected.fault == Fault::kSemaphore ? std::set<int>{0, -1} : std::set<int>{-1};
    withEachCallFailing(
        {expected.fault, untold}, [] { return Zunt_RYN_Browser_Initialize(); }, next);
  }
}

TEST_F(EndpointFaultTest, RequestsAndQueries) {
  startBoth();
  for (const Expectation& expected : {Expectation{Fault::kMemory, {-4, -1}},
                                      {Fault::kSend, {0}},
                                      {Fault::kReceive, {-1}},
                                      {Fault::kSemaphore, {0}}}) {
    std::string label;
    int result = 0;
    withEachCallFailing(
        expected,
        [&] {
          label.clear();
          return result = Zunt_RYN_Plugin_GetKeyLabel(++m_appid, 1, 1, label);
        },
        [&] {
          EXPECT_EQ(result != 0, label.empty());
          expectLabel(++m_appid);
        });
    bool blocked = false;
    withEachCallFailing(
        expected, [&] { return Zunt_RYN_Browser_IsParentalRatingBlocked(++m_appid, 1, &blocked); },
        [&] { expectBlocked(++m_appid); });
  }
  stopBoth();
}

TEST_F(EndpointFaultTest, NotificationsAndCommands) {
  startBoth();
  withEachCallFailing(
      {Fault::kMemory, {-4, -1}}, [] { return Zunt_RYN_Browser_OpApp_Update(1, 2, "u"); },
      [] { EXPECT_EQ(0, Zunt_RYN_Browser_SendAppLoaded(1, 2)); });
  // The line that the command writes may lose its end, which hinders nobody.
  withEachCallFailing(
      {Fault::kMemory, {-4, -1, 0}},
      [] {
        const int keys[] = {1, 2};
        return Zunt_RYN_Plugin_SetValue(1, 2, 3, keys, 2);
      },
      [] { EXPECT_EQ(0, Zunt_RYN_Plugin_ShowApp(1, 2)); });
  stopBoth();
}

TEST_F(EndpointFaultTest, ThePeersOwnTroubleCostsOneAnswerAtMost) {
  startBoth();
  expectLabel(++m_appid);
  expectBlocked(++m_appid);
  withCallsOfOtherThreadsFailing([&](bool with_fault) {
    if (!with_fault) {
      expectLabel(++m_appid);
      expectBlocked(++m_appid);
      return;
    }
    std::string label;
    const int result = Zunt_RYN_Plugin_GetKeyLabel(++m_appid, 1, 1, label);
    const std::string answered = label.substr(0, label.find('l'));
    EXPECT_TRUE(result == 0 ? answered == std::to_string(m_appid) : result == -1 && label.empty())
        << result << ' ' << answered;
  });
  stopBoth();
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
  int size_before = 0;
  withEachCallFailing(
      {Fault::kMemory, {-1}},
      [&] {
        size_before = getRequestSize();
        return addRequest(true, name, nullptr, &value);
      },
      [&] {
        EXPECT_EQ(findRequest(true, name, nullptr) == nullptr ? size_before : size_before + 1,
                  getRequestSize());
        EXPECT_EQ(0, addRequest(true, name, nullptr, &value));
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
