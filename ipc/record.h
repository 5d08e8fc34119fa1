// Records behind the two public primitives: what arrives from a queue, and the records that only the
// channel itself exchanges.
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

// A zeroed record buffer; null when memory is out.
MallocPtr<IpcRecord> newRecord(int chunk_size);
// The same; when memory is out, after a line on standard error.
MallocPtr<IpcRecord> newRecordToSend(int chunk_size);

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
// that can arrive in good faith. Twice again is not worth keeping: the text so far is given up, and joining
// starts afresh with the next record.
inline constexpr int kJoinLimit = 65537;
static_assert(kJoinLimit > 2 * IPC_MAX_MESSAGE);

// Who reads the queue that is sent to.
class Receiver {
 public:
  virtual bool mayRead() = 0;

 protected:
  ~Receiver() = default;
};

// ipc_snd_internal() through the caller's record buffer. A receiver that may be gone is asked before each
// resend to a full queue, and the rest of the message given up (-1) when it is; null is not asked.
int sendMessage(int queue_id, long channel, int chunk_size, const IpcMessage* message, int kind,
                IpcRecord* record, Receiver* receiver);

// ipc_rcv_internal() for a client or server, bounded by kJoinLimit (-4 beyond).
int receiveMessage(int queue_id, long channel, int chunk_size, IpcRecord* record, JoinedText* text);

// The length to report for a received message: the header's total_length, unless it points outside the
// buffer; then what was really joined. Bytes between the joined text and that length are made 0.
int32_t reportedLength(const IpcRecord& record, JoinedText* text);

// Removes the waiting records of a channel, at most as many as wait now.
void discardWaiting(int queue_id, long channel);

// Whether nothing waits on the queue. An unreadable queue counts as empty.
bool isEmpty(int queue_id);

// --- Fences ------------------------------------------------------------------------------------------
// The wire carries no request number, so an answer belongs to a request by order alone. A fence restores
// the order after a request was given up or a process died in mid-sentence: a record with a token that the
// client has never used before. The server sends it back on the reply queue, behind the answers to all
// earlier requests. Only servers that say so on their semaphore are sent one (see peer_life.h).

// Outside the range of the kinds of messages, and of anything sent by accident: "ryn1" in ASCII.
inline constexpr int32_t kKindFence = 0x72796e31;

struct FenceToken {
  uint64_t value = 0;
  friend bool operator==(FenceToken a, FenceToken b) { return a.value == b.value; }
};

// Puts a fence on a queue, or gives up at once when it is full. Never blocks.
bool postFence(int queue_id, long channel, FenceToken token);

// The token, when the record is a whole fence. Reads the record alone, not the text joined before it:
// what a dead sender left unfinished in front of a fence is thereby dropped.
bool readFence(const IpcRecord& record, FenceToken* token);

// Takes records off the channel until the fence with this token comes. False when receiving failed, after
// the error line. Blocks until then.
bool awaitFence(int queue_id, long channel, int chunk_size, IpcRecord* record, FenceToken token);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_RECORD_H
