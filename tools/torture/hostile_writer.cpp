#include <unistd.h>

#include <climits>
#include <iterator>
#include <string>

#include "ipc/protocol/catalogue.h"
#include "tools/support/raw_peer.h"
#include "tools/torture/ledger.h"
#include "tools/torture/random.h"
#include "tools/torture/roles.h"

namespace hbbtv_ryn::test {
namespace {

class HostileWriter {
 public:
  HostileWriter(Ledger& ledger, uint64_t seed) : ledger_(ledger), random_(seed) {}

  [[noreturn]] void run() {
    for (;;) {
      // Before the phase is read, so that who sets another sees that the writing has not yet ended.
      ledger_.hostile_writing = true;
      const Phase phase = ledger_.phase;
      const bool hostile = phase == Phase::kMalformed || phase == Phase::kAnything;
      queue_ = &queues_[random_.below(std::size(queues_))];
      for (int i = hostile ? random_.below(200) : -1; i >= 0 && phase == ledger_.phase; --i) {
        phase == Phase::kAnything&& random_.oneIn(2) ? writeAnswerable() : writeMalformed();
      }
      ledger_.hostile_writing = false;
      usleep(random_.below(3000U));
    }
  }

 private:
  int anyInt() {
    constexpr int kTelling[] = {0, 1, 2, -1, 1024, 1025, 1026, 16384, 16385, 65537, INT_MAX, INT_MIN};
    return random_.oneIn(3) ? static_cast<int>(random_.number())
                            : kTelling[random_.below(std::size(kTelling))];
  }
  int someKind() {
    const int kind = random_.oneIn(3) ? anyInt() : 1 + random_.below(4);
    return kind == IPC_KIND_STOP ? IPC_KIND_REQUEST : kind;
  }
  // Never the beginning of JSON, so that whatever is joined to it is none either.
  std::string junk(std::size_t length) {
    std::string text(length, '\1');
    for (std::size_t i = 1; i < length; ++i) text[i] = static_cast<char>(random_.below(256));
    return text;
  }

  void put(const IpcRecord& record, std::size_t bytes = kRawRecordBytes) {
    if (queue_->trySend(record, bytes)) {
      ++ledger_.hostile;
    } else {
      usleep(200);  // full: let the receiver have its turn
    }
  }
  void putText(const std::string& text) {
    for (const IpcRecord& record : rawRecords(1 + random_.below(2), text)) put(record);
  }

  void writeMalformed() {
    IpcRecord record = rawRecord(someKind(), junk(random_.below(kRawPayload)));
    switch (random_.below(9)) {
      case 0:  // a header that lies
        record.total_length = anyInt();
        record.sequence = anyInt();
        record.last = random_.oneIn(2) ? 1 : anyInt();
        record.marker = anyInt();
        record.reserved = anyInt();
        record.chunk_length = random_.oneIn(2) ? record.chunk_length : anyInt();
        break;
      case 1:  // cut short
        return put(record, random_.below(kRawRecordBytes));
      case 2:  // more than a record may hold, up to the kernel's limit
        ++ledger_.hostile;
        return queue_->sendBytes(junk(kRawRecordBytes + 1 + random_.below(8192 - kRawRecordBytes)));
      case 3:  // a message without an end
        record.last = 0;
        for (int i = random_.below(150); i > 0; --i) put(record);
        break;
      case 4:
        return writeNestedWithoutEnd(random_.oneIn(2) ? "[" : R"({"t":)");
      case 5:
        return writeWrongTypes();
      case 6:
        record = rawRecord(IPC_KIND_FAILURE, "");
        break;
      case 7:  // a stop record that is none, for it has a text
        record.kind = IPC_KIND_STOP;
        record.total_length = 1 + random_.below(1000);
        break;
      default:  // plain junk
        break;
    }
    put(record);
  }

  void writeNestedWithoutEnd(const std::string& opening) {
    std::string text;
    for (int depth = random_.below(10000); depth >= 0 && text.size() < 16000; --depth) text += opening;
    putText(text);
  }

  void writeWrongTypes() {
    constexpr const char* kTexts[] = {
        R"({"t":"216","appid":1,"orgid":2})",
        R"({"t":{"t":[216]}})",
        R"({"t":1e300})",
        R"({"t":216,"appid":"5","orgid":{}})",
        R"({"t":247,"mtype":{"a":1}})",
        R"({"t":234,"keynum":1e99,"value":0})",
        R"([216])",
        R"({"t":209,"appid":99999999999,"url":[]})",
        R"({"t":235,"appid":1,"orgid":2,"code":"x"})",
    };
    putText(kTexts[random_.below(std::size(kTexts))]);
  }

  void writeAnswerable() {
    const Message& message = kMessages[random_.below(std::size(kMessages))];
    std::string text = "{\"t\":" + std::to_string(static_cast<int>(message.code));
    for (const Member& member : message.request) {
      const bool right_type = member.type == Type::kString && !random_.oneIn(8);
      const std::string value =
          right_type ? '"' + std::string(random_.below(250U), 'h') + '"' : std::to_string(anyInt());
      text += ",\"" + std::string(member.key) + "\":" + value;
    }
    IpcRecord record = rawRecord(
        message.delivery == Delivery::kSync ? IPC_KIND_REQUEST : 1 + random_.below(2), text + '}');
    record.last = random_.oneIn(4) ? 0 : 1;
    put(record);
  }

  Ledger& ledger_;
  Random random_;
  RawQueue queues_[3] = {RawQueue(kRequestKey), RawQueue(kNotificationKey), RawQueue(kQueryKey)};
  RawQueue* queue_ = queues_;
};

}  // namespace

const ChildRole kHostileWriter("hostile writer", [](Parent& parent) {
  HostileWriter(openLedger(parent.argument(0)), std::stoull(parent.argument(1))).run();
  return 0;
});

}  // namespace hbbtv_ryn::test
