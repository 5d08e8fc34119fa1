// The record primitives against a peer that has its own idea of the record.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/msg.h>

#include <atomic>
#include <climits>
#include <csignal>
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
  // Room for that many records.
  void limitQueue(std::size_t records) { m_queue.setCapacity(records * kRawRecordBytes); }

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
  struct Size {
    std::size_t length;
    int capacity;  // of the receiver's buffer afterwards, from 1025 at the start
  };
  for (const auto& [length, capacity] :
       {Size{0, 1025}, Size{1024, 1025}, Size{1025, 2049}, Size{1026, 2049}, Size{2048, 2049},
        Size{2049, 4097}, Size{2050, 4097}, Size{16384, 16385}}) {
    SCOPED_TRACE(length);
    const std::string text = numbered(length);
    {
      Concurrently sender([&] { return send(text); });
      EXPECT_EQ(text, m_queue.takeMessage().text);
      EXPECT_EQ(0, sender.result());
      EXPECT_EQ(0U, m_queue.depth());
    }
    m_capacity = static_cast<int>(kRawPayload);
    m_text = static_cast<char*>(std::realloc(m_text, kRawPayload));
    Concurrently sender([&] { m_queue.sendMessage(kRawReply, text); });
    EXPECT_EQ(text, receiveText());
    EXPECT_EQ(capacity, m_capacity);
    EXPECT_EQ(kChannel, m_record.mtype);
    EXPECT_EQ(IPC_KIND_REPLY, m_record.kind);
    EXPECT_EQ(static_cast<int>(length), m_record.total_length);
    EXPECT_EQ(1, m_record.last);
  }
}

TEST_F(PrimitivesTest, OtherChunkSizesAreCutAndJoinedToo) {
  const std::string text = numbered(20);
  const IpcMessage message = messageOf(text);
  alignas(IpcRecord) char record[ipc_record_bytes(4)];
  int capacity = 5;
  ASSERT_EQ(0, ipc_snd_internal(m_queue.id(), kChannel, 4, &message, IPC_KIND_ONEWAY));
  EXPECT_EQ(4U, m_queue.depth());
  ASSERT_EQ(0, ipc_rcv_internal(m_queue.id(), kChannel, 4, reinterpret_cast<IpcRecord*>(record), &m_text,
                                &capacity));
  EXPECT_EQ(text, m_text);
}

TEST_F(PrimitivesTest, TakesOnlyTheRecordsOfItsChannel) {
  RawRecord other = rawRecord(kRawOneWay, "other");
  other.type = 2;
  m_queue.send(other);
  m_queue.send(rawRecord(kRawOneWay, "mine"));
  EXPECT_EQ("mine", receiveText());
  EXPECT_EQ(1U, m_queue.depth());
}

TEST_F(PrimitivesTest, RefusesBadArgumentsAndLeavesTheQueueAlone) {
  const std::string good_text = "text";
  const IpcMessage good = messageOf(good_text);
  const IpcMessage negative{-1, good.text};
  const IpcMessage textless{4, nullptr};
  const int id = m_queue.id();
  EXPECT_EQ(-3, ipc_snd_internal(id, kChannel, IPC_CHUNK_SIZE, nullptr, IPC_KIND_ONEWAY));
  EXPECT_EQ(-3, ipc_snd_internal(id, kChannel, 0, &good, IPC_KIND_ONEWAY));
  EXPECT_EQ(-3, ipc_snd_internal(id, kChannel, -1, &good, IPC_KIND_ONEWAY));
  EXPECT_EQ(-3, ipc_snd_internal(id, -1, IPC_CHUNK_SIZE, &good, IPC_KIND_ONEWAY));
  EXPECT_EQ(-3, ipc_snd_internal(id, kChannel, IPC_CHUNK_SIZE, &negative, IPC_KIND_ONEWAY));
  EXPECT_EQ(-3, ipc_snd_internal(id, kChannel, IPC_CHUNK_SIZE, &textless, IPC_KIND_ONEWAY));
  EXPECT_EQ(0U, m_queue.depth());

  m_queue.send(rawRecord(kRawOneWay, "waiting"));
  int zero = 0;
  EXPECT_EQ(-3, ipc_rcv_internal(id, kChannel, IPC_CHUNK_SIZE, nullptr, &m_text, &m_capacity));
  EXPECT_EQ(-3, ipc_rcv_internal(id, kChannel, IPC_CHUNK_SIZE, &m_record, nullptr, &m_capacity));
  EXPECT_EQ(-3, ipc_rcv_internal(id, kChannel, IPC_CHUNK_SIZE, &m_record, &m_text, nullptr));
  EXPECT_EQ(-3, ipc_rcv_internal(id, kChannel, IPC_CHUNK_SIZE, &m_record, &m_text, &zero));
  EXPECT_EQ(-3, ipc_rcv_internal(id, kChannel, 0, &m_record, &m_text, &m_capacity));
  EXPECT_EQ("waiting", receiveText());
}

TEST_F(PrimitivesTest, ATextBufferThatIsMissingWhenItMustGrowIsOutOfMemory) {
  m_queue.send(rawRecord(kRawOneWay, std::string(kRawPayload, 'x')));
  char* none = nullptr;
  int capacity = static_cast<int>(kRawPayload);
  EXPECT_EQ(-4, ipc_rcv_internal(m_queue.id(), kChannel, IPC_CHUNK_SIZE, &m_record, &none, &capacity));
}

TEST_F(PrimitivesTest, AFullQueueCostsSixAttemptsAndTheRecord) {
  limitQueue(1);
  m_queue.send(rawRecord(kRawOneWay, "in the way"));
  const auto begin = std::chrono::steady_clock::now();
  OutputCapture output(stdout);
  EXPECT_EQ(0, send("dropped"));
  EXPECT_LE(std::chrono::milliseconds(300), std::chrono::steady_clock::now() - begin);
  std::string expected = kFullLine;
  for (int i = 0; i < IPC_RETRY_COUNT; ++i) expected += kResendLine;
  EXPECT_EQ(expected, output.text());
  EXPECT_EQ("in the way", m_queue.takeMessage().text);
  EXPECT_EQ(0U, m_queue.depth());
}

TEST_F(PrimitivesTest, EachRecordHasItsOwnAttempts) {
  limitQueue(1);
  m_queue.send(rawRecord(kRawOneWay, "in the way"));
  OutputCapture output(stdout);
  Concurrently sender([this] { return send(numbered(kRawPayload + 1)); });
  waitUntil("two attempts failed", [&] { return occurrences(output.text(), kResendLine) >= 2; });
  m_queue.take();
  EXPECT_EQ(0, sender.result());
  EXPECT_EQ(2, occurrences(output.text(), kFullLine));
  EXPECT_LE(2 + IPC_RETRY_COUNT, occurrences(output.text(), kResendLine));
  EXPECT_EQ(1, m_queue.take().sequence);
  EXPECT_EQ(0U, m_queue.depth());
}

TEST_F(PrimitivesTest, ARemovedQueueIsRetriedSilently) {
  m_queue.remove();
  OutputCapture output(stdout);
  EXPECT_EQ(0, send("nowhere"));
  EXPECT_EQ("", output.text());
}

TEST_F(PrimitivesTest, AMessageThatLostItsEndIsJoinedWithTheNext) {
  auto records = rawRecords(kRawOneWay, numbered(3000));
  m_queue.send(records[0]);
  m_queue.sendMessage(kRawOneWay, "next");
  EXPECT_EQ(numbered(3000).substr(0, kRawPayload) + "next", receiveText());
}

TEST_F(PrimitivesTest, AMessageLargerThanARecordIsTakenOffAndReported) {
  for (const std::size_t bytes : {kRawRecordBytes + 1, std::size_t{8000}}) {
    m_queue.sendBytes(std::string(bytes, 'x'));
    m_queue.send(rawRecord(kRawOneWay, "next"));
    OutputCapture errors(stderr);
    EXPECT_EQ(-1, receive());
    EXPECT_EQ("SERVER msgrcv res:-1, errno:7, strerror:Argument list too long\n", errors.text());
    EXPECT_EQ("next", receiveText());
  }
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

TEST_F(PrimitivesTest, ASignalAndARemovedQueueEndTheWait) {
  struct sigaction quiet {};
  quiet.sa_handler = [](int) {};
  sigaction(SIGUSR1, &quiet, nullptr);
  OutputCapture errors(stderr);
  std::atomic<pthread_t> thread{};
  {
    Concurrently receiver([&] {
      thread = pthread_self();
      return receive();
    });
    waitUntil("the wait ended", [&] {
      if (thread.load() != pthread_t{}) pthread_kill(thread, SIGUSR1);
      return receiver.returned();
    });
    EXPECT_EQ(-1, receiver.result());
  }
  EXPECT_EQ("SERVER msgrcv res:-1, errno:4, strerror:Interrupted system call\n", errors.text());

  Concurrently receiver([&] { return receive(); });
  m_queue.remove();
  EXPECT_EQ(-1, receiver.result());
}

}  // namespace
}  // namespace hbbtv_ryn::test
