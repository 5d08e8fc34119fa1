#include "ipc/record.h"

#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <thread>

#include "base/cancellation_off.h"

namespace hbbtv_ryn {
namespace {

static_assert(offsetof(IpcRecord, kind) == sizeof(long), "the kernel reads the type word first");
static_assert(sizeof(long) != 4 || sizeof(IpcRecord) == 1060, "the record of the 32-bit target");
static_assert(recordPayloadBytes(IPC_CHUNK_SIZE) == IPC_CHUNK_SIZE + 32);

constexpr std::size_t kHeaderBytes = offsetof(IpcRecord, data) - sizeof(long);
constexpr std::chrono::milliseconds kResendPause{50};  // in full, whatever signals come

void reportReceiveError(int error) {
  std::fprintf(stderr, "SERVER msgrcv res:%d, errno:%d, strerror:%s\n", -1, error, std::strerror(error));
}

// Takes the next record of the channel. Returns its payload size, or -1 after the error line.
ssize_t takeRecord(int queue_id, long channel, std::size_t payload, IpcRecord* record) {
  const ssize_t received = msgrcv(queue_id, record, payload, channel, 0);
  if (received >= 0) return received;
  const int error = errno;
  record->kind = IPC_KIND_STOP;
  // The kernel refuses a message larger than our record and leaves it first in the queue, so every later
  // receive would fail on it too: take it off here.
  if (error == E2BIG) msgrcv(queue_id, record, payload, channel, MSG_NOERROR | IPC_NOWAIT);
  reportReceiveError(error);
  return -1;
}

// Doubles the buffer until `more` bytes and a NUL fit behind `used`. False when it cannot.
bool makeRoom(char** text, int* capacity, int used, int more, int limit) {
  while (*text == nullptr || more >= *capacity - used) {
    const int wanted = *capacity > 1 ? *capacity : more + 1;
    if (*text == nullptr || wanted > (limit - 1) / 2 + 1) return false;
    const int grown = 2 * wanted - 1;
    void* moved = std::realloc(*text, static_cast<std::size_t>(grown));
    if (moved == nullptr) return false;
    *text = static_cast<char*>(moved);
    *capacity = grown;
  }
  return true;
}

// Of a receiver that keeps no text beyond the limit, but takes the message off to its last record.
struct Bounds {
  int limit;
  bool ends_at_empty_record;
};

int joinRecords(int queue_id, long channel, int chunk_size, IpcRecord* record, char** text, int* capacity,
                const Bounds* bounds, int* joined) {
  const std::size_t payload = recordPayloadBytes(chunk_size);
  int used = 0;
  bool kept = true;
  do {
    const ssize_t received = takeRecord(queue_id, channel, payload, record);
    if (received < 0) return -1;
    if (received == 0 && bounds != nullptr && bounds->ends_at_empty_record) return -1;
    if (!isWhole(*record, static_cast<std::size_t>(received), chunk_size)) {
      record->last = 0;
      continue;
    }
    kept = kept && makeRoom(text, capacity, used, record->chunk_length, bounds ? bounds->limit : INT_MAX);
    if (!kept && bounds == nullptr) return -4;
    if (!kept) continue;
    std::memcpy(*text + used, record->data, static_cast<std::size_t>(record->chunk_length));
    used += record->chunk_length;
  } while (record->last == 0);
  if (!kept) return -4;
  (*text)[used] = '\0';
  *joined = used;
  return 0;
}

}  // namespace

bool isWhole(const IpcRecord& record, std::size_t received, int chunk_size) {
  if (received < kHeaderBytes || record.chunk_length < 0 || record.chunk_length > chunk_size + 1)
    return false;
  return static_cast<std::size_t>(record.chunk_length) <= received - kHeaderBytes;
}

MallocPtr<IpcRecord> newRecord(int chunk_size) {
  MallocPtr<IpcRecord> record(static_cast<IpcRecord*>(std::calloc(1, ipc_record_bytes(chunk_size))));
  if (!record) {
    const int error = errno;
    std::fprintf(stderr, "malloc failed, errno:%d, strerr:%s\n", error, std::strerror(error));
  }
  return record;
}

bool JoinedText::allocate(int chunk_size) {
  bytes.reset(static_cast<char*>(std::calloc(1, static_cast<std::size_t>(chunk_size) + 1)));
  capacity = bytes ? chunk_size + 1 : 0;
  return bytes != nullptr;
}

bool canBeCut(long channel, int chunk_size, const IpcMessage* message) {
  if (message == nullptr || !isChunkSize(chunk_size) || channel < 0) return false;
  return message->length >= 0 && (message->text != nullptr || message->length == 0);
}

RecordCutter::RecordCutter(long channel, int chunk_size, const IpcMessage& message, int kind,
                           IpcRecord* record)
    : message_(message), chunk_size_(chunk_size), record_(record) {
  record->mtype = channel;
  record->kind = kind;
  record->total_length = message.length;
  record->sequence = 0;
  record->last = 0;
  record->marker = 1;
  record->reserved = 0;
}

bool RecordCutter::next() {
  if (record_->last != 0) return false;
  const int chunk = std::min(chunk_size_ + 1, message_.length - cut_);
  const std::size_t area = recordPayloadBytes(chunk_size_) - kHeaderBytes;
  if (chunk > 0) std::memcpy(record_->data, message_.text + cut_, static_cast<std::size_t>(chunk));
  std::memset(record_->data + chunk, 0, area - static_cast<std::size_t>(chunk));
  cut_ += chunk;
  ++record_->sequence;
  record_->chunk_length = chunk;
  record_->last = cut_ == message_.length ? 1 : 0;
  return true;
}

bool putRecord(int queue_id, int chunk_size, const IpcRecord& record) {
  const std::size_t payload = recordPayloadBytes(chunk_size);
  if (msgsnd(queue_id, &record, payload, IPC_NOWAIT) == 0) return true;
  const bool full = errno == EAGAIN;
  std::this_thread::sleep_for(kResendPause);
  if (full) std::puts("\n###### msgsnd EAGAIN ######");
  for (int resend = 0; resend < IPC_RETRY_COUNT; ++resend) {
    std::this_thread::sleep_for(kResendPause);
    if (msgsnd(queue_id, &record, payload, IPC_NOWAIT) == 0) return true;
    if (errno == EAGAIN) std::puts("\n###### resend msgsnd EAGAIN ######");
  }
  return false;
}

Sent sendMessage(int queue_id, long channel, int chunk_size, const IpcMessage* message, int kind,
                 IpcRecord* record) {
  if (!canBeCut(channel, chunk_size, message)) return Sent::kRefused;
  Sent sent = Sent::kWhole;
  RecordCutter records(channel, chunk_size, *message, kind, record);
  while (records.next()) {
    if (!putRecord(queue_id, chunk_size, *record)) sent = Sent::kWithGaps;
  }
  return sent;
}

int receiveMessage(int queue_id, long channel, int chunk_size, IpcRecord* record, JoinedText* text,
                   bool ends_at_empty_record) {
  char* bytes = text->bytes.release();
  // Cancellation unwinds this frame while msgrcv() waits: the buffer must find its owner again.
  struct GiveBack {
    JoinedText* text;
    char** bytes;
    ~GiveBack() { text->bytes.reset(*bytes); }
  } give_back{text, &bytes};
  const Bounds bounds{std::max(kJoinLimit, 2 * chunk_size + 1), ends_at_empty_record};
  return joinRecords(queue_id, channel, chunk_size, record, &bytes, &text->capacity, &bounds,
                     &text->length);
}

int32_t reportedLength(const IpcRecord& record, JoinedText* text) {
  if (record.total_length < 0 || record.total_length >= text->capacity) return text->length;
  if (record.total_length > text->length) {
    std::memset(text->bytes.get() + text->length, 0,
                static_cast<std::size_t>(record.total_length - text->length) + 1);
  }
  return record.total_length;
}

void discardWaiting(int queue_id, long channel) {
  msqid_ds queue{};
  if (msgctl(queue_id, IPC_STAT, &queue) != 0) return;
  long type = 0;
  for (msgqnum_t waiting = queue.msg_qnum; waiting > 0; --waiting) {
    if (msgrcv(queue_id, &type, 0, channel, IPC_NOWAIT | MSG_NOERROR) < 0) return;
  }
}

bool hasBeenSentTo(int queue_id) {
  msqid_ds queue{};
  // The time alone would do, did it not start at 0; the process is 0 when it is of another pid namespace.
  return msgctl(queue_id, IPC_STAT, &queue) != 0 || queue.msg_stime != 0 || queue.msg_lspid != 0;
}

bool hasWaiting(int queue_id, long channel) {
  long type = 0;
  return msgrcv(queue_id, &type, 0, channel, IPC_NOWAIT) >= 0 || errno == E2BIG;
}

}  // namespace hbbtv_ryn

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

int ipc_snd_internal(int queue_id, long channel, int chunk_size, const IpcMessage* message, int kind) {
  if (!canBeCut(channel, chunk_size, message)) return -3;
  const CancellationOff off;  // half a message would be joined with the next one
  const auto record = newRecord(chunk_size);
  if (!record) return -4;
  sendMessage(queue_id, channel, chunk_size, message, kind, record.get());
  return 0;
}

int ipc_rcv_internal(int queue_id, long channel, int chunk_size, IpcRecord* record, char** text,
                     int* capacity) {
  if (record == nullptr || text == nullptr || capacity == nullptr) return -3;
  if (*capacity < 1 || !isChunkSize(chunk_size)) return -3;
  int joined = 0;
  return joinRecords(queue_id, channel, chunk_size, record, text, capacity, nullptr, &joined);
}
