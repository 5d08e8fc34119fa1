#include "ipc/record.h"

#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace hbbtv_ryn {
namespace {

static_assert(offsetof(IpcRecord, kind) == sizeof(long), "the kernel reads the type word first");
static_assert(sizeof(long) != 4 || sizeof(IpcRecord) == 1060, "the record of the 32-bit target");
static_assert(recordPayloadBytes(IPC_CHUNK_SIZE) == IPC_CHUNK_SIZE + 32);

constexpr std::size_t kHeaderBytes = offsetof(IpcRecord, data) - sizeof(long);
constexpr useconds_t kResendPauseMicroseconds = 50000;

// One attempt and its resends. A record that still finds no room is dropped: the sender must not hang on
// a receiver that has stopped reading. False when `receiver` says that a resend is in vain.
bool sendOrDrop(int queue_id, const IpcRecord& record, std::size_t payload, Receiver* receiver) {
  if (msgsnd(queue_id, &record, payload, IPC_NOWAIT) == 0) return true;
  const bool full = errno == EAGAIN;
  usleep(kResendPauseMicroseconds);
  if (full) std::puts("\n###### msgsnd EAGAIN ######");
  for (int resend = 0; resend < IPC_RETRY_COUNT; ++resend) {
    usleep(kResendPauseMicroseconds);
    if (receiver != nullptr && !receiver->mayRead()) return false;
    if (msgsnd(queue_id, &record, payload, IPC_NOWAIT) == 0) return true;
    if (errno == EAGAIN) std::puts("\n###### resend msgsnd EAGAIN ######");
  }
  return true;
}

void reportReceiveError(int error) {
  std::fprintf(stderr, "SERVER msgrcv res:%d, errno:%d, strerror:%s\n", -1, error, std::strerror(error));
}

// Takes the next record of the channel. Returns its payload size, or -1 after the error line.
ssize_t takeRecord(int queue_id, long channel, std::size_t payload, IpcRecord* record) {
  const ssize_t received = msgrcv(queue_id, record, payload, channel, 0);
  if (received >= 0) return received;
  const int error = errno;
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

int joinRecords(int queue_id, long channel, int chunk_size, IpcRecord* record, char** text, int* capacity,
                int limit, int* joined) {
  const std::size_t payload = recordPayloadBytes(chunk_size);
  int used = 0;
  for (;;) {
    const ssize_t received = takeRecord(queue_id, channel, payload, record);
    if (received < 0) return -1;
    if (!isWhole(*record, static_cast<std::size_t>(received), chunk_size)) continue;
    if (!makeRoom(text, capacity, used, record->chunk_length, limit)) return -4;
    std::memcpy(*text + used, record->data, static_cast<std::size_t>(record->chunk_length));
    used += record->chunk_length;
    if (record->last != 0) break;
  }
  (*text)[used] = '\0';
  *joined = used;
  return 0;
}

struct FenceRecord {
  long mtype;
  int32_t kind, total_length, sequence, last, marker, reserved, chunk_length;
  char data[sizeof(FenceToken)];
};
static_assert(offsetof(FenceRecord, data) == offsetof(IpcRecord, data));
constexpr std::size_t kFencePayloadBytes = kHeaderBytes + sizeof(FenceToken);

}  // namespace

bool isWhole(const IpcRecord& record, std::size_t received, int chunk_size) {
  if (received < kHeaderBytes || record.chunk_length < 0 || record.chunk_length > chunk_size + 1)
    return false;
  return static_cast<std::size_t>(record.chunk_length) <= received - kHeaderBytes;
}

MallocPtr<IpcRecord> newRecord(int chunk_size) {
  return MallocPtr<IpcRecord>(static_cast<IpcRecord*>(std::calloc(1, ipc_record_bytes(chunk_size))));
}

MallocPtr<IpcRecord> newRecordToSend(int chunk_size) {
  auto record = newRecord(chunk_size);
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

int sendMessage(int queue_id, long channel, int chunk_size, const IpcMessage* message, int kind,
                IpcRecord* record, Receiver* receiver) {
  if (message == nullptr || !isChunkSize(chunk_size) || channel < 0) return -3;
  if (message->length < 0 || (message->text == nullptr && message->length > 0)) return -3;
  record->mtype = channel;
  record->kind = kind;
  record->total_length = message->length;
  record->sequence = 0;
  record->last = 0;
  record->marker = 1;
  record->reserved = 0;
  const int full_chunk = chunk_size + 1;
  const std::size_t payload = recordPayloadBytes(chunk_size);
  for (int sent = 0; record->last == 0;) {
    const int chunk = std::min(full_chunk, message->length - sent);
    if (chunk > 0) std::memcpy(record->data, message->text + sent, static_cast<std::size_t>(chunk));
    std::memset(record->data + chunk, 0, payload - kHeaderBytes - static_cast<std::size_t>(chunk));
    sent += chunk;
    ++record->sequence;
    record->chunk_length = chunk;
    record->last = sent == message->length ? 1 : 0;
    if (!sendOrDrop(queue_id, *record, payload, receiver)) return -1;
  }
  return 0;
}

int receiveMessage(int queue_id, long channel, int chunk_size, IpcRecord* record, JoinedText* text) {
  char* bytes = text->bytes.release();
  // Cancellation unwinds this frame while msgrcv() waits: the buffer must find its owner again.
  struct GiveBack {
    JoinedText* text;
    char** bytes;
    ~GiveBack() { text->bytes.reset(*bytes); }
  } give_back{text, &bytes};
  return joinRecords(queue_id, channel, chunk_size, record, &bytes, &text->capacity,
                     std::max(kJoinLimit, 2 * chunk_size + 1), &text->length);
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
  FenceRecord record;
  for (msgqnum_t waiting = queue.msg_qnum; waiting > 0; --waiting) {
    if (msgrcv(queue_id, &record, kFencePayloadBytes, channel, IPC_NOWAIT | MSG_NOERROR) < 0) return;
  }
}

bool isEmpty(int queue_id) {
  msqid_ds queue{};
  return msgctl(queue_id, IPC_STAT, &queue) != 0 || queue.msg_qnum == 0;
}

bool postFence(int queue_id, long channel, FenceToken token) {
  FenceRecord record{channel, kKindFence, sizeof token, 1, 1, 1, 0, sizeof token, {}};
  std::memcpy(record.data, &token, sizeof token);
  return msgsnd(queue_id, &record, kFencePayloadBytes, IPC_NOWAIT) == 0;
}

bool awaitFence(int queue_id, long channel, int chunk_size, IpcRecord* record, FenceToken token) {
  FenceToken arrived;
  for (;;) {
    // The records in front of the fence are dropped whatever their size: their tails are of no interest.
    const ssize_t received = msgrcv(queue_id, record, recordPayloadBytes(chunk_size), channel, MSG_NOERROR);
    if (received < 0) {
      reportReceiveError(errno);
      return false;
    }
    if (!isWhole(*record, static_cast<std::size_t>(received), chunk_size)) continue;
    if (readFence(*record, &arrived) && arrived == token) return true;
  }
}

bool readFence(const IpcRecord& record, FenceToken* token) {
  if (record.kind != kKindFence || record.last != 1 || record.chunk_length != sizeof *token) return false;
  std::memcpy(token, record.data, sizeof *token);
  return true;
}

}  // namespace hbbtv_ryn

using hbbtv_ryn::isChunkSize;

int ipc_snd_internal(int queue_id, long channel, int chunk_size, const IpcMessage* message, int kind) {
  if (message == nullptr || !isChunkSize(chunk_size) || channel < 0) return -3;
  const auto record = hbbtv_ryn::newRecordToSend(chunk_size);
  if (!record) return -4;
  return hbbtv_ryn::sendMessage(queue_id, channel, chunk_size, message, kind, record.get(), nullptr);
}

int ipc_rcv_internal(int queue_id, long channel, int chunk_size, IpcRecord* record, char** text,
                     int* capacity) {
  if (record == nullptr || text == nullptr || capacity == nullptr) return -3;
  if (*capacity < 1 || !isChunkSize(chunk_size)) return -3;
  int joined = 0;
  return hbbtv_ryn::joinRecords(queue_id, channel, chunk_size, record, text, capacity, INT_MAX, &joined);
}
