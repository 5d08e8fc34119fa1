// Servers, with the peer as their client.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/msg.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ipc/channel_handles.h"
#include "support/deadline.h"
#include "support/isolation.h"
#include "support/output_capture.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

// Keeps every message it is given; answers with the text, unless the text says otherwise.
struct Recorder {
  std::mutex mutex;
  std::vector<std::string> texts;  // guarded by mutex

  static IpcMessage* callback(const IpcMessage* request, void* user_data) {
    auto* self = static_cast<Recorder*>(user_data);
    const std::string text = textOf(request);
    EXPECT_EQ('\0', request->text[request->length]);
    {
      const std::lock_guard<std::mutex> lock(self->mutex);
      self->texts.push_back(text);
    }
    if (text.rfind("one way", 0) == 0 || text == "exit, please" || text == "no answer") return nullptr;
    if (text == "throw") throw std::runtime_error("from a callback");
    if (text == "throw a number") throw 42;
    if (text.rfind("long ", 0) == 0) return newReply(std::string(std::stoul(text.substr(5)), 'l'));
    return newReply(text);
  }
  std::vector<std::string> seen() {
    const std::lock_guard<std::mutex> lock(mutex);
    return texts;
  }
};

class ServerTest : public testing::Test {
 protected:
  void expectServes(const std::string& text) {
    const RawMessage reply = m_client.ask(text);
    EXPECT_EQ(kRawReply, reply.kind);
    EXPECT_EQ(text, reply.text);
  }
  void waitForEnd() {
    waitUntil("the receive thread ended", [] { return rawLife(kKey) == 0; });
  }

  Recorder m_recorder;
  Server m_server{&Recorder::callback, &m_recorder};
  RawPeer m_client{kKey};
};

TEST_F(ServerTest, AnswersRepliesOfEveryDeliverableLength) {
  expectServes("question");
  for (const std::size_t length : {0, 1025, 3000, 16384}) {
    const RawMessage reply = m_client.ask("long " + std::to_string(length));
    EXPECT_EQ(kRawReply, reply.kind);
    EXPECT_EQ(std::string(length, 'l'), reply.text);
  }
}

TEST_F(ServerTest, SendsTheFailureRecordWhereThereIsNoAnswer) {
  const RawRecord failure = rawRecord(kRawFailure, std::string("a\0", 2));
  OutputCapture errors(stderr);
  for (const char* text : {"no answer", "long 16385", "throw", "throw a number"}) {
    // What a callback returns for a one-way message is its own, and this one would lose it.
    if (std::string(text).rfind("long ", 0) != 0) m_client.notify(text);
    m_client.requests.sendMessage(kRawRequest, text);
    const RawRecord reply = m_client.replies.take();
    EXPECT_EQ(0, std::memcmp(&failure, &reply, sizeof reply)) << text;
    expectServes("next");
  }
}

TEST_F(ServerTest, KindsThatAreNotForAServerAreIgnored) {
  for (const int kind : {kRawReply, kRawFailure, 5, -1, INT_MAX})
    m_client.requests.sendMessage(kind, "kind");
  RawRecord stop = rawRecord(kRawStop, "");
  stop.total_length = 5;
  m_client.requests.send(stop);
  expectServes("next");
  EXPECT_EQ(std::vector<std::string>{"next"}, m_recorder.seen());
}

TEST_F(ServerTest, AStopRecordEndsTheThreadAndWhatFollowsStays) {
  m_client.requests.send(rawRecord(kRawStop, ""));
  m_client.notify("one way too late");
  waitForEnd();
  EXPECT_EQ(1U, m_client.requests.depth());
  EXPECT_EQ(0, m_server.destroy());
}

TEST_F(ServerTest, AOneWayTextThatBeginsWithExitIsServedAndEndsTheThread) {
  expectServes("exit is only an order when it is one-way");
  m_client.notify("exit, please");
  waitForEnd();
  EXPECT_EQ("exit, please", m_recorder.seen().back());

  // The thread is gone, so nobody takes the stop record.
  EXPECT_EQ(0, m_server.destroy());
  const RawRecord stop = rawRecord(kRawStop, "");
  const RawRecord left = m_client.requests.take();
  EXPECT_EQ(0, std::memcmp(&stop, &left, sizeof left));
}

TEST_F(ServerTest, DestroyServesWhatIsWaitingFirst) {
  for (int i = 0; i < 8; ++i) m_client.notify("one way");
  EXPECT_EQ(0, m_server.destroy());
  EXPECT_EQ(8U, m_recorder.seen().size());
  EXPECT_EQ(0U, m_client.requests.depth());
}

TEST_F(ServerTest, TheCallbackPairIsReplacedAndCleared) {
  Recorder second;
  EXPECT_EQ(0, zunt_ipc_server_register_callback(m_server.handle(), &Recorder::callback, &second));
  expectServes("for the second");
  EXPECT_EQ(0U, m_recorder.seen().size());
  EXPECT_EQ(1U, second.seen().size());
  EXPECT_EQ(0, zunt_ipc_server_unregister_callback(m_server.handle()));
  m_client.notify("one way to nobody");
  EXPECT_EQ(kRawFailure, m_client.ask("to nobody").kind);
  EXPECT_EQ(1U, second.seen().size());
}

TEST_F(ServerTest, ForeignRecordsDoNotKeepTheNextRequestFromItsAnswer) {
  OutputCapture errors(stderr);
  m_client.requests.sendBytes(std::string(8000, 'x'));
  expectServes("after one that is too large");
  m_client.requests.sendBytes("");
  m_client.requests.send(rawRecord(kRawRequest, std::string(500, 's')), 100);
  expectServes("after two that are too short");
  for (const int claim : {-1, 1026, INT_MAX, INT_MIN}) {
    RawRecord liar = rawRecord(kRawRequest, "short");
    liar.chunk_length = claim;
    m_client.requests.send(liar);
    expectServes("after a lie about the record");
    liar = rawRecord(kRawRequest, "short");
    liar.total_length = claim;
    m_client.requests.send(liar);
    EXPECT_GE(1026, m_client.replies.takeMessage().total_length);
    expectServes("after a lie about the message");
  }
  EXPECT_EQ(1, occurrences(errors.text(), "SERVER msgrcv res:-1, errno:7"));
}

long residentKilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") {
      long kilobytes = 0;
      status >> kilobytes;
      return kilobytes;
    }
  }
  return 0;
}

TEST_F(ServerTest, AnEndlessMessageDoesNotGrowTheProcess) {
  RawRecord endless = rawRecord(kRawRequest, std::string(kRawPayload, 'e'));
  endless.last = 0;
  const auto flood = [&](int megabytes) {
    for (int i = 0; i < megabytes * 1024; ++i) m_client.requests.send(endless);
    m_client.requests.waitUntilEmpty();
  };
  flood(1);
  const long before = residentKilobytes();
  flood(16);
#ifndef __SANITIZE_ADDRESS__  // which keeps freed memory for a while
  EXPECT_GT(before + 4 * 1024, residentKilobytes());
#else
  static_cast<void>(before);
#endif
  m_client.notify("one way, to end it");
  expectServes("next");
}

TEST_F(ServerTest, TheReceiveThreadBlocksEverySignal) {
  static sigset_t mask;
  zunt_ipc_server_register_callback(
      m_server.handle(),
      [](const IpcMessage*, void*) -> IpcMessage* {
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return newReply("looked");
      },
      nullptr);
  m_client.ask("look");
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGALRM, SIGUSR1, SIGPIPE, SIGRTMIN}) {
    EXPECT_EQ(1, sigismember(&mask, signal)) << strsignal(signal);
  }
}

struct Unwound {
  std::atomic<bool> entered{false};
  std::atomic<bool> left{false};
  static IpcMessage* blockForEver(const IpcMessage*, void* user_data) {
    struct Frame {
      Unwound* owner;
      explicit Frame(Unwound* unwound) : owner(unwound) { owner->entered = true; }
      ~Frame() { owner->left = true; }
    } const frame(static_cast<Unwound*>(user_data));
    for (;;) {
      pthread_testcancel();
      // Sanitizers lose track of a thread that is cancelled inside a function they intercept.
      pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    }
  }
};

TEST_F(ServerTest, DestroyCancelsACallbackThatBlocksAndUnwindsIt) {
  Unwound unwound;
  zunt_ipc_server_register_callback(m_server.handle(), &Unwound::blockForEver, &unwound);
  m_client.requests.sendMessage(kRawRequest, "block");
  waitUntil("the callback ran", [&] { return unwound.entered.load(); });
  Concurrently destroy([&] { return m_server.destroy(); });
  EXPECT_EQ(0, destroy.result());
  EXPECT_TRUE(unwound.left);
  EXPECT_EQ(0, rawLife(kKey));
}

TEST(OneWayServerTest, IgnoresRequestsAndMakesNoReplyQueue) {
  Recorder recorder;
  const Server server(&Recorder::callback, &recorder, 0);
  EXPECT_EQ(-1, msgget(kKey + 1, 0));
  RawPeer client(kKey);
  client.requests.sendMessage(kRawRequest, "synchronous");
  client.notify("one way");
  waitUntil("the message was served", [&] { return !recorder.seen().empty(); });
  EXPECT_EQ(std::vector<std::string>{"one way"}, recorder.seen());
  EXPECT_EQ(0U, client.replies.depth());
}

TEST(ServerOnAnotherChannelTest, AnswersWithTheTypeOfTheRequest) {
  const Server server([](const IpcMessage* request, void*) { return newReply(textOf(request)); }, nullptr,
                      1, kKey, 5);
  RawPeer client(kKey);
  client.requests.send(rawRecord(kRawRequest, "for channel 1"));
  RawRecord request = rawRecord(kRawRequest, "for channel 5");
  request.type = 5;
  client.requests.send(request);
  const RawRecord reply = client.replies.take();
  EXPECT_EQ(5, reply.type);
  EXPECT_STREQ("for channel 5", reply.data);
  EXPECT_EQ(1U, client.requests.depth());
}

TEST(ServerCreationTest, QueuesThatCannotBeMadeAreReportedAndLeaveNothing) {
  if (!isIsolated()) GTEST_SKIP() << "would change the machine";
  EXPECT_EQ(-3, zunt_ipc_server_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_destroy(nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_register_callback(nullptr, &Recorder::callback, nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_unregister_callback(nullptr));
  for (const int room : {0, 1}) {
    setQueueLimit(room);
    IpcServer* server = nullptr;
    EXPECT_EQ(-3, zunt_ipc_server_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, &server));
    EXPECT_EQ(nullptr, server);
    EXPECT_GE(0, rawLife(kKey));
  }
  setQueueLimit(100);
  const Server server(nullptr);
  EXPECT_EQ(1, rawLife(kKey));
}

}  // namespace
}  // namespace hbbtv_ryn::test
