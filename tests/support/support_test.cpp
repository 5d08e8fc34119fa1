// The helpers themselves, above all that their checks can fail.
#include <gtest/gtest.h>
#include <sys/msg.h>

#include "tools/support/isolation.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

TEST(IsolationTest, EachTestFindsNoQueueOfAnother) {
  if (!isIsolated()) GTEST_SKIP() << "has no namespaces of its own";
  RawQueue(kRequestKey).sendMessage(IPC_KIND_ONEWAY, "left behind");
  isolateTest();
  EXPECT_EQ(-1, msgget(kRequestKey, 0));
}

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
