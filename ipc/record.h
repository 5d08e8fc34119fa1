/// @file
/// Records behind the two public primitives.
#ifndef HBBTV_RYN_IPC_RECORD_H
#define HBBTV_RYN_IPC_RECORD_H

#include <climits>
#include <cstdint>

#include "base/malloc_ptr.h"
#include "hbbtv_ryn/ipc.h"

namespace hbbtv_ryn {

// Key of the reply queue: the next one, for a key at the end of the range too.
constexpr key_t replyKey(key_t key) {
  return static_cast<key_t>(static_cast<uint32_t>(key) + 1U);
}

// Bytes that msgsnd() and msgrcv() are told: everything behind the type word.
constexpr std::size_t recordPayloadBytes(int chunk_size) {
  return ipc_record_bytes(chunk_size) - sizeof(long);
}

constexpr bool isChunkSize(int chunk_size) {
  return chunk_size > 0 && chunk_size < INT_MAX / 2;
}

// Whether the record keeps its own promises: any process may write to the queue.
// @param received  what msgrcv() said: bytes behind the type word.
bool isWhole(const IpcRecord& record, std::size_t received, int chunk_size);

// A zeroed record buffer; null when memory is out, after a line on standard error.
MallocPtr<IpcRecord> newRecord(int chunk_size);

// A text that grows while records are joined to it. It is malloc() memory because a client hands it out.
struct JoinedText {
  MallocPtr<char> bytes;
  int capacity = 0;
  int length = 0;  // bytes joined, without the NUL

  // Makes a zeroed buffer of the size that receiving starts with. False when memory is out.
  bool allocate(int chunk_size);
};

// The largest text that a client or a server joins, in bytes with its NUL. A sender of this library sends
// at most IPC_MAX_MESSAGE; a message whose final record was dropped is joined with the next one, so twice
// that can arrive in good faith. What grows beyond twice that is dropped, to its last record.
inline constexpr int kJoinLimit = 65537;
static_assert(kJoinLimit > 2 * IPC_MAX_MESSAGE);

// Cuts a message into its records, one after the other in the same buffer. The message and the buffer must
// outlive it.
class RecordCutter {
 public:
  RecordCutter(long channel, int chunk_size, const IpcMessage& message, int kind, IpcRecord* record);
  // Makes the buffer hold the next record. False after the last one.
  bool next();

 private:
  const IpcMessage message_;
  const int chunk_size_;
  IpcRecord* const record_;
  int cut_ = 0;  // bytes of the message in the records so far
};

// Whether a message can be cut at all: there is a text where there should be one, and the sizes make sense.
bool canBeCut(long channel, int chunk_size, const IpcMessage* message);

// One attempt and its resends. False when the record has found no room: it is dropped, since the sender
// must not hang on a receiver that has stopped reading. Blocks up to 300 ms.
bool putRecord(int queue_id, int chunk_size, const IpcRecord& record);

enum class Sent { kWhole, kWithGaps, kRefused };

// ipc_snd_internal() through the caller's record buffer; refused is what cannot be cut.
Sent sendMessage(int queue_id, long channel, int chunk_size, const IpcMessage* message, int kind,
                 IpcRecord* record);

// ipc_rcv_internal() for a client or server: a text that cannot be kept, for its length (kJoinLimit) or for
// want of memory, is taken off to its last record (-4). A record of 0 bytes, which no message has, can end
// the wait (-1). On -1 the record's kind is that of a message which was larger than a record, or
// IPC_KIND_STOP.
int receiveMessage(int queue_id, long channel, int chunk_size, IpcRecord* record, JoinedText* text,
                   bool ends_at_empty_record);

// The length to report for a received message: the header's total_length, unless it points outside the
// buffer; then what was really joined. Bytes between the joined text and that length are made 0.
int32_t reportedLength(const IpcRecord& record, JoinedText* text);

// Removes the waiting records of a channel, at most as many as wait now.
void discardWaiting(int queue_id, long channel);

// Whether anybody has ever put a record on the queue. True when it cannot be told.
bool hasBeenSentTo(int queue_id);

// Whether a record of the channel waits. Takes none, save one of 0 bytes, which is nobody's.
bool hasWaiting(int queue_id, long channel);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_RECORD_H
