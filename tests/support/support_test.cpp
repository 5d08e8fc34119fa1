// The helpers themselves, above all that their checks can fail.
#include <gtest/gtest.h>
#include <sys/msg.h>

#include <csignal>

#include "support/child_process.h"
#include "support/isolation.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

constexpr auto kKey = static_cast<key_t>(0x92101081);

const ChildRole kSpeaker("speaker", [](Parent& parent) {
  RawQueue(kKey).sendMessage(kRawOneWay, "from the child");
  parent.say(parent.argument(0) + parent.hear());
  parent.say(parent.hear());
  return 7;
});

TEST(ChildProcessTest, SharesTheQueuesOfTheTestAndEndsWithItsExitCode) {
  RawQueue queue(kKey);
  ChildProcess child(kSpeaker, {"he"});
  EXPECT_EQ("from the child", queue.takeMessage().text);
  child.say("llo");
  EXPECT_EQ("hello", child.hear());
  child.say("end");
  EXPECT_EQ("end", child.hear());
  EXPECT_EQ(7, child.wait());
}

TEST(ChildProcessTest, AHaltedOrKilledChildSaysNothing) {
  ChildProcess child(kSpeaker, {""});
  child.say("up");
  EXPECT_EQ("up", child.hear());
  child.halt();
  child.say("unheard");
  EXPECT_EQ(-SIGKILL, child.kill());
  EXPECT_THROW(child.hear(), std::runtime_error);
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

TEST(RawQueueTest, RefusesRecordsThatNoSenderWrites) {
  RawQueue queue(kKey);
  queue.send({}, 100);
  EXPECT_THROW(queue.take(), std::runtime_error);
  RawRecord liar = rawRecord(kRawReply, "12345");
  liar.chunk_length = 4;
  queue.send(liar);
  EXPECT_THROW(queue.takeMessage(), std::runtime_error);
}

}  // namespace
}  // namespace hbbtv_ryn::test
