// Servers, with the peer as their client.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/msg.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ipc/channel_handles.h"
#include "support/deadline.h"
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
    const std::string text = request->text;
    EXPECT_EQ(static_cast<int>(text.size()), request->length);
    {
      const std::lock_guard<std::mutex> lock(self->mutex);
      self->texts.push_back(text);
    }
    if (text == "throw") throw std::runtime_error("from a callback");
    if (text == "throw a number") throw 42;
    if (text.rfind("long ", 0) == 0) return newReply(std::string(std::stoul(text.substr(5)), 'l'));
    const bool is_one_way = text.rfind("one way", 0) == 0 || text == "exit, please";
    return is_one_way || text == "no answer" ? nullptr : newReply(text);
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

  Recorder m_recorder;
  Server m_server{&Recorder::callback, &m_recorder};
  RawPeer m_client{kKey};
};

TEST_F(ServerTest, SendsTheFailureRecordWhereThereIsNoAnswer) {
  EXPECT_EQ(std::string(IPC_MAX_MESSAGE, 'l'), m_client.ask("long 16384").text);
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

TEST_F(ServerTest, DestroyServesWhatIsWaitingFirst) {
  for (int i = 0; i < 8; ++i) m_client.notify("one way");
  EXPECT_EQ(0, m_server.destroy());
  EXPECT_EQ(8U, m_recorder.seen().size());
  EXPECT_EQ(0U, m_client.requests.depth());
}

TEST_F(ServerTest, AStopRecordAndAOneWayTextThatBeginsWithExitEndTheThread) {
  const RawRecord stop = rawRecord(kRawStop, "");
  const auto waitForEnd = [] { waitUntil("the receive thread ended", [] { return rawLife(kKey) == 0; }); };
  expectServes("exit is only an order when it is one-way");
  m_client.notify("exit, please");
  waitForEnd();
  EXPECT_EQ("exit, please", m_recorder.seen().back());
  // The thread is gone, so nobody takes the stop record.
  EXPECT_EQ(0, m_server.destroy());
  const RawRecord left = m_client.requests.take();
  EXPECT_EQ(0, std::memcmp(&stop, &left, sizeof left));

  const Server another(&Recorder::callback, &m_recorder);
  m_client.requests.send(stop);
  m_client.notify("one way too late");
  waitForEnd();
  EXPECT_EQ(1U, m_client.requests.depth());
}

TEST_F(ServerTest, TheCallbackPairIsReplacedAndCleared) {
  Recorder second;
  EXPECT_EQ(0, zunt_ipc_server_register_callback(m_server.handle(), &Recorder::callback, &second));
  expectServes("for the second");
  EXPECT_EQ(0, zunt_ipc_server_unregister_callback(m_server.handle()));
  EXPECT_EQ(kRawFailure, m_client.ask("to nobody").kind);
  EXPECT_EQ(0U, m_recorder.seen().size());
  EXPECT_EQ(1U, second.seen().size());
  EXPECT_EQ(-3, zunt_ipc_server_register_callback(nullptr, &Recorder::callback, nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_unregister_callback(nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_destroy(nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, nullptr));
}

TEST_F(ServerTest, ForeignRecordsDoNotKeepTheNextRequestFromItsAnswer) {
  OutputCapture errors(stderr);
  m_client.requests.sendBytes(std::string(8000, 'x'));
  m_client.requests.sendBytes("");
  for (const int claim : {-1, 1026, INT_MAX, INT_MIN}) {
    RawRecord liar = rawRecord(kRawRequest, "short");
    liar.chunk_length = claim;
    m_client.requests.send(liar);
    expectServes("after a lie about the record");
    // The length is the sender's claim, and the callback reads as much.
    liar = rawRecord(kRawRequest, "short");
    liar.total_length = claim;
    m_client.requests.send(liar);
    EXPECT_EQ("short", m_client.replies.takeMessage().text);
  }
}

TEST_F(ServerTest, AMessageLongerThanAnyPeerSendsIsDroppedWhole) {
  m_client.requests.sendMessage(kRawOneWay, std::string(100000, 'l'));
  expectServes("next");
  EXPECT_EQ(std::vector<std::string>{"next"}, m_recorder.seen());
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

// Set by the frame of a callback that never returns, and by its unwinding.
std::atomic<bool> g_entered{false};
std::atomic<bool> g_left{false};
IpcMessage* blockForEver(const IpcMessage*, void*) {
  struct Frame {
    Frame() { g_entered = true; }
    ~Frame() { g_left = true; }
  } const frame;
  for (;;) {
    pthread_testcancel();
    // Sanitizers lose track of a thread that is cancelled inside a function they intercept.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  }
}

TEST_F(ServerTest, DestroyCancelsACallbackThatBlocksAndUnwindsIt) {
  zunt_ipc_server_register_callback(m_server.handle(), &blockForEver, nullptr);
  m_client.requests.sendMessage(kRawRequest, "block");
  waitUntil("the callback ran", [] { return g_entered.load(); });
  Concurrently destroy([&] { return m_server.destroy(); });
  EXPECT_EQ(0, destroy.result());
  EXPECT_TRUE(g_left);
  EXPECT_EQ(0, rawLife(kKey));
}

TEST_F(ServerTest, ACallbackIsReplacedBetweenTwoCallsOnly) {
  static std::atomic<bool> released{false};
  g_entered = false;
  const auto wait_for_release = [](const IpcMessage* message, void*) -> IpcMessage* {
    g_entered = true;
    waitUntil("it may go on", [] { return released.load(); });
    return textOf(message) == "ask" ? newReply("the old one's") : nullptr;
  };
  for (const int kind : {kRawRequest, kRawOneWay}) {
    released = g_entered = false;
    zunt_ipc_server_register_callback(m_server.handle(), wait_for_release, nullptr);
    m_client.requests.sendMessage(kind, kind == kRawRequest ? "ask" : "tell");
    waitUntil("the callback ran", [] { return g_entered.load(); });
    Concurrently replace([&] {
      return zunt_ipc_server_register_callback(m_server.handle(), &Recorder::callback, &m_recorder);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(replace.returned());
    released = true;
    EXPECT_EQ(0, replace.result());
    if (kind == kRawRequest) {
      EXPECT_EQ("the old one's", m_client.replies.takeMessage().text);
    }
    expectServes("by the new one");
  }
}

TEST_F(ServerTest, WhatACallbackReturnsForAOneWayMessageStaysItsOwn) {
  static char text[] = "mine";
  static IpcMessage mine{4, text};
  zunt_ipc_server_register_callback(
      m_server.handle(), [](const IpcMessage*, void*) { return &mine; }, nullptr);
  for (int i = 0; i < 2; ++i) m_client.notify("one way");
  m_client.requests.waitUntilEmpty();
  EXPECT_EQ(0, zunt_ipc_server_register_callback(m_server.handle(), &Recorder::callback, &m_recorder));
  expectServes("next");
}

TEST_F(ServerTest, ItsQueuesAreOpenToEveryUser) {
  for (const RawQueue* const queue : {&m_client.requests, &m_client.replies}) {
    msqid_ds status{};
    ASSERT_EQ(0, msgctl(queue->id(), IPC_STAT, &status));
    EXPECT_EQ(0666, status.msg_perm.mode & 0777);
  }
}

TEST(OtherServersTest, AnswerOnTheChannelOfTheRequestAndWithoutAReplyQueueNotAtAll) {
  Recorder recorder;
  RawQueue requests(kKey);
  RawRecord request = rawRecord(kRawRequest, "for channel 5");
  request.type = 5;
  {
    const Server one_way_only(&Recorder::callback, &recorder, 0, kKey, 5);
    EXPECT_EQ(-1, msgget(kKey + 1, 0));
    requests.send(request);
    requests.send(rawRecord(kRawRequest, "for channel 1"));
  }
  EXPECT_EQ(1U, requests.depth());
  EXPECT_EQ(0U, recorder.seen().size());
  const Server server(&Recorder::callback, &recorder, 1, kKey, 5);
  requests.send(request);
  const RawRecord reply = RawQueue(kKey + 1).take();
  EXPECT_EQ(5, reply.type);
  EXPECT_STREQ("for channel 5", reply.data);
}

}  // namespace
}  // namespace hbbtv_ryn::test
