#include "torture/hostile_writer.h"

#include <sys/msg.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <random>
#include <string>

#include "ipc/protocol/catalogue.h"
#include "ipc/protocol/queues.h"
#include "ipc/record.h"
#include "support/raw_peer.h"
#include "torture/ledger.h"

namespace hbbtv_ryn::test {
namespace {

constexpr std::size_t kLargestMessage = 8192;  // what the kernel lets on a queue, unless told otherwise

// A message as the kernel sees it.
struct Datagram {
  long type = kChannel;
  char body[kLargestMessage] = {};
  std::size_t bytes = 0;

  Datagram() = default;
  explicit Datagram(const RawRecord& record, std::size_t size = kRawRecordBytes) : bytes(size) {
    std::memcpy(body, &record.kind, std::min(size, kRawRecordBytes));
  }
};

class HostileWriter {
 public:
  HostileWriter(Ledger& ledger, uint64_t seed) : m_ledger(ledger), m_engine(seed) {
    for (const key_t key : {kRequestQueueKey, kNotificationQueueKey, kQueryQueueKey}) {
      m_queues[m_queue_count++] = RawQueue(key).id();
    }
  }

  [[noreturn]] void run() {
    for (;;) {
      m_ledger.hostile_writing = true;
      const Phase phase = m_ledger.phase;
      if (phase == Phase::kMalformed || phase == Phase::kAnything) {
        m_queue = m_queues[below(static_cast<int>(m_queue_count))];
        for (int i = below(200); i >= 0 && phase == m_ledger.phase; --i) {
          phase == Phase::kAnything&& below(2) == 0 ? writeAnswerable() : writeMalformed();
        }
        m_ledger.hostile_writing = false;
        usleep(static_cast<useconds_t>(below(3000)));
      } else {
        m_ledger.hostile_writing = false;
        usleep(1000);
      }
    }
  }

 private:
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_engine); }
  int anyInt() {
    constexpr int kTelling[] = {0, 1, 2, -1, 1024, 1025, 1026, 16384, 16385, 65537, INT_MAX, INT_MIN};
    if (below(3) == 0) return std::uniform_int_distribution<int>(INT_MIN, INT_MAX)(m_engine);
    return kTelling[below(static_cast<int>(std::size(kTelling)))];
  }

  void put(const Datagram& datagram) {
    if (msgsnd(m_queue, &datagram, datagram.bytes, IPC_NOWAIT) == 0) {
      ++m_ledger.hostile;
    } else {
      usleep(200);  // full: let the receiver have its turn
    }
  }
  void put(const RawRecord& record) { put(Datagram(record)); }

  int someKind() {
    const int kind = below(3) == 0 ? anyInt() : 1 + below(4);
    return kind == kRawStop ? kRawRequest : kind;
  }

  // Never the beginning of JSON, so that whatever is joined to it is none either.
  std::string junk(int length) {
    std::string text(static_cast<std::size_t>(length), '\1');
    for (std::size_t i = 1; i < text.size(); ++i) text[i] = static_cast<char>(below(256));
    return text;
  }

  void writeMalformed() {
    switch (below(8)) {
      case 0:
        return writeLyingHeader();
      case 1:
        return writeOddSize();
      case 2:
        return writeWithoutEnd();
      case 3:
        return writeDeepJson();
      case 4:
        return writeWrongTypes();
      case 5:
        return writeForgedFence();
      case 6:
        return put(rawRecord(someKind(), junk(below(kRawPayload))));
      default: {
        RawRecord stop_with_text;
        stop_with_text.kind = kRawStop;
        stop_with_text.total_length = 1 + below(1000);
        return put(stop_with_text);
      }
    }
  }

  void writeLyingHeader() {
    RawRecord record = rawRecord(someKind(), junk(1 + below(kRawPayload)));
    record.total_length = anyInt();
    if (record.kind == kRawStop && record.total_length == 0) return;
    record.sequence = anyInt();
    record.last = below(2) == 0 ? 1 : anyInt();
    record.marker = anyInt();
    record.reserved = anyInt();
    record.chunk_length = below(2) == 0 ? record.chunk_length : anyInt();
    put(record);
  }

  // A record cut short, or with more behind it than a record may hold.
  void writeOddSize() {
    const RawRecord record = rawRecord(someKind(), junk(1000));
    put(Datagram(record, static_cast<std::size_t>(below(2) == 0
                                                      ? below(kRawRecordBytes)
                                                      : static_cast<int>(kRawRecordBytes) +
                                                            below(kLargestMessage - kRawRecordBytes + 1))));
  }

  void writeWithoutEnd() {
    RawRecord record = rawRecord(kRawRequest, junk(kRawPayload));
    record.last = 0;
    for (int i = below(150); i >= 0; --i) put(record);
  }

  void writeDeepJson() {
    const std::string opening = below(2) == 0 ? "[" : R"({"t":)";
    std::string text;
    for (int depth = below(10000); depth >= 0 && text.size() < 16000; --depth) text += opening;
    for (const RawRecord& record : rawRecords(1 + below(2), text)) put(record);
  }

  void writeWrongTypes() {
    constexpr const char* kTexts[] = {
        R"({"t":"216","appid":1,"orgid":2})",
        R"({"t":[216]})",
        R"({"t":{"t":216}})",
        R"({"t":1e300})",
        R"({"t":216,"appid":"5","orgid":{}})",
        R"({"t":245,"appid":[],"orgid":1})",
        R"({"t":247,"mtype":{"a":1}})",
        R"({"t":234,"keynum":1e99,"value":0})",
        R"([216])",
        R"("t")",
        R"(216)",
        R"({"t":209,"appid":99999999999,"url":[]})",
        R"({"t":235,"appid":1,"orgid":2,"code":"x"})",
    };
    put(rawRecord(1 + below(2), kTexts[below(static_cast<int>(std::size(kTexts)))]));
  }

  void writeForgedFence() {
    RawRecord record = rawRecord(kKindFence, junk(sizeof(FenceToken)));
    put(record);
  }

  void writeAnswerable() {
    const Message& message = kMessages[below(static_cast<int>(std::size(kMessages)))];
    std::string text = "{\"t\":" + std::to_string(static_cast<int>(message.code));
    for (const Member& member : message.request) {
      const std::string value = member.type == Type::kString && below(8) != 0
                                    ? '"' + std::string(static_cast<std::size_t>(below(250)), 'h') + '"'
                                    : std::to_string(anyInt());
      text += ",\"" + std::string(member.key) + "\":" + value;
    }
    RawRecord record =
        rawRecord(message.delivery == Delivery::kSync ? kRawRequest : 1 + below(2), text + '}');
    record.last = below(4) == 0 ? 0 : 1;
    put(record);
  }

  Ledger& m_ledger;
  std::mt19937_64 m_engine;
  int m_queues[3] = {};
  std::size_t m_queue_count = 0;
  int m_queue = -1;
};

}  // namespace

const ChildRole kHostileWriter("hostile writer", [](Parent& parent) {
  HostileWriter(openLedger(parent.argument(0)), std::stoull(parent.argument(1))).run();
  return 0;
});

}  // namespace hbbtv_ryn::test
