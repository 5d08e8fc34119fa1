// Clients, with the peer as their server.
#include <gtest/gtest.h>

#include "ipc/channel_handles.h"
#include "support/deadline.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

TEST(ClientTest, OpensItsQueuesWhenTheyExist) {
  Client client;
  EXPECT_EQ(-3, client.send("early"));
  EXPECT_EQ(-3, client.ask("early").result);

  RawQueue requests(kKey);
  EXPECT_EQ(-3, client.send("no reply queue yet"));
  EXPECT_EQ(0U, requests.depth());

  const RawQueue replies(kKey + 1);
  EXPECT_EQ(0, client.send("now"));
  const RawMessage message = requests.takeMessage();
  EXPECT_EQ("now", message.text);
  EXPECT_EQ(kRawOneWay, message.kind);
}

TEST(ClientTest, AOneWayClientNeedsNoReplyQueueAndMakesNoRequests) {
  RawQueue requests(kKey);
  Client client(0);
  EXPECT_EQ(0, client.send("one way"));
  EXPECT_EQ(1U, requests.depth());
  EXPECT_EQ(-3, client.ask("synchronous").result);
  const std::string request_text = "synchronous";
  const IpcMessage request = messageOf(request_text);
  EXPECT_EQ(-3, zunt_ipc_client_send_sync_with_callback(client.handle(), &request, nullptr));
  EXPECT_EQ(1U, requests.depth());
}

TEST(ClientTest, RefusesBadArguments) {
  RawPeer server(kKey);
  Client client;
  IpcClient* chunkless = nullptr;
  ASSERT_EQ(0, zunt_ipc_client_create(kKey, kChannel, 1, 0, &chunkless));
  const std::string text_text = "text";
  const IpcMessage text = messageOf(text_text);
  const IpcMessage empty{0, text.text};
  IpcMessage reply{kUntouched, nullptr};
  EXPECT_EQ(-3, zunt_ipc_client_create(kKey, kChannel, 1, IPC_CHUNK_SIZE, nullptr));
  EXPECT_EQ(-3, zunt_ipc_client_destroy(nullptr));
  const struct {
    IpcClient* client;
    const IpcMessage* request;
    IpcMessage* reply;
  } calls[] = {{nullptr, &text, &reply},
               {client.handle(), nullptr, &reply},
               {client.handle(), &empty, &reply},
               {client.handle(), &text, nullptr},
               {chunkless, &text, &reply}};
  for (const auto& call : calls) {
    EXPECT_EQ(-3, zunt_ipc_client_send_sync_with_params(call.client, call.request, call.reply));
    if (call.reply == nullptr) continue;
    EXPECT_EQ(-3, zunt_ipc_client_send_sync_with_callback(call.client, call.request, nullptr));
    if (call.client == chunkless) continue;
    EXPECT_EQ(-3, zunt_ipc_client_send(call.client, call.request));
  }
  zunt_ipc_client_destroy(chunkless);
  EXPECT_EQ(kUntouched, reply.length);
  EXPECT_EQ(0U, server.requests.depth());
}

TEST(ClientTest, SendsTheLongestMessageAndRefusesAByteMore) {
  RawPeer server(kKey);
  Client client;
  const std::string longest(IPC_MAX_MESSAGE, 'x');
  {
    Concurrently call([&] { return client.send(longest); });
    EXPECT_EQ(longest, server.nextRequest().text);
    EXPECT_EQ(0, call.result());
  }
  Concurrently call([&] { return client.ask(longest); });
  EXPECT_EQ(longest, server.nextRequest().text);
  server.reply(longest);
  EXPECT_TRUE(call.result().isProper(longest));

  EXPECT_EQ(-1, client.send(longest + 'x'));
  EXPECT_EQ(-1, client.ask(longest + 'x').result);
  const IpcMessage negative{-1, const_cast<char*>(longest.data())};
  EXPECT_EQ(-1, zunt_ipc_client_send(client.handle(), &negative));
  EXPECT_EQ(0U, server.requests.depth());
}

TEST(ClientTest, ALongReplyArrivesWholeAndAFailureReplyLeavesTheLengthAlone) {
  RawPeer server(kKey);
  Client client;
  const std::string text(3000, 'r');
  for (const bool proper : {true, false}) {
    Concurrently call([&] { return client.ask("question"); });
    EXPECT_EQ(kRawRequest, server.nextRequest().kind);
    proper ? server.reply(text) : server.fail();
    const Answer answer = call.result();
    EXPECT_TRUE(proper ? answer.isProper(text) : answer.isFailureReply());
  }
}

std::string g_handled;
int g_handled_status = kUntouched;
int handleReply(const IpcMessage* reply, int status) {
  g_handled += textOf(reply) + (reply->text[reply->length] == '\0' ? "" : " without a NUL");
  g_handled_status = status;
  return 99;
}

TEST(ClientTest, TheReplyHandlerSeesProperRepliesOnly) {
  RawPeer server(kKey);
  Client client;
  const std::string request_text = "question";
  const IpcMessage request = messageOf(request_text);
  for (const IpcReplyHandler handler : {&handleReply, IpcReplyHandler{nullptr}}) {
    for (const bool proper : {true, false}) {
      Concurrently call(
          [&] { return zunt_ipc_client_send_sync_with_callback(client.handle(), &request, handler); });
      server.nextRequest();
      proper ? server.reply("answer") : server.fail();
      EXPECT_EQ(0, call.result());
    }
  }
  EXPECT_EQ("answer", g_handled);
  EXPECT_EQ(0, g_handled_status);
}

TEST(ClientTest, AReplyQueueThatDisappearsEndsTheWait) {
  RawPeer server(kKey);
  Client client;
  Concurrently call([&] { return client.ask("question"); });
  server.nextRequest();
  server.replies.remove();
  EXPECT_TRUE(call.result().isBrokenOff());
}

// The length is the sender's claim. It must never make a caller read outside the text.
TEST(ClientTest, AReplyThatLiesAboutItsLengthStaysInsideItsBuffer) {
  RawPeer server(kKey);
  Client client;
  for (const int claim : {-5, 2000000000}) {
    const std::string request_text = "question";
    const IpcMessage request = messageOf(request_text);
    IpcMessage reply{kUntouched, nullptr};
    Concurrently call(
        [&] { return zunt_ipc_client_send_sync_with_params(client.handle(), &request, &reply); });
    server.nextRequest();
    RawRecord record = rawRecord(kRawReply, "short");
    record.total_length = claim;
    server.replies.send(record);
    if (call.result() == 0 && reply.length > 0) {
      EXPECT_EQ("short", std::string(reply.text, static_cast<std::size_t>(reply.length)).substr(0, 5));
      EXPECT_GT(100000, reply.length);
    }
    std::free(reply.text);
  }
}

TEST(ClientTest, TakesNoAnswerThatLayOnTheQueueBeforeItsFirstRequest) {
  RawPeer server(kKey);
  server.reply("stale");
  server.reply(std::string(3000, 's'));
  server.fail();
  server.replies.send(rawRecords(kRawReply, std::string(2000, 'h'))[0]);
  Client client;
  Concurrently call([&] { return client.ask("question"); });
  server.nextRequest();
  server.reply("fresh");
  EXPECT_TRUE(call.result().isProper("fresh"));
}

}  // namespace
}  // namespace hbbtv_ryn::test
