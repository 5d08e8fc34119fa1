// The record primitives against a peer that has its own idea of the record.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "ipc/channel_handles.h"
#include "support/deadline.h"
#include "support/output_capture.h"
#include "support/raw_peer.h"

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
  PrimitivesTest() : m_text(static_cast<char*>(std::malloc(kRawPayload))) {}
  ~PrimitivesTest() override { std::free(m_text); }

  int send(const std::string& text, int kind = IPC_KIND_ONEWAY, long channel = kChannel) {
    const IpcMessage message = messageOf(text);
    return ipc_snd_internal(m_queue.id(), channel, IPC_CHUNK_SIZE, &message, kind);
  }
  int receive() {
    return ipc_rcv_internal(m_queue.id(), kChannel, IPC_CHUNK_SIZE, &m_record, &m_text, &m_capacity);
  }
  std::string receiveText() {
    EXPECT_EQ(0, receive());
    return m_text;
  }

  RawQueue m_queue{kKey};
  IpcRecord m_record{};
  char* m_text;
  int m_capacity = static_cast<int>(kRawPayload);
};

TEST_F(PrimitivesTest, RecordsAreByteForByteTheWireForm) {
  const auto expectSent = [&](RawRecord expected, long type) {
    expected.type = type;
    const RawRecord sent = m_queue.take();
    EXPECT_EQ(0, std::memcmp(&expected, &sent, sizeof sent)) << "record " << expected.sequence;
  };
  ASSERT_EQ(0, send("hello", IPC_KIND_REPLY, 7));
  expectSent(rawRecord(kRawReply, "hello"), 7);
  ASSERT_EQ(0, send("", IPC_KIND_STOP));
  expectSent(rawRecord(kRawStop, ""), kChannel);
  // Nothing of a full record is left in the short one behind it.
  ASSERT_EQ(0, send(numbered(kRawPayload + 1)));
  for (const auto& record : rawRecords(kRawOneWay, numbered(kRawPayload + 1))) expectSent(record, kChannel);
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
      EXPECT_EQ(text, m_queue.takeMessage().text);
      EXPECT_EQ(0, sender.result());
    }
    m_capacity = static_cast<int>(kRawPayload);
    m_text = static_cast<char*>(std::realloc(m_text, kRawPayload));
    Concurrently sender([&] { m_queue.sendMessage(kRawReply, text); });
    EXPECT_EQ(text, receiveText());
    EXPECT_EQ(size.capacity, m_capacity);
    EXPECT_EQ(IPC_KIND_REPLY, m_record.kind);
    EXPECT_EQ(static_cast<int>(size.length), m_record.total_length);
  }
}

TEST_F(PrimitivesTest, RefusesBadArgumentsAndLeavesTheQueueAlone) {
  char text[] = "text";
  const IpcMessage good{4, text};
  const IpcMessage negative{-1, text};
  const IpcMessage textless{4, nullptr};
  const int id = m_queue.id();
  for (const IpcMessage* bad : {static_cast<const IpcMessage*>(nullptr), &negative, &textless}) {
    EXPECT_EQ(-3, ipc_snd_internal(id, kChannel, IPC_CHUNK_SIZE, bad, IPC_KIND_ONEWAY));
  }
  EXPECT_EQ(-3, ipc_snd_internal(id, kChannel, 0, &good, IPC_KIND_ONEWAY));
  EXPECT_EQ(-3, ipc_snd_internal(id, -1, IPC_CHUNK_SIZE, &good, IPC_KIND_ONEWAY));
  EXPECT_EQ(0U, m_queue.depth());

  m_queue.send(rawRecord(kRawOneWay, std::string(kRawPayload, 'x')));
  int zero = 0;
  EXPECT_EQ(-3, ipc_rcv_internal(id, kChannel, IPC_CHUNK_SIZE, nullptr, &m_text, &m_capacity));
  EXPECT_EQ(-3, ipc_rcv_internal(id, kChannel, IPC_CHUNK_SIZE, &m_record, nullptr, &m_capacity));
  EXPECT_EQ(-3, ipc_rcv_internal(id, kChannel, IPC_CHUNK_SIZE, &m_record, &m_text, &zero));
  EXPECT_EQ(1U, m_queue.depth());
  // A buffer that has to grow, and is not there.
  char* none = nullptr;
  EXPECT_EQ(-4, ipc_rcv_internal(id, kChannel, IPC_CHUNK_SIZE, &m_record, &none, &m_capacity));
}

TEST_F(PrimitivesTest, AFullQueueCostsEachRecordSixAttemptsThenTheRecord) {
  m_queue.setCapacity(kRawRecordBytes);
  m_queue.send(rawRecord(kRawOneWay, "in the way"));
  OutputCapture output(stdout);
  Concurrently sender([this] { return send(numbered(kRawPayload + 1)); });
  waitUntil("two attempts failed", [&] { return occurrences(output.text(), kResendLine) >= 2; });
  m_queue.take();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(0, sender.result());
  EXPECT_LE(std::chrono::milliseconds(300), std::chrono::steady_clock::now() - begin);
  std::string second = kFullLine;
  for (int i = 0; i < IPC_RETRY_COUNT; ++i) second += kResendLine;
  EXPECT_EQ(second, output.text().substr(output.text().rfind(kFullLine)));
  EXPECT_EQ(1, m_queue.take().sequence);
  EXPECT_EQ(0U, m_queue.depth());
}

TEST_F(PrimitivesTest, ForeignRecordsAreTakenOffAndReportedOrLeftAlone) {
  RawRecord other = rawRecord(kRawOneWay, "for another channel");
  other.type = 2;
  m_queue.send(other);
  for (const std::size_t bytes : {kRawRecordBytes + 1, std::size_t{8000}}) {
    m_queue.sendBytes(std::string(bytes, 'x'));
    m_queue.send(rawRecords(kRawOneWay, numbered(3000))[0]);  // has lost its end
    m_queue.send(rawRecord(kRawOneWay, "next"));
    OutputCapture errors(stderr);
    EXPECT_EQ(-1, receive());
    EXPECT_EQ("SERVER msgrcv res:-1, errno:7, strerror:Argument list too long\n", errors.text());
    EXPECT_EQ(numbered(kRawPayload) + "next", receiveText());
  }
  EXPECT_EQ(1U, m_queue.depth());
}

// Each stands between the first and the last record of a message that is whole without it.
TEST_F(PrimitivesTest, RecordsThatLieAboutTheirLengthCountAsDropped) {
  const auto whole = rawRecords(kRawOneWay, numbered(kRawPayload + 5));
  const auto expectDropped = [&](const RawRecord& record, std::size_t bytes) {
    m_queue.send(whole[0]);
    m_queue.send(record, bytes);
    m_queue.send(whole[1]);
    EXPECT_EQ(numbered(kRawPayload + 5), receiveText());
  };
  for (const int length : {-1, 1026, 1029, 65536, INT_MAX, INT_MIN}) {
    for (const int last : {0, 1}) {
      RawRecord liar = rawRecord(kRawOneWay, "lie");
      liar.chunk_length = length;
      liar.last = last;
      expectDropped(liar, kRawRecordBytes);
    }
  }
  // Shorter than the header or than the length claims.
  const RawRecord record = rawRecord(kRawOneWay, std::string(100, 's'));
  for (const std::size_t bytes : {0U, 3U, 27U, 28U, 127U}) expectDropped(record, bytes);
  m_queue.send(rawRecord(kRawOneWay, "short but honest"), 28 + 16);
  EXPECT_EQ("short but honest", receiveText());
}

TEST_F(PrimitivesTest, ARemovedQueueEndsTheWaitAndIsSentToInSilence) {
  Concurrently call([this] { return receive(); });
  m_queue.remove();
  EXPECT_EQ(-1, call.result());
  OutputCapture output(stdout);
  EXPECT_EQ(0, send("nowhere"));
  EXPECT_EQ("", output.text());
}

}  // namespace
}  // namespace hbbtv_ryn::test
