// The helpers themselves, above all that their checks can fail.
#include <gtest/gtest.h>
#include <sys/msg.h>

#include "tools/support/isolation.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

constexpr auto kKey = static_cast<key_t>(0x92101081);

TEST(IsolationTest, EachTestFindsNoQueueOfAnother) {
  if (!isIsolated()) GTEST_SKIP() << "has no namespaces of its own";
  RawQueue(kKey).sendMessage(kRawOneWay, "left behind");
  isolateTest();
  EXPECT_EQ(-1, msgget(kKey, 0));
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
