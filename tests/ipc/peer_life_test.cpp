// What a caller sees when its peer, a real second process, dies, stops or is merely slow.
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <thread>

#include "ipc/channel_handles.h"
#include "support/output_capture.h"
#include "tools/support/child_process.h"
#include "tools/support/deadline.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

// Answers with the text, for "slow..." only when the test says so, and to "junk" not at all.
IpcMessage* answer(const IpcMessage* request, void* user_data) {
  auto& parent = *static_cast<Parent*>(user_data);
  const std::string text = textOf(request);
  if (text.rfind("slow", 0) == 0) {
    parent.say("taken");
    parent.hear();
  }
  return text == "junk" ? nullptr : newReply(text);
}

}  // namespace

const ChildRole kServerRole("server", [](Parent& parent) {
  const Server server(&answer, &parent);
  parent.say("up");
  for (;;) pause();
  return 0;
});

const ChildRole kAsker("asker", [](Parent& parent) {
  Client client;
  for (;;) parent.say(client.ask(parent.hear()).text.value_or("none"));
  return 0;
});

namespace {

class PeerLifeTest : public testing::Test {
 protected:
  void expectServed(const std::string& text) { EXPECT_TRUE(client_.ask(text).isProper(text)) << text; }
  auto asking(const std::string& text) {
    return Concurrently([this, text] { return client_.ask(text); });
  }

  Client client_;
  OutputCapture errors_{stderr};
};

TEST_F(PeerLifeTest, AServerThatIsGoneIsNotAsked) {
  for (const bool first_request : {true, false}) {
    ServerProcess server;
    EXPECT_EQ(1, rawLife(kKey));
    if (!first_request) expectServed("while it lives");
    server.kill();
    EXPECT_EQ(0, rawLife(kKey));
    EXPECT_TRUE(client_.ask("anybody?").isBrokenOff());
    EXPECT_EQ(0U, RawQueue(kKey).depth());
  }
  {
    const Server stopped_in_order(&echo);
    expectServed("while it is not stopped");
  }
  EXPECT_TRUE(client_.ask("anybody?").isBrokenOff());
  EXPECT_EQ(0, client_.send("one way"));
  EXPECT_EQ(1U, RawQueue(kKey).depth());
}

TEST_F(PeerLifeTest, AServerThatDiesBeforeItTakesTheRequestEndsTheWait) {
  ServerProcess server;
  expectServed("first");
  server.halt();
  auto call = asking("never taken");
  waitUntil("the request was sent", [] { return RawQueue(kKey).depth() == 1; });
  server.kill();
  EXPECT_TRUE(call.result().isBrokenOff());

  // The successor finds the old request on the queue and answers it; nobody may take that for an answer.
  const ServerProcess successor;
  expectServed("second");
  expectServed("third");
}

TEST_F(PeerLifeTest, AServerThatDiesAtWorkEndsTheWaitAlsoWhenItIsReplacedAtOnce) {
  std::optional<ServerProcess> server(std::in_place);
  for (const bool replaced : {true, false}) {
    auto call = asking("slow");
    server->waitUntilTaken();
    server->kill();
    if (replaced) server.emplace();
    EXPECT_TRUE(call.result().isBrokenOff());
    if (replaced) expectServed("by the successor");
  }
}

TEST_F(PeerLifeTest, ASlowServerIsWaitedForAndAnOlderOneThatShowsNoLifeToo) {
  {
    RawPeer older(kKey);
    auto call = asking("question");
    older.nextRequest();
    std::this_thread::sleep_for(kLongerThanTheWatchNeeds);
    EXPECT_FALSE(call.returned());
    older.reply("answer");
    EXPECT_TRUE(call.result().isProper("answer"));
    EXPECT_EQ(0U, older.requests.depth());
  }
  ServerProcess server;
  // The clients of other users look at it, too.
  semid_ds status{};
  ASSERT_EQ(0, semctl(semget(kKey, 0, 0), 0, IPC_STAT, &status));
  EXPECT_EQ(0666, status.sem_perm.mode & 0777);
  auto call = asking("slow but alive");
  server.waitUntilTaken();
  std::this_thread::sleep_for(kLongerThanTheWatchNeeds);
  EXPECT_FALSE(call.returned());
  server.release();
  EXPECT_TRUE(call.result().isProper("slow but alive"));
}

TEST_F(PeerLifeTest, AnAnswerToAKilledClientNeverReachesItsSuccessor) {
  ServerProcess server;
  for (const bool before : {true, false}) {
    ChildProcess first(kAsker);
    first.say("slow, asked by the first");
    server.waitUntilTaken();
    first.kill();
    if (before) {
      server.release();
      waitUntil("the stale answer lay there", [] { return RawQueue(kKey + 1).depth() > 0; });
    }
    // And the beginning of a second message.
    RawQueue(kKey).send(rawRecords(IPC_KIND_REQUEST, std::string(3000, 'h'))[0]);
    ChildProcess second(kAsker);
    second.say("asked by the second");
    if (!before) {
      waitUntil("the second had sent something", [] { return RawQueue(kKey).depth() > 1; });
      server.release();
    }
    EXPECT_EQ("asked by the second", second.hear());
    second.say("and again");
    EXPECT_EQ("and again", second.hear());
  }
}

TEST_F(PeerLifeTest, ARequestWhoseAnswerAFullQueueDroppedEndsWhileTheServerLives) {
  OutputCapture output(stdout);
  const Server server(&echo);
  expectServed("first");
  // Full of records that no reader of the channel takes away.
  RawQueue replies(kKey + 1);
  IpcRecord filler = rawRecord(IPC_KIND_ONEWAY, "");
  filler.mtype = kChannel + 1;
  while (replies.trySend(filler)) continue;
  auto call = asking("answer dropped");
  waitUntil("the answer was dropped",
            [&] { return occurrences(output.text(), "resend msgsnd EAGAIN") == IPC_RETRY_COUNT; });
  // The queue stays full beyond the first look after the request, too.
  std::this_thread::sleep_for(kLongerThanTheWatchNeeds);
  replies.discardAll();
  EXPECT_TRUE(call.result().isBrokenOff());
  expectServed("second");
}

TEST_F(PeerLifeTest, ALongRequestIsNotPressedUponAFullQueueWhoseServerDies) {
  ServerProcess server;
  expectServed("first");
  server.halt();
  RawQueue requests(kKey);
  while (requests.trySend(rawRecord(IPC_KIND_ONEWAY, "filler"))) continue;
  OutputCapture output(stdout);
  auto call = asking(std::string(10 * kRawPayload, 's'));
  waitUntil("the queue was found full", [&] { return occurrences(output.text(), "msgsnd EAGAIN") > 0; });
  server.kill();
  EXPECT_TRUE(call.result().isBrokenOff());
  // A live server would have been given all attempts for each of ten records.
  EXPECT_LT(occurrences(output.text(), "msgsnd EAGAIN"), 10 * (1 + IPC_RETRY_COUNT));
}

TEST_F(PeerLifeTest, ASuccessorsAnswerToTheRestOfARequestIsNoAnswer) {
  // The test is two servers, one after the other.
  RawPeer server(kKey);
  const int set = semget(kKey, 2, IPC_CREAT | 0666);
  ASSERT_EQ(0, semctl(set, 0, SETVAL, 1));
  auto call = asking(std::string(1500, 'q'));
  server.requests.take();
  ASSERT_EQ(0, semctl(set, 1, SETVAL, 1));
  server.requests.take();
  server.reply("to the rest");
  EXPECT_TRUE(call.result().isBrokenOff());
}

TEST_F(PeerLifeTest, AnAnswerWithAGapIsNoAnswer) {
  RawPeer server(kKey);
  ASSERT_EQ(0, semctl(semget(kKey, 2, IPC_CREAT | 0666), 0, SETVAL, 1));
  auto call = asking("question");
  server.nextRequest();
  const auto answer = rawRecords(IPC_KIND_REPLY, std::string(3000, 'a'));
  server.replies.send(answer.front());
  server.replies.send(answer.back());
  EXPECT_TRUE(call.result().isBrokenOff());
}

TEST_F(PeerLifeTest, AServerThatHasPartOfARequestSaysSo) {
  const Server server(&echo);
  expectServed("first");
  const int set = semget(kKey, 0, 0);
  const int before = semctl(set, 1, GETVAL);
  RawPeer peer(kKey);
  peer.requests.send(rawRecords(IPC_KIND_REQUEST, std::string(1500, 'p')).back());
  peer.replies.take();
  EXPECT_EQ(before + 1, semctl(set, 1, GETVAL));
}

TEST_F(PeerLifeTest, HalfAMessageIsNotJoinedToTheNextRequest) {
  ServerProcess server;
  for (const bool one_way : {true, false}) {
    expectServed("first");
    server.halt();
    RawQueue(kKey).setCapacity(kRawRecordBytes);
    OutputCapture output(stdout);
    const std::string two_records(1500, 'w');
    EXPECT_TRUE(one_way ? client_.send(two_records) == 0 : client_.ask(two_records).isBrokenOff());
    RawQueue(kKey).setCapacity(8 * kRawRecordBytes);
    server.goOn();
    expectServed("second");
  }
}

TEST_F(PeerLifeTest, ARequestThatALiveServerHasLostEndsTheWait) {
  {
    // Larger than its record.
    const Server server(&echo);
    Client larger(1, kKey, kChannel, 2 * IPC_CHUNK_SIZE);
    EXPECT_TRUE(larger.ask("large").isBrokenOff());
    expectServed("by the same server");
  }
  // One that serves one-way messages alone.
  const Server server(&echo, nullptr, 0);
  EXPECT_TRUE(client_.ask("anybody?").isBrokenOff());
}

}  // namespace
}  // namespace hbbtv_ryn::test
