// Clients, with the peer as their server.
#include <gtest/gtest.h>

#include <thread>
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

}  // namespace
}  // namespace hbbtv_ryn::test
