// Peers that know the record format and nothing else: before, after and beside a server of ours.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/sem.h>

#include <atomic>
#include <csignal>
#include <optional>

#include "ipc/channel_handles.h"
#include "support/output_capture.h"
#include "tools/support/deadline.h"
#include "tools/support/isolation.h"
#include "tools/support/plain_server.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

const std::set<int> kRequestsOnly{IPC_KIND_REQUEST};

class PlainPeerTest : public testing::Test {
 protected:
  // An orderly conversation, of which nothing stays behind.
  void expectServed(Client& client, int questions = 40) {
    EXPECT_EQ(0, client.notEchoed(questions));
    EXPECT_EQ(0U, RawQueue(kKey).depth());
    EXPECT_EQ(0U, RawQueue(kKey + 1).depth());
  }

  Client client_;
  OutputCapture errors_{stderr};
};

TEST_F(PlainPeerTest, APlainServerTakesOverAKeyWhereOursRan) {
  const auto ran_and_was_killed = [] { ServerProcess().kill(); };
  const auto ran_and_was_stopped = [] { const Server stopped(&echo); };
  const auto could_not_be_created = [] {
    setQueueLimit(1);
    EXPECT_THROW(Server(&echo, nullptr, 1, kKey + 100), std::runtime_error);
    setQueueLimit(100);
  };
  for (const auto& before :
       {std::function<void()>(ran_and_was_killed), {ran_and_was_stopped}, {could_not_be_created}}) {
    isolateTest();
    before();
    Client client;
    PlainServer plain(kKey);
    expectServed(client);
    EXPECT_EQ(kRequestsOnly, plain.finish());
  }
}

TEST_F(PlainPeerTest, APlainServerOnAnotherChannelStandsBesideOurs) {
  const Server ours(&echo);
  PlainServer plain(kKey, 2);
  Client second_channel(1, kKey, 2);
  for (int round = 0; round < 3; ++round) {
    expectServed(client_);
    expectServed(second_channel);
  }
  EXPECT_EQ(kRequestsOnly, plain.finish());
}

TEST_F(PlainPeerTest, OursOnAnotherChannelSaysNothingOfAPlainServer) {
  const Server ours(&echo, nullptr, 1, kKey, 2);
  EXPECT_LT(rawLife(kKey), 1);
  PlainServer plain(kKey);
  expectServed(client_);
  EXPECT_EQ(kRequestsOnly, plain.finish());
}

TEST_F(PlainPeerTest, APlainServerServesBesideOursAndOursAfterIt) {
  std::optional<PlainServer> plain(std::in_place, kKey);
  expectServed(client_);
  ServerProcess ours;
  // Either takes what it can get; the records of a long question would be shared out.
  EXPECT_EQ(0, client_.notEchoed(40, false));
  plain.reset();
  expectServed(client_);
  ours.kill();
  plain.emplace(kKey);
  expectServed(client_);
}

TEST_F(PlainPeerTest, APlainServerThatFollowsOursDeadAtWorkIsServedItsDue) {
  ServerProcess ours;
  EXPECT_EQ(0, client_.notEchoed(3));
  Concurrently call([&] { return client_.ask("slow"); });
  ours.waitUntilTaken();
  ours.kill();
  EXPECT_TRUE(call.result().isBrokenOff());
  const PlainServer plain(kKey);
  expectServed(client_);
}

TEST_F(PlainPeerTest, APlainClientMeetsNothingThatASlowExchangeLeftBehind) {
  ServerProcess server;
  {
    Client slow;
    Concurrently call([&] { return slow.ask("slow"); });
    server.waitUntilTaken();
    std::this_thread::sleep_for(kLongerThanTheWatchNeeds);
    server.release();
    EXPECT_TRUE(call.result().isProper("slow"));
  }
  EXPECT_EQ(0U, RawQueue(kKey).depth());
  EXPECT_EQ(0U, RawQueue(kKey + 1).depth());
  RawPeer plain(kKey);
  for (const char* text : {"one", "two", "three"}) EXPECT_EQ(text, plain.ask(text).text);
}

TEST_F(PlainPeerTest, AnswersToAStrangersRequestsShiftNoLaterAnswerForLong) {
  const Server ours(&echo);
  expectServed(client_, 1);
  RawPeer stranger(kKey);
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 3; ++i) stranger.requests.sendMessage(IPC_KIND_REQUEST, "a stranger's");
    waitUntil("the stranger was answered", [&] { return stranger.replies.depth() == 3; });
    waitUntil("our own answer came", [&] { return client_.notEchoed(1) == 0; });
    EXPECT_EQ(0, client_.notEchoed(50));
  }
}

TEST_F(PlainPeerTest, TheFailureReplyToAStrangersJunkShiftsNoLaterAnswer) {
  ServerProcess ours;
  expectServed(client_, 1);
  ours.halt();
  RawQueue requests(kKey);
  requests.sendMessage(IPC_KIND_REQUEST, "junk");
  Concurrently call([&] { return client_.ask("ours"); });
  waitUntil("both requests lay there", [&] { return requests.depth() == 2; });
  ours.goOn();
  EXPECT_TRUE(call.result().isFailureReply());
  expectServed(client_);
}

// --- Waits that a signal breaks

class BrokenWaitTest : public PlainPeerTest {
 protected:
  static void SetUpTestSuite() {
    struct sigaction broken {};
    broken.sa_handler = [](int) {};
    sigaction(SIGUSR1, &broken, nullptr);
  }

  // Asks on a thread whose wait is broken while the server has the question.
  template <typename Taken>
  void askAndBreakOff(const char* text, Taken waitUntilTaken) {
    std::atomic<pthread_t> asker{};
    Concurrently call([&] {
      asker = pthread_self();
      return client_.ask(text);
    });
    waitUntilTaken();
    // Once might come before the wait.
    while (!call.returned()) {
      pthread_kill(asker, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(call.result().isBrokenOff());
  }
};

TEST_F(BrokenWaitTest, ThatOursAnswersLaterCostsNoOtherAnswer) {
  ServerProcess server;
  for (int round = 0; round < 20; ++round) {
    askAndBreakOff("slow", [&] { server.waitUntilTaken(); });
    Concurrently next([&] { return client_.notEchoed(8); });
    server.release();
    EXPECT_EQ(0, next.result()) << round;
  }
  expectServed(client_);
}

TEST_F(BrokenWaitTest, WhileTwoServersOverlapNobodyTakesItsLateAnswerForAnother) {
  ServerProcess busy;
  askAndBreakOff("slow", [&] { busy.waitUntilTaken(); });
  const ServerProcess idle;
  EXPECT_TRUE(client_.ask("slow, too, if the idle one got it").isBrokenOff());
  busy.release();
  busy.kill();
  expectServed(client_);
}

TEST_F(BrokenWaitTest, ThatAPlainServerAnswersLaterOrNeverCostsNoOtherAnswer) {
  std::atomic<bool> taken{false};
  std::atomic<bool> released{false};
  const auto slowly = [&](const std::string& text) {
    if (text == "slow") {
      taken = true;
      waitUntil("it may go on", [&] { return released.load(); });
    }
    return text;
  };
  for (const bool crashes : {false, true}) {
    taken = released = false;
    std::optional<PlainServer> server(std::in_place, kKey, kChannel, slowly);
    askAndBreakOff("slow", [&] { waitUntil("it was taken", [&] { return taken.load(); }); });
    Concurrently next([&] { return client_.notEchoed(8); });
    if (crashes) {
      std::thread end([&] { server.reset(); });
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      released = true;
      end.join();
      server.emplace(kKey);
    }
    released = true;
    EXPECT_EQ(0, next.result()) << crashes;
    expectServed(client_);
  }
}

// --- The set of semaphores is anybody's

TEST_F(PlainPeerTest, NoSetOfSemaphoresKeepsAServerFromServing) {
  const std::pair<int, int> sets[] = {{1, 0},     {2, 0}, {2, 1},        {2, 30001},
                                      {2, 32767}, {3, 0}, {30000, 32767}};
  for (const auto& [size, deaths] : sets) {
    SCOPED_TRACE(std::to_string(size) + " semaphores, " + std::to_string(deaths));
    isolateTest();
    const int set = semget(kKey, size, IPC_CREAT | 0666);
    ASSERT_GE(set, 0);
    if (size > 1) semctl(set, 1, SETVAL, deaths);
    Client client;
    {
      const PlainServer plain(kKey);
      expectServed(client);
    }
    ServerProcess ours;
    expectServed(client);
    if (size == 1) continue;
    Concurrently call([&] { return client.ask("slow"); });
    ours.waitUntilTaken();
    ours.kill();
    EXPECT_TRUE(call.result().isBrokenOff());
  }
}

TEST_F(PlainPeerTest, ACountOfLivesThatLiesKeepsNobodyFromAnswers) {
  semctl(semget(kKey, 2, IPC_CREAT | 0666), 0, SETVAL, 32767);
  const Server ours(&echo);
  waitUntil("it is believed no longer", [&] { return client_.notEchoed(8) == 0; });
  EXPECT_EQ(0, client_.notEchoed(40));
}

TEST_F(PlainPeerTest, ASetThatIsRemovedInAWaitLeavesAPlainExchange) {
  ServerProcess server;
  Concurrently call([&] { return client_.ask("slow"); });
  server.waitUntilTaken();
  semctl(semget(kKey, 0, 0), 0, IPC_RMID);
  std::this_thread::sleep_for(kLongerThanTheWatchNeeds);
  server.release();
  EXPECT_TRUE(call.result().isProper("slow"));
  expectServed(client_);
}

}  // namespace
}  // namespace hbbtv_ryn::test
