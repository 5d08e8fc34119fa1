// The record primitives against a peer that has its own idea of the record.
#include <gtest/gtest.h>
#include <sys/msg.h>

#include <climits>
#include <cstring>

#include "ipc/channel_handles.h"
#include "support/output_capture.h"
#include "tools/support/deadline.h"
#include "tools/support/isolation.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

const std::string kFullLine = "\n###### msgsnd EAGAIN ######\n";
const std::string kResendLine = "\n###### resend msgsnd EAGAIN ######\n";

std::string numbered(std::size_t length) {
  std::string text(length, '\0');
  for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>('!' + i % 90);
  return text;
}

class PrimitivesTest : public testing::Test {
 protected:
  PrimitivesTest() : text_(static_cast<char*>(std::malloc(kRawPayload))) {}
  ~PrimitivesTest() override { std::free(text_); }

  int send(const std::string& text, int kind = IPC_KIND_ONEWAY, long channel = kChannel) {
    const IpcMessage message = messageOf(text);
    return ipc_snd_internal(queue_.id(), channel, IPC_CHUNK_SIZE, &message, kind);
  }
  int receive() {
    return ipc_rcv_internal(queue_.id(), kChannel, IPC_CHUNK_SIZE, &record_, &text_, &capacity_);
  }
  std::string receiveText() {
    EXPECT_EQ(0, receive());
    return text_;
  }

  RawQueue queue_{kKey};
  IpcRecord record_{};
  char* text_;
  int capacity_ = static_cast<int>(kRawPayload);
};

TEST_F(PrimitivesTest, RecordsAreByteForByteTheWireForm) {
  const auto expectSent = [&](IpcRecord expected, long type) {
    expected.mtype = type;
    const IpcRecord sent = queue_.take();
    EXPECT_EQ(0, std::memcmp(&expected, &sent, sizeof sent)) << "record " << expected.sequence;
  };
  ASSERT_EQ(0, send("hello", IPC_KIND_REPLY, 7));
  expectSent(rawRecord(IPC_KIND_REPLY, "hello"), 7);
  ASSERT_EQ(0, send("", IPC_KIND_STOP));
  expectSent(rawRecord(IPC_KIND_STOP, ""), kChannel);
  // Nothing of a full record is left in the short one behind it.
  ASSERT_EQ(0, send(numbered(kRawPayload + 1)));
  for (const auto& record : rawRecords(IPC_KIND_ONEWAY, numbered(kRawPayload + 1)))
    expectSent(record, kChannel);
}

TEST_F(PrimitivesTest, MessagesOfEveryEdgeSizeAreCutAndJoined) {
  const struct {
    std::size_t length;
    int capacity;  // of the receiver's buffer afterwards, from 1025 at the start
  } sizes[] = {{0, 1025},    {1024, 1025}, {1025, 2049}, {1026, 2049},
               {2048, 2049}, {2049, 4097}, {2050, 4097}, {16384, 16385}};
  for (const auto& size : sizes) {
    SCOPED_TRACE(size.length);
    const std::string text = numbered(size.length);
    {
      Concurrently sender([&] { return send(text); });
      EXPECT_EQ(text, queue_.takeMessage().text);
      EXPECT_EQ(0, sender.result());
    }
    capacity_ = static_cast<int>(kRawPayload);
    text_ = static_cast<char*>(std::realloc(text_, kRawPayload));
    Concurrently sender([&] { queue_.sendMessage(IPC_KIND_REPLY, text); });
    EXPECT_EQ(text, receiveText());
    EXPECT_EQ(size.capacity, capacity_);
    EXPECT_EQ(IPC_KIND_REPLY, record_.kind);
    EXPECT_EQ(static_cast<int>(size.length), record_.total_length);
  }
}

TEST_F(PrimitivesTest, AFullQueueCostsEachRecordSixAttemptsThenTheRecord) {
  queue_.setCapacity(kRawRecordBytes);
  queue_.send(rawRecord(IPC_KIND_ONEWAY, "in the way"));
  OutputCapture output(stdout);
  Concurrently sender([this] { return send(numbered(kRawPayload + 1)); });
  waitUntil("two attempts failed", [&] { return occurrences(output.text(), kResendLine) >= 2; });
  const auto begin = std::chrono::steady_clock::now();
  queue_.take();
  EXPECT_EQ(0, sender.result());
  EXPECT_LE(std::chrono::milliseconds(300), std::chrono::steady_clock::now() - begin);
  std::string second = kFullLine;
  for (int i = 0; i < IPC_RETRY_COUNT; ++i) second += kResendLine;
  EXPECT_EQ(second, output.text().substr(output.text().rfind(kFullLine)));
  EXPECT_EQ(1, queue_.take().sequence);
  EXPECT_EQ(0U, queue_.depth());
}

TEST_F(PrimitivesTest, ForeignRecordsAreTakenOffAndReportedOrLeftAlone) {
  IpcRecord other = rawRecord(IPC_KIND_ONEWAY, "for another channel");
  other.mtype = 2;
  queue_.send(other);
  for (const std::size_t bytes : {kRawRecordBytes + 1, std::size_t{8000}}) {
    queue_.sendBytes(std::string(bytes, 'x'));
    queue_.send(rawRecords(IPC_KIND_ONEWAY, numbered(3000))[0]);  // has lost its end
    queue_.send(rawRecord(IPC_KIND_ONEWAY, "next"));
    OutputCapture errors(stderr);
    EXPECT_EQ(-1, receive());
    EXPECT_EQ("SERVER msgrcv res:-1, errno:7, strerror:Argument list too long\n", errors.text());
    EXPECT_EQ(numbered(kRawPayload) + "next", receiveText());
  }
  EXPECT_EQ(1U, queue_.depth());
}

// Each stands between the first and the last record of a message that is whole without it.
TEST_F(PrimitivesTest, RecordsThatLieAboutTheirLengthCountAsDropped) {
  const auto whole = rawRecords(IPC_KIND_ONEWAY, numbered(kRawPayload + 5));
  const auto expectDropped = [&](const IpcRecord& record, std::size_t bytes) {
    queue_.send(whole[0]);
    queue_.send(record, bytes);
    queue_.send(whole[1]);
    EXPECT_EQ(numbered(kRawPayload + 5), receiveText());
  };
  for (const int length : {-1, 1026, 1029, 65536, INT_MAX, INT_MIN}) {
    for (const int last : {0, 1}) {
      IpcRecord liar = rawRecord(IPC_KIND_ONEWAY, "lie");
      liar.chunk_length = length;
      liar.last = last;
      expectDropped(liar, kRawRecordBytes);
    }
  }
  // Shorter than the header or than the length claims.
  const IpcRecord record = rawRecord(IPC_KIND_ONEWAY, std::string(100, 's'));
  for (const std::size_t bytes : {0U, 3U, 27U, 28U, 127U}) expectDropped(record, bytes);
  queue_.send(rawRecord(IPC_KIND_ONEWAY, "short but honest"), 28 + 16);
  EXPECT_EQ("short but honest", receiveText());
}

TEST_F(PrimitivesTest, ARemovedQueueEndsTheWaitAndIsSentToInSilence) {
  Concurrently call([this] { return receive(); });
  queue_.remove();
  EXPECT_EQ(-1, call.result());
  OutputCapture output(stdout);
  EXPECT_EQ(0, send("nowhere"));
  EXPECT_EQ("", output.text());
}

// The harness itself: what it checks can fail.

TEST(IsolationTest, EachTestFindsNoQueueOfAnother) {
  if (!isIsolated()) GTEST_SKIP() << "has no namespaces of its own";
  RawQueue(kKey).sendMessage(IPC_KIND_ONEWAY, "left behind");
  isolateTest();
  EXPECT_EQ(-1, msgget(kKey, 0));
}

TEST(RawQueueTest, RefusesRecordsThatNoSenderWrites) {
  RawQueue queue(kKey);
  queue.send(rawRecord(IPC_KIND_ONEWAY, ""), 100);
  EXPECT_THROW(queue.take(), std::runtime_error);
  IpcRecord liar = rawRecord(IPC_KIND_REPLY, "12345");
  liar.chunk_length = 4;
  queue.send(liar);
  EXPECT_THROW(queue.takeMessage(), std::runtime_error);
}

}  // namespace
}  // namespace hbbtv_ryn::test
