// Clients, with the peer as their server.
#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

#include "ipc/channel_handles.h"
#include "tools/support/deadline.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

TEST(ClientTest, OpensItsQueuesWhenTheyExist) {
  Client client;
  Client one_way_only(0);
  EXPECT_EQ(-3, client.send("early"));
  EXPECT_EQ(-3, client.ask("early").result);

  RawQueue requests(kKey);
  EXPECT_EQ(0, one_way_only.send("needs no reply queue"));
  EXPECT_EQ("needs no reply queue", requests.takeMessage().text);
  EXPECT_EQ(-3, client.send("needs one"));
  const RawQueue replies(kKey + 1);
  EXPECT_EQ(-3, one_way_only.ask("makes no requests").result);
  EXPECT_EQ(0U, requests.depth());
  EXPECT_EQ(0, client.send("now"));
  EXPECT_EQ(IPC_KIND_ONEWAY, requests.takeMessage().kind);
}

TEST(ClientTest, ExchangesTheLongestMessageAndRefusesAByteMore) {
  RawPeer server(kKey);
  Client client;
  const std::string longest(IPC_MAX_MESSAGE, 'x');
  Concurrently call([&] { return client.ask(longest); });
  const RawMessage request = server.nextRequest();
  EXPECT_EQ(IPC_KIND_REQUEST, request.kind);
  EXPECT_EQ(longest, request.text);
  server.reply(longest);
  EXPECT_TRUE(call.result().isProper(longest));

  EXPECT_EQ(-1, client.send(longest + 'x'));
  EXPECT_EQ(-1, client.ask(longest + 'x').result);
  EXPECT_EQ(0U, server.requests.depth());
}

std::string g_handled;
int handleReply(const IpcMessage* reply, int status) {
  g_handled += textOf(reply) + (reply->text[reply->length] == '\0' ? "" : " without a NUL");
  EXPECT_EQ(0, status);
  return 99;
}
int handleReplyAndThrow(const IpcMessage* reply, int status) {
  handleReply(reply, status);
  throw 42;
}

TEST(ClientTest, AFailureReplyReachesNoHandlerAndLeavesTheLengthAlone) {
  RawPeer server(kKey);
  Client client;
  char text[] = "question";
  const IpcMessage request{8, text};
  for (const IpcReplyHandler handler : {&handleReply, &handleReplyAndThrow, IpcReplyHandler{nullptr}}) {
    for (const bool proper : {true, false}) {
      Concurrently call(
          [&] { return zunt_ipc_client_send_sync_with_callback(client.handle(), &request, handler); });
      server.nextRequest();
      proper ? server.reply("answer") : server.fail();
      EXPECT_EQ(0, call.result());
    }
  }
  EXPECT_EQ("answeranswer", g_handled);
  Concurrently call([&] { return client.ask("question"); });
  server.nextRequest();
  server.fail();
  EXPECT_TRUE(call.result().isFailureReply());
}

// The length is the sender's claim, and callers read as much.
TEST(ClientTest, AReplyThatLiesAboutItsLengthStaysInsideItsBuffer) {
  RawPeer server(kKey);
  Client client;
  for (const int claim : {-5, 1025, 2000000000}) {  // the second is the buffer's size
    Concurrently call([&] { return client.ask("question"); });
    server.nextRequest();
    IpcRecord record = rawRecord(IPC_KIND_REPLY, "short");
    record.total_length = claim;
    server.replies.send(record);
    EXPECT_TRUE(call.result().isProper("short")) << claim;
  }
}

TEST(ClientTest, TakesNoAnswerFromBeforeItsFirstRequestAndWaitsForNoneOnAQueueThatIsGone) {
  RawPeer server(kKey);
  server.reply(std::string(3000, 's'));
  server.fail();
  server.replies.send(rawRecords(IPC_KIND_REPLY, std::string(2000, 'h'))[0]);
  Client client;
  Concurrently first([&] { return client.ask("question"); });
  server.nextRequest();
  server.reply("fresh");
  EXPECT_TRUE(first.result().isProper("fresh"));

  Concurrently second([&] { return client.ask("question"); });
  server.nextRequest();
  server.replies.remove();
  EXPECT_TRUE(second.result().isBrokenOff());
}

TEST(ClientTest, ThreadsThatShareAHandleGetTheAnswersToTheirOwnRequests) {
  // An answer to a one-way message would be nobody's to free.
  const Server server([](const IpcMessage* message, void*) {
    return message->text[0] == '-' ? nullptr : newReply(textOf(message));
  });
  Client client;
  const auto work = [&client](char name) {
    for (std::size_t i = 0; i < 100; ++i) {
      // Of one to three records, which those of another thread must not come between.
      const std::string text(1 + i % 3 * kRawPayload, name);
      EXPECT_TRUE(client.ask(text).isProper(text));
      EXPECT_EQ(0, client.send('-' + text));
    }
  };
  std::vector<std::thread> threads;
  for (const char name : {'a', 'b', 'c'}) threads.emplace_back(work, name);
  for (auto& thread : threads) thread.join();
}

// What is refused before anything is touched, at every function of the channel.
TEST(RefusalTest, LeavesQueuesAndOutParametersAlone) {
  RawPeer peer(kKey);
  Client client;
  Client zero_chunk(1, kKey, kChannel, 0);
  char bytes[] = "text";
  const IpcMessage good{4, bytes}, empty{0, bytes}, negative{-1, bytes}, textless{4, nullptr};
  const std::string longer(IPC_MAX_MESSAGE + 1, 'x');
  const IpcMessage too_long = messageOf(longer);
  IpcMessage reply{kUntouched, nullptr};
  IpcRecord record{};
  char* text = static_cast<char*>(std::malloc(kRawPayload));
  int capacity = kRawPayload, zero = 0;

  const auto cut = [&](long channel, int chunk_size, const IpcMessage* message) {
    return ipc_snd_internal(peer.requests.id(), channel, chunk_size, message, IPC_KIND_ONEWAY);
  };
  const auto join = [&](IpcRecord* into, char** joined, int* room) {
    return ipc_rcv_internal(peer.requests.id(), kChannel, IPC_CHUNK_SIZE, into, joined, room);
  };
  const auto expectRefused = [&](int told, int asked, IpcClient* by, const IpcMessage* message) {
    EXPECT_EQ(told, zunt_ipc_client_send(by, message));
    EXPECT_EQ(asked, zunt_ipc_client_send_sync_with_params(by, message, &reply));
    EXPECT_EQ(asked, zunt_ipc_client_send_sync_with_callback(by, message, nullptr));
  };
  for (const IpcMessage* bad : {static_cast<const IpcMessage*>(nullptr), &negative, &textless}) {
    EXPECT_EQ(-3, cut(kChannel, IPC_CHUNK_SIZE, bad));
  }
  EXPECT_EQ(-3, cut(kChannel, 0, &good));
  EXPECT_EQ(-3, cut(-1, IPC_CHUNK_SIZE, &good));
  expectRefused(-3, -3, nullptr, &good);
  expectRefused(-3, -3, client.handle(), nullptr);
  expectRefused(-3, -3, client.handle(), &empty);
  expectRefused(-1, -3, zero_chunk.handle(), &good);
  for (const IpcMessage* bad : {&negative, &textless, &too_long})
    expectRefused(-1, -1, client.handle(), bad);
  EXPECT_EQ(-3, zunt_ipc_client_send_sync_with_params(client.handle(), &good, nullptr));
  EXPECT_EQ(-3, zunt_ipc_client_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, nullptr));
  EXPECT_EQ(-3, zunt_ipc_client_destroy(nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_register_callback(nullptr, nullptr, nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_unregister_callback(nullptr));
  EXPECT_EQ(-3, zunt_ipc_server_destroy(nullptr));
  EXPECT_EQ(kUntouched, reply.length);
  EXPECT_EQ(0U, peer.requests.depth());

  peer.requests.send(rawRecord(IPC_KIND_ONEWAY, std::string(kRawPayload, 'x')));
  EXPECT_EQ(-3, join(nullptr, &text, &capacity));
  EXPECT_EQ(-3, join(&record, nullptr, &capacity));
  EXPECT_EQ(-3, join(&record, &text, nullptr));
  EXPECT_EQ(-3, join(&record, &text, &zero));
  EXPECT_EQ(1U, peer.requests.depth());
  std::free(std::exchange(text, nullptr));
  EXPECT_EQ(-4, join(&record, &text, &capacity));  // a buffer that has to grow, and is not there
}

}  // namespace
}  // namespace hbbtv_ryn::test
