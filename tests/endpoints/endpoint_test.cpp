// What both endpoints do alike, along the tables of their messages; a raw process plays the other one.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "endpoints/any_function.h"
#include "endpoints/messages.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

class EndpointTest : public testing::TestWithParam<const Endpoint*> {
 protected:
  EndpointTest() {
    g_calls.take();
    registerAll();
    EXPECT_EQ(0, endpoint.start());
  }
  ~EndpointTest() override {
    EXPECT_EQ(0, endpoint.stop());
    endpoint.forget();
  }
  void registerAll() {
    for (const auto& message : endpoint.receives) message.receive();
  }

  struct Served {
    Calls calls;
    std::string reply;  // none is the failure reply
  };
  // What comes of a text that arrives as this message would.
  Served serve(const Message& message, const std::string& text) {
    if (message.isSynchronous()) {
      const std::string reply = ask(message.queue, text);
      return {g_calls.take(), reply};
    }
    RawPeer peer(message.queue);
    peer.notify(text);
    peer.notify(endpoint.marker.text);
    return {g_calls.takeUntil(endpoint.marker.noted), ""};
  }
  Served serve(const Message& message) { return serve(message, message.text); }
  // One exchange in each direction.
  void expectStarted() {
    EXPECT_EQ(Calls{endpoint.receives.front().noted}, serve(endpoint.receives.front()).calls);
    EXPECT_EQ(endpoint.sends.front().outcome, exchange(endpoint.sends.front()));
  }

  const Endpoint& endpoint = *GetParam();
};
INSTANTIATE_TEST_SUITE_P(, EndpointTest, testing::Values(&kBrowser, &kPlugin),
                         [](const auto& each) { return std::string(each.param->name); });

TEST_P(EndpointTest, EachCallSendsItsMessageAndStoresItsAnswer) {
  for (const auto& message : endpoint.sends) {
    EXPECT_EQ(message.outcome, exchange(message)) << message.text;
    if (!message.isSynchronous()) continue;
    // A member that is missing reads as 0. Of some answers only the result is read.
    g_old_flag = true;
    const std::string zeros = exchange(message, "{}");
    EXPECT_TRUE(zeros == "0: 0" || zeros == "0: 0 0" || zeros == "0: " || message.outcome == "7:") << zeros;
    g_old_flag = false;
  }
}

TEST_P(EndpointTest, AnUnusableAnswerStoresNothingAndTheNextOneIsTaken) {
  for (const auto& message : endpoint.sends) {
    if (!message.isSynchronous()) continue;
    std::vector<std::string> unusable = malformed(message.reply);
    unusable.push_back("");
    for (const auto& reply : unusable) {
      g_old_flag = !g_old_flag;
      EXPECT_EQ("-1:", exchange(message, reply)) << message.text << reply.substr(0, 60);
    }
    g_old_flag = false;
    EXPECT_EQ(message.outcome, exchange(message));
  }
}

TEST_P(EndpointTest, ATextThatIsTooLongIsRefusedAndLeavesNoMemoryAndTheNextOneLeaves) {
  const auto used = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  for (const auto& message : endpoint.sends) {
    if (message.text.find("\\u00e9") == std::string::npos) continue;
    const RawPeer peer(message.queue);
    const auto before = used();
    for (const std::size_t length : {16384U, 1U << 23}) {
      g_text.assign(length, 'x');
      EXPECT_EQ("-1:", message.send()) << message.text;
    }
    EXPECT_EQ(0U, peer.requests.depth());
    std::string(kText).swap(g_text);
    EXPECT_LT(used(), before + (1U << 20));
    EXPECT_EQ(message.outcome, exchange(message));
  }
}

TEST_P(EndpointTest, EachMessageIsHandedToItsHandlerUntilThatIsRemovedAndAnswered) {
  for (const auto& message : endpoint.receives) {
    const Served served = serve(message);
    EXPECT_EQ(Calls{message.noted}, served.calls) << message.text;
    if (message.isSynchronous()) {
      EXPECT_TRUE(sameJson(message.reply, served.reply)) << message.text;
    }
  }
  endpoint.forget();
  endpoint.marker.receive();
  for (const auto& message : endpoint.receives) {
    if (message.receive == endpoint.marker.receive) continue;
    const Served served = serve(message);
    EXPECT_EQ(Calls{}, served.calls);
    EXPECT_EQ(message.isSynchronous(), !served.reply.empty()) << message.text;
  }
}

TEST_P(EndpointTest, WhatIsNoMessageIsHandedToNobodyAndTheNextOneIs) {
  std::vector<std::string> foreign = {"{}",
                                      R"({"t":0})",
                                      R"({"t":202})",
                                      R"({"t":246})",
                                      R"({"t":286})",
                                      R"({"t":-216})",
                                      R"({"t":"216"})",
                                      R"({"t":[245]})",
                                      R"({"t":4294967512})",
                                      R"({"t":1e300})",
                                      R"({"t":244})",
                                      R"({"t":244,"keytype":4})",
                                      R"({"t":244,"keytype":-1})"};
  for (const auto& sent : endpoint.sends) foreign.push_back(sent.text);
  for (const auto& message : endpoint.receives) {
    std::vector<std::string> texts = malformed(message.text);
    texts.insert(texts.end(), foreign.begin(), foreign.end());
    for (const auto& text : texts) {
      const Served served = serve(message, text);
      EXPECT_EQ(Calls{}, served.calls) << text.substr(0, 60);
      EXPECT_EQ("", served.reply) << text.substr(0, 60);
    }
    EXPECT_EQ(Calls{message.noted}, serve(message).calls);
  }
}

TEST_P(EndpointTest, AHandlerThatThrowsCostsThatMessageOnly) {
  for (const auto& message : endpoint.receives) {
    g_handlers_throw = true;
    const Served served = serve(message);
    EXPECT_EQ(Calls{message.noted}, served.calls);
    EXPECT_EQ("", served.reply) << message.text;
    g_handlers_throw = false;
    message.receive();
    EXPECT_EQ(message.isSynchronous(), !serve(message).reply.empty());
  }
}

TEST_P(EndpointTest, RegisteringWhileMessagesArriveIsSafe) {
  std::atomic<bool> done{false};
  std::thread registrar([&] {
    while (!done) {
      endpoint.forget();
      registerAll();
    }
  });
  for (int i = 0; i < 300; ++i) {
    EXPECT_NE("", ask(endpoint.receives.front().queue, endpoint.receives.front().text));
    RawPeer(endpoint.marker.queue).notify(endpoint.marker.text);
  }
  done = true;
  registrar.join();
}

auto entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

TEST_P(EndpointTest, StartsAndStopsAnyNumberOfTimesWithoutLeavingAnything) {
  const auto threads = [] { return entriesOf("/proc/self/task"); };
  const auto started = threads();
  expectStarted();
  EXPECT_EQ(0, endpoint.stop());
  EXPECT_EQ(0, endpoint.stop());
  const auto descriptors = entriesOf("/proc/self/fd");
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(0, endpoint.start());
    ASSERT_EQ(0, endpoint.start());
    expectStarted();
    // A joined thread leaves /proc a moment after pthread_join() has returned.
    waitUntil("only its own threads ran", [&] { return threads() == started; });
    ASSERT_EQ(0, endpoint.stop());
    waitUntil("no thread was left", [&] { return threads() == started - endpoint.receive_threads; });
  }
  EXPECT_EQ(descriptors, entriesOf("/proc/self/fd"));
}

TEST_P(EndpointTest, CallsReportAPeerThatHasNeverRunAndAnEndpointThatIsNotStarted) {
  for (const auto& message : endpoint.sends) EXPECT_EQ("-3:", message.send()) << message.text;
  EXPECT_EQ(0, endpoint.stop());
  for (const auto& message : endpoint.sends) {
    const RawPeer exists_from_now_on(message.queue);
    EXPECT_EQ("-3:", message.send()) << message.text;
  }
}

}  // namespace
}  // namespace hbbtv_ryn::test
