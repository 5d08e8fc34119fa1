// What a host does to its own threads and processes while the channel is at work.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "ipc/channel_handles.h"
#include "support/output_capture.h"
#include "tools/support/child_process.h"
#include "tools/support/deadline.h"
#include "tools/support/raw_peer.h"
#include "tools/support/sanitizers.h"

namespace hbbtv_ryn::test {
namespace {

class HostTest : public testing::Test {
 protected:
  void expectServed(int questions = 40) { EXPECT_EQ(0, client_.notEchoed(questions)); }

  Client client_;
};

TEST_F(HostTest, ACancelledRequesterShiftsNoLaterAnswer) {
  if (!kRequestersMayBeCancelled) GTEST_SKIP();
  const ServerProcess server;
  static std::atomic<int> wrong{0};
  const auto askUntilCancelled = [](void* client) -> void* {
    for (;;) wrong += static_cast<Client*>(client)->notEchoed(1000);
    return nullptr;
  };
  for (int round = 0; round < 300; ++round) {
    pthread_t asker{};
    ASSERT_EQ(0, pthread_create(&asker, nullptr, askUntilCancelled, &client_));
    std::this_thread::sleep_for(std::chrono::microseconds(200 + 37 * round % 700));
    pthread_cancel(asker);
    pthread_join(asker, nullptr);
    expectServed(9);
  }
  EXPECT_EQ(0, wrong);
}

TEST_F(HostTest, AOneWayMessageIsSentWholeThoughItsSenderIsCancelled) {
  if (!kRequestersMayBeCancelled) GTEST_SKIP();
  RawQueue queue(kKey);
  queue.setCapacity(2 * kRawRecordBytes);
  OutputCapture output(stdout);
  Client client(0);
  std::thread sender([&] {
    client.send(std::string(3000, 'w'));
    for (;;) pause();
  });
  waitUntil("the third record found no room",
            [&] { return occurrences(output.text(), "msgsnd EAGAIN") > 0; });
  pthread_cancel(sender.native_handle());
  EXPECT_EQ(std::string(3000, 'w'), queue.takeMessage().text);
  sender.join();
}

const ChildRole kCancelledOwner("cancelled owner", [](Parent&) {
  IpcServer* server = nullptr;
  zunt_ipc_server_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, &server);
  zunt_ipc_server_register_callback(server, &echo, nullptr);
  auto* const client = new Client;
  client->notEchoed(1);
  bool destroyed = false;
  std::thread([&] {
    pthread_cancel(pthread_self());
    zunt_ipc_server_destroy(server);
    zunt_ipc_server_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, &server);
    zunt_ipc_server_destroy(server);
    delete client;
    destroyed = true;
    pthread_testcancel();
  }).join();
  return destroyed ? 0 : 1;
});

TEST_F(HostTest, AThreadThatIsCancelledWhileItCreatesOrDestroysFinishesFirst) {
  ChildProcess host(kCancelledOwner);
  EXPECT_EQ(0, host.wait());
}

TEST_F(HostTest, AForkedChildDestroysItsCopiesAndTheParentGoesOn) {
  std::optional<Server> server(std::in_place, &echo);
  std::optional<Client> client(std::in_place);
  ASSERT_EQ(0, client->notEchoed(3));
  const pid_t child = fork();
  if (child == 0) {
    server.reset();
    // It may ask, too, and its own watch stops like any other.
    const int wrong = forkedChildrenMayStartThreads() ? client->notEchoed(3) : 0;
    client.reset();
    _exit(rawLife(kKey) == 1 ? wrong : 100);
  }
  int status = -1;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(0, status);
  EXPECT_EQ(1, rawLife(kKey));
  EXPECT_EQ(0, client->notEchoed(40));
}

const ChildRole kExecutor("executor", [](Parent& parent) {
  const Server server(&echo);
  parent.say("up");
  parent.hear();
  execlp("sleep", "sleep", "60", nullptr);
  return 1;
});

TEST_F(HostTest, AServerWhoseProcessGoesOnAsAnotherProgramIsDead) {
  ChildProcess host(kExecutor);
  EXPECT_EQ("up", host.hear());
  expectServed(3);
  host.say("execute");
  waitUntil("its life had ended", [] { return rawLife(kKey) == 0; });
  EXPECT_TRUE(client_.ask("anybody?").isBrokenOff());
}

IpcServer* g_server = nullptr;

const ChildRole kEndsInAHandler("ends in a handler", [](Parent& parent) {
  zunt_ipc_server_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, &g_server);
  std::atexit([] {
    zunt_ipc_server_unregister_callback(g_server);
    zunt_ipc_server_destroy(g_server);
  });
  zunt_ipc_server_register_callback(
      g_server, [](const IpcMessage*, void*) -> IpcMessage* { std::exit(7); }, nullptr);
  parent.say("up");
  for (;;) pause();
  return 0;
});

TEST_F(HostTest, AHandlerMayEndTheProcess) {
  ChildProcess host(kEndsInAHandler);
  EXPECT_EQ("up", host.hear());
  EXPECT_TRUE(client_.ask("end").isBrokenOff());
  EXPECT_EQ(7, host.wait());
}

TEST_F(HostTest, AChildForkedInAHandlerCanStopItsCopy) {
  static Server* server = nullptr;
  const auto forkAndAnswer = [](const IpcMessage*, void*) -> IpcMessage* {
    const pid_t child = fork();
    if (child == 0) {
      zunt_ipc_server_unregister_callback(server->handle());
      server->destroy();
      _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return newReply(status == 0 ? "stopped" : "hung");
  };
  Server parents(forkAndAnswer);
  server = &parents;
  EXPECT_TRUE(client_.ask("fork").isProper("stopped"));
}

TEST_F(HostTest, ASlowRequestSurvivesThatEitherProcessIsStoppedForAWhile) {
  ServerProcess server;
  ChildProcess asker(kAsker);
  for (ChildProcess* const stopped : {&asker, static_cast<ChildProcess*>(&server)}) {
    asker.say("slow");
    server.waitUntilTaken();
    stopped->halt();
    std::this_thread::sleep_for(kLongerThanTheWatchNeeds);
    stopped->goOn();
    server.release();
    EXPECT_EQ("slow", asker.hear());
  }
}

// How often the threads of this process but the main one have gone to sleep again.
long timesThatOthersSlept() {
  long times = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (task.path().filename() == std::to_string(getpid())) continue;
    std::ifstream status(task.path() / "status");
    for (std::string word; status >> word;) {
      long value = 0;
      if (word == "voluntary_ctxt_switches:" && status >> value) times += value;
    }
  }
  return times;
}

TEST_F(HostTest, NothingRunsWhileNothingIsAsked) {
  if (!kAllThreadsAreOurs) GTEST_SKIP();
  const Server server(&echo);
  expectServed();
  std::this_thread::sleep_for(kLongerThanTheWatchNeeds);
  const long before = timesThatOthersSlept();
  EXPECT_GT(before, 0);
  std::this_thread::sleep_for(kLongerThanTheWatchNeeds);
  EXPECT_EQ(before, timesThatOthersSlept());
}

TEST_F(HostTest, ADeadServerIsNoticedAlsoAfterALongSilence) {
  ServerProcess server;
  for (int round = 0; round < 2; ++round) {
    expectServed(3);
    std::this_thread::sleep_for(kLongerThanTheWatchNeeds);
  }
  Concurrently call([&] { return client_.ask("slow"); });
  server.waitUntilTaken();
  server.kill();
  EXPECT_TRUE(call.result().isBrokenOff());
}

TEST_F(HostTest, EveryChunkSizeAndChannelIsServed) {
  for (const int chunk_size : {1, 2, 3, 4, 5, 6, 7, 8, 100, 1023, 1024, 1025, 4000}) {
    for (const long channel : {1L, 2L, 70000L}) {
      SCOPED_TRACE(chunk_size);
      const Server server(&echo, nullptr, 1, kKey, channel, chunk_size);
      // A second handle finds that somebody has asked before.
      for (int handle = 0; handle < 2; ++handle) {
        Client client(1, kKey, channel, chunk_size);
        EXPECT_EQ(0, client.notEchoed(7) + client.notEchoed(1, chunk_size > 1000));
      }
      EXPECT_EQ(0U, RawQueue(kKey).depth());
      EXPECT_EQ(0U, RawQueue(kKey + 1).depth());
    }
  }
}

TEST_F(HostTest, ServersThatOverlapInARestartCostNoWrongAnswer) {
  std::optional<ServerProcess> old(std::in_place);
  expectServed(3);
  for (int round = 0; round < 3; ++round) {
    Concurrently call([&] { return client_.ask("slow"); });
    old->waitUntilTaken();
    std::optional<ServerProcess> successor(std::in_place);
    // Longer than the watch needs to look at both.
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    old->release();
    EXPECT_TRUE(call.result().isProper("slow"));
    // Some may be refused while there are two; none may get another's answer.
    for (int i = 0; i < 20; ++i) {
      const std::string text = "while there are two " + std::to_string(i);
      const Answer answer = client_.ask(text);
      EXPECT_TRUE(answer.isProper(text) || answer.isBrokenOff()) << answer.text.value_or("none");
    }
    old->kill();
    old.reset();
    old.emplace();
    successor->kill();
    waitUntil("the successor answers", [&] { return client_.notEchoed(1) == 0; });
    expectServed();
  }
}

}  // namespace
}  // namespace hbbtv_ryn::test
