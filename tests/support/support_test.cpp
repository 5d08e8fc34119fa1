// The helpers themselves, above all that their checks can fail.
#include <gtest/gtest.h>
#include <sys/msg.h>
#include <unistd.h>

#include <csignal>

#include "support/child_process.h"
#include "support/isolation.h"
#include "support/output_capture.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

constexpr auto kKey = static_cast<key_t>(0x92101081);

const ChildRole kEcho("echo", [](Parent& parent) {
  parent.say(parent.argument(0) + parent.hear());
  return 7;
});
const ChildRole kSleeper("sleeper", [](Parent& parent) {
  parent.say("asleep");
  parent.say(parent.hear());
  return 0;
});
const ChildRole kQueueUser("queue user", [](Parent&) {
  RawQueue(kKey).sendMessage(kRawOneWay, "from the child");
  return 0;
});

TEST(ChildProcessTest, TalksAndEndsWithItsExitCode) {
  ChildProcess child(kEcho, {"he"});
  child.say("llo");
  EXPECT_EQ("hello", child.hear());
  EXPECT_EQ(7, child.wait());
}

TEST(ChildProcessTest, AHaltedOrKilledChildSaysNothing) {
  ChildProcess child(kSleeper);
  EXPECT_EQ("asleep", child.hear());
  child.halt();
  child.say("unheard");
  child.kill();
  EXPECT_THROW(child.hear(), std::runtime_error);
}

TEST(ChildProcessTest, SharesTheQueuesOfTheTest) {
  RawQueue queue(kKey);
  EXPECT_EQ(0, ChildProcess(kQueueUser).wait());
  EXPECT_EQ("from the child", queue.takeMessage().text);
}

// Two tests that leave the same queue behind: each must find none.
class IsolationTest : public testing::TestWithParam<int> {};
TEST_P(IsolationTest, FindsNoQueueOfAnotherTest) {
  EXPECT_EQ(-1, msgget(kKey, 0));
  EXPECT_EQ(-1, rawLife(kKey));
  RawQueue(kKey).sendMessage(kRawOneWay, "left behind");
}
INSTANTIATE_TEST_SUITE_P(Twice, IsolationTest, testing::Values(1, 2));

TEST(QueueCapacityTest, AppliesToQueuesMadeLater) {
  if (!isIsolated()) GTEST_SKIP() << "would change the machine";
  setQueueCapacity(2 * kRawRecordBytes);
  RawQueue queue(kKey);
  EXPECT_TRUE(queue.trySend({}));
  EXPECT_TRUE(queue.trySend({}));
  EXPECT_FALSE(queue.trySend({}));
}

TEST(RawQueueTest, JoinsWhatItCuts) {
  RawQueue queue(kKey);
  for (const std::size_t length : {0U, 1U, 1025U, 1026U, 2050U, 3000U}) {
    const std::string text(length, 'x');
    queue.sendMessage(kRawReply, text);
    EXPECT_EQ((length + 1024) / 1025 + (length == 0 ? 1 : 0), queue.depth());
    EXPECT_EQ(text, queue.takeMessage().text);
  }
}

TEST(RawQueueTest, RefusesRecordsThatNoSenderWrites) {
  RawQueue queue(kKey);
  queue.send({}, 100);
  EXPECT_THROW(queue.take(), std::runtime_error);
  RawRecord liar = rawRecord(kRawReply, "12345");
  liar.chunk_length = 4;
  queue.send(liar);
  EXPECT_THROW(queue.takeMessage(), std::runtime_error);
}

TEST(OutputCaptureTest, HoldsWhatWasWrittenAndRestoresTheStream) {
  OutputCapture outer(stdout);
  {
    OutputCapture inner(stdout);
    std::puts("inside");
    EXPECT_EQ("inside\n", inner.text());
  }
  std::puts("outside");
  EXPECT_EQ("outside\n", outer.text());
}

}  // namespace
}  // namespace hbbtv_ryn::test
