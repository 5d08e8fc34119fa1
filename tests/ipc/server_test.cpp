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
#include "support/output_capture.h"
#include "tools/support/deadline.h"
#include "tools/support/raw_peer.h"

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
    const RawMessage reply = client_.ask(text);
    EXPECT_EQ(IPC_KIND_REPLY, reply.kind);
    EXPECT_EQ(text, reply.text);
  }

  Recorder recorder_;
  Server server_{&Recorder::callback, &recorder_};
  RawPeer client_{kKey};
};

TEST_F(ServerTest, SendsTheFailureRecordWhereThereIsNoAnswer) {
  EXPECT_EQ(std::string(IPC_MAX_MESSAGE, 'l'), client_.ask("long 16384").text);
  const IpcRecord failure = rawRecord(IPC_KIND_FAILURE, std::string("a\0", 2));
  OutputCapture errors(stderr);
  for (const char* text : {"no answer", "long 16385", "throw", "throw a number"}) {
    // What a callback returns for a one-way message is its own, and this one would lose it.
    if (std::string(text).rfind("long ", 0) != 0) client_.notify(text);
    client_.requests.sendMessage(IPC_KIND_REQUEST, text);
    const IpcRecord reply = client_.replies.take();
    EXPECT_EQ(0, std::memcmp(&failure, &reply, sizeof reply)) << text;
    expectServes("next");
  }
}

TEST_F(ServerTest, KindsThatAreNotForAServerAreIgnored) {
  for (const int kind : {int{IPC_KIND_REPLY}, int{IPC_KIND_FAILURE}, 5, -1, INT_MAX})
    client_.requests.sendMessage(kind, "kind");
  IpcRecord stop = rawRecord(IPC_KIND_STOP, "");
  stop.total_length = 5;
  client_.requests.send(stop);
  expectServes("next");
  EXPECT_EQ(std::vector<std::string>{"next"}, recorder_.seen());
}

TEST_F(ServerTest, DestroyServesWhatIsWaitingFirst) {
  for (int i = 0; i < 8; ++i) client_.notify("one way");
  EXPECT_EQ(0, server_.destroy());
  EXPECT_EQ(8U, recorder_.seen().size());
  EXPECT_EQ(0U, client_.requests.depth());
}

TEST_F(ServerTest, AStopRecordAndAOneWayTextThatBeginsWithExitEndTheThread) {
  const IpcRecord stop = rawRecord(IPC_KIND_STOP, "");
  const auto waitForEnd = [] { waitUntil("the receive thread ended", [] { return rawLife(kKey) == 0; }); };
  client_.notify("one way, no exit");
  expectServes("exit is only an order when it is one-way");
  client_.notify("exit, please");
  waitForEnd();
  EXPECT_EQ("exit, please", recorder_.seen().back());
  // The thread is gone, so nobody takes the stop record.
  EXPECT_EQ(0, server_.destroy());
  const IpcRecord left = client_.requests.take();
  EXPECT_EQ(0, std::memcmp(&stop, &left, sizeof left));

  const Server another(&Recorder::callback, &recorder_);
  client_.requests.send(stop);
  client_.notify("one way too late");
  waitForEnd();
  EXPECT_EQ(1U, client_.requests.depth());
}

TEST_F(ServerTest, TheCallbackPairIsReplacedAndCleared) {
  Recorder second;
  EXPECT_EQ(0, zunt_ipc_server_register_callback(server_.handle(), &Recorder::callback, &second));
  expectServes("for the second");
  EXPECT_EQ(0, zunt_ipc_server_unregister_callback(server_.handle()));
  EXPECT_EQ(IPC_KIND_FAILURE, client_.ask("to nobody").kind);
  EXPECT_EQ(0U, recorder_.seen().size());
  EXPECT_EQ(1U, second.seen().size());
}

TEST_F(ServerTest, ForeignRecordsDoNotKeepTheNextRequestFromItsAnswer) {
  OutputCapture errors(stderr);
  client_.requests.sendBytes(std::string(8000, 'x'));
  client_.requests.sendBytes("");
  for (const int claim : {-1, 1026, INT_MAX, INT_MIN}) {
    IpcRecord liar = rawRecord(IPC_KIND_REQUEST, "short");
    liar.chunk_length = claim;
    client_.requests.send(liar);
    expectServes("after a lie about the record");
    // The length is the sender's claim, and the callback reads as much.
    liar = rawRecord(IPC_KIND_REQUEST, "short");
    liar.total_length = claim;
    client_.requests.send(liar);
    EXPECT_EQ("short", client_.replies.takeMessage().text);
  }
}

TEST_F(ServerTest, AMessageLongerThanAnyPeerSendsIsDroppedWhole) {
  client_.requests.sendMessage(IPC_KIND_ONEWAY, std::string(100000, 'l'));
  expectServes("next");
  EXPECT_EQ(std::vector<std::string>{"next"}, recorder_.seen());
}

TEST_F(ServerTest, TheReceiveThreadBlocksEverySignal) {
  static sigset_t mask;
  zunt_ipc_server_register_callback(
      server_.handle(),
      [](const IpcMessage*, void*) -> IpcMessage* {
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return newReply("looked");
      },
      nullptr);
  client_.ask("look");
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
  zunt_ipc_server_register_callback(server_.handle(), &blockForEver, nullptr);
  client_.requests.sendMessage(IPC_KIND_REQUEST, "block");
  waitUntil("the callback ran", [] { return g_entered.load(); });
  Concurrently destroy([&] { return server_.destroy(); });
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
  for (const int kind : {IPC_KIND_REQUEST, IPC_KIND_ONEWAY}) {
    released = g_entered = false;
    zunt_ipc_server_register_callback(server_.handle(), wait_for_release, nullptr);
    client_.requests.sendMessage(kind, kind == IPC_KIND_REQUEST ? "ask" : "tell");
    waitUntil("the callback ran", [] { return g_entered.load(); });
    Concurrently replace([&] {
      return zunt_ipc_server_register_callback(server_.handle(), &Recorder::callback, &recorder_);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(replace.returned());
    released = true;
    EXPECT_EQ(0, replace.result());
    if (kind == IPC_KIND_REQUEST) {
      EXPECT_EQ("the old one's", client_.replies.takeMessage().text);
    }
    expectServes("by the new one");
  }
}

TEST_F(ServerTest, WhatACallbackReturnsForAOneWayMessageStaysItsOwn) {
  static char text[] = "mine";
  static IpcMessage mine{4, text};
  zunt_ipc_server_register_callback(
      server_.handle(), [](const IpcMessage*, void*) { return &mine; }, nullptr);
  for (int i = 0; i < 2; ++i) client_.notify("one way");
  client_.requests.waitUntilEmpty();
  EXPECT_EQ(0, zunt_ipc_server_register_callback(server_.handle(), &Recorder::callback, &recorder_));
  expectServes("next");
}

TEST_F(ServerTest, ItsQueuesAreOpenToEveryUser) {
  for (const RawQueue* const queue : {&client_.requests, &client_.replies}) {
    msqid_ds status{};
    ASSERT_EQ(0, msgctl(queue->id(), IPC_STAT, &status));
    EXPECT_EQ(0666, status.msg_perm.mode & 0777);
  }
}

TEST(OtherServersTest, AnswerOnTheChannelOfTheRequestAndWithoutAReplyQueueNotAtAll) {
  Recorder recorder;
  RawQueue requests(kKey);
  IpcRecord request = rawRecord(IPC_KIND_REQUEST, "for channel 5");
  request.mtype = 5;
  {
    const Server one_way_only(&Recorder::callback, &recorder, 0, kKey, 5);
    EXPECT_EQ(-1, msgget(kKey + 1, 0));
    requests.send(request);
    requests.send(rawRecord(IPC_KIND_REQUEST, "for channel 1"));
  }
  EXPECT_EQ(1U, requests.depth());
  EXPECT_EQ(0U, recorder.seen().size());
  const Server server(&Recorder::callback, &recorder, 1, kKey, 5);
  requests.send(request);
  const IpcRecord reply = RawQueue(kKey + 1).take();
  EXPECT_EQ(5, reply.mtype);
  EXPECT_STREQ("for channel 5", reply.data);
}

}  // namespace
}  // namespace hbbtv_ryn::test
