// The helpers themselves, above all that their checks can fail.
#include <gtest/gtest.h>
#include <sys/msg.h>

#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

// Two tests that leave the same queue behind: each must find none.
class IsolationTest : public testing::TestWithParam<int> {};
TEST_P(IsolationTest, FindsNoQueueOfAnotherTest) {
  EXPECT_EQ(-1, msgget(kRequestKey, 0));
  EXPECT_EQ(-1, rawLife(kRequestKey));
  RawQueue(kRequestKey).sendMessage(IPC_KIND_ONEWAY, "left behind");
}
INSTANTIATE_TEST_SUITE_P(Twice, IsolationTest, testing::Values(1, 2));

TEST(RawQueueTest, RefusesRecordsThatNoSenderWrites) {
  RawQueue queue(kRequestKey);
  queue.send(rawRecord(IPC_KIND_ONEWAY, ""), 100);
  EXPECT_THROW(queue.take(), std::runtime_error);
  IpcRecord liar = rawRecord(IPC_KIND_REPLY, "12345");
  liar.chunk_length = 4;
  queue.send(liar);
  EXPECT_THROW(queue.takeMessage(), std::runtime_error);
}

}  // namespace
}  // namespace hbbtv_ryn::test
