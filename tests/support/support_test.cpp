// The helpers themselves, above all that their checks can fail.
#include <gtest/gtest.h>
#include <sys/msg.h>

#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

constexpr auto kKey = static_cast<key_t>(0x92101081);

// Two tests that leave the same queue behind: each must find none.
class IsolationTest : public testing::TestWithParam<int> {};
TEST_P(IsolationTest, FindsNoQueueOfAnotherTest) {
  EXPECT_EQ(-1, msgget(kKey, 0));
  EXPECT_EQ(-1, rawLife(kKey));
  RawQueue(kKey).sendMessage(kRawOneWay, "left behind");
}
INSTANTIATE_TEST_SUITE_P(Twice, IsolationTest, testing::Values(1, 2));

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
