/// @file
/// The message-queue channel: clients and servers that exchange texts of up to 16384 bytes over
/// System V message queues on one machine, and the two record primitives they are made of.
///
/// A queue is named by a key. Its server (the receiving side) creates the queue and owns one receive
/// thread; its client opens the queue at the first send. A queue that carries synchronous requests has
/// a reply queue at key + 1. Queues are never removed: they, and whatever lies on them, outlive both
/// processes. The data format is described in docs/protocol.md.
///
/// **A dead server never hangs a caller**, and no request gets another one's answer. A server shows its
/// life by a System V semaphore set on its queue's key, which the kernel keeps even when the process is
/// killed. A synchronous request whose server is gone returns -1 within a second, whether the server died
/// before the request, while it was handling it or between handling and answering. A server that is alive
/// is waited for without bound. This holds for channel 1 and servers of this library; any other server that
/// follows the record format is served as well, and waited for without bound. docs/reliability.md says what
/// is promised and how it is kept.
///
/// **What a host does to its threads and processes.** A *signal* whose handler runs on the waiting thread
/// ends the wait for an answer with -1; that answer, when it comes, is dropped. A *cancellation* takes
/// effect before a call of this header begins or after it has ended, never inside, and leaves no lock held
/// (ipc_rcv_internal() is the exception: it is a cancellation point). In a *forked child* a handle of the
/// parent's can be destroyed, at once and without effect on the parent; a client can also ask with it,
/// unless another thread was using it during the fork, but then only in the parent's stead: two clients of
/// one queue take each other's answers. A process may *exit* at any time.
///
/// Results are 0 for success and otherwise:
///   -1  the transfer or the reply failed, or the message exceeds IPC_MAX_MESSAGE
///   -3  a required pointer or handle is null, or a queue cannot be opened
///   -4  out of memory
///   -5  a receive thread cannot be started
/// No function lets an exception out. Both processes of one system must be built with the same size of
/// `long` and the same chunk size.
#ifndef HBBTV_RYN_IPC_H
#define HBBTV_RYN_IPC_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "hbbtv_ryn/export.h"

/// A message: the text to send, the request given to a server callback, or a reply.
struct IpcMessage {
  int32_t length;  ///< number of text bytes, without a terminating NUL
  char* text;      ///< the bytes; each operation says who owns them
};

/// What a record is for.
enum : int32_t {
  IPC_KIND_STOP = 0,     ///< ends the receive thread of the server it reaches; total_length must be 0
  IPC_KIND_ONEWAY = 1,   ///< a one-way message; nothing is sent back
  IPC_KIND_REQUEST = 2,  ///< a synchronous request, answered by a reply or a failure reply
  IPC_KIND_REPLY = 3,    ///< the answer that the server's callback gave
  IPC_KIND_FAILURE = 4,  ///< the server has no answer; the text is "a" with length 2 (letter and NUL)
};

/// The longest message text in bytes that clients send and servers answer with.
inline constexpr int IPC_MAX_MESSAGE = 16384;

/// How often a record that meets a full queue is sent again before it is dropped.
inline constexpr int IPC_RETRY_COUNT = 5;

/// The chunk size of every handle of the two endpoints: 1024, so 1025 message bytes travel per record.
inline constexpr int IPC_CHUNK_SIZE = 1024;

/// One queue record, as it stands for a chunk size of IPC_CHUNK_SIZE. For another chunk size the data
/// area has chunk size + 4 bytes; ipc_record_bytes() gives the size of the buffer to allocate.
struct IpcRecord {
  long mtype;                     ///< System V message type: the channel; a reply carries its request's
  int32_t kind;                   ///< IPC_KIND_*
  int32_t total_length;           ///< length of the whole message, the same in each of its records
  int32_t sequence;               ///< 1 in the first record of a message, one more in each following record
  int32_t last;                   ///< 1 in the final record of a message, else 0
  int32_t marker;                 ///< always 1; not read
  int32_t reserved;               ///< always 0
  int32_t chunk_length;           ///< message bytes in this record, at most chunk size + 1
  char data[IPC_CHUNK_SIZE + 4];  ///< the message bytes; the remainder is zero
};

/// Bytes that a record buffer for `chunk_size` needs: the type word, the header, chunk size + 4 of data.
constexpr std::size_t ipc_record_bytes(int chunk_size) {
  return offsetof(IpcRecord, data) + static_cast<std::size_t>(chunk_size) + 4;
}

/// The sending end of one request queue. Opaque; made by zunt_ipc_client_create().
struct IpcClient;

/// The receiving end of one request queue, with its receive thread. Opaque; made by
/// zunt_ipc_server_create().
struct IpcServer;

/// Serves one message. Called on the server's receive thread, one call at a time, in queue order.
///
/// @param request    the message; its text is NUL-terminated after `length` bytes, belongs to the server
///                   and is valid only during the call.
/// @param user_data  what was registered with the callback.
/// @return for a synchronous request: a reply made with `new`, whose `text` came from malloc() and whose
///   `length` is 0 to IPC_MAX_MESSAGE; the server sends it, then releases the text with free() and the
///   reply with `delete`. Null, or a longer reply, makes the server send its failure reply. For a one-way
///   message the result is ignored and not released, so it should be null.
///
/// The callback is not told whether it serves a request or a one-way message. It must not register or
/// unregister a callback on its own server, nor destroy it, except when it ends the process by exit() and a
/// handler of the exit does so: that has no effect on the call in progress, and releases nothing. An
/// exception that leaves it counts as a null result. It may be cancelled by zunt_ipc_server_destroy() at a
/// cancellation point; its C++ frames are then unwound.
using IpcServerCallback = IpcMessage* (*)(const IpcMessage* request, void* user_data);

/// Receives the reply of zunt_ipc_client_send_sync_with_callback(), on the calling thread.
///
/// @param reply   the reply; its text is NUL-terminated and valid only during the call.
/// @param status  always 0.
/// @return ignored.
///
/// The handler runs with the client's lock held, so it must not use the same client.
using IpcReplyHandler = int (*)(const IpcMessage* reply, int status);

// --- The record primitives -------------------------------------------------------------------------
// Neither holds state or takes a lock: the caller sees to it that a channel of a queue has one sender
// and one receiver at a time.

/// Cuts a message into records and puts them on a queue.
///
/// A record that meets a full queue is sent again up to IPC_RETRY_COUNT times, after sleeps of 50 ms
/// (300 ms in all), and is then dropped; each refusal writes a line to standard output.
///
/// @param queue_id    id of the queue, from msgget().
/// @param channel     System V message type, at least 1 (the kernel refuses 0).
/// @param chunk_size  record payload parameter, at least 1; must equal the receiver's.
/// @param message     the message; stays the caller's.
/// @param kind        IPC_KIND_* for every record of the message.
/// @return 0 when the records have been handed to the queue, even if some had to be dropped; -3 for a
///   null message, a message of negative length or without text, a chunk size below 1 or a negative
///   channel; -4 when the record buffer cannot be allocated, after a line on standard error.
///
/// Any thread may call. Blocks at most 300 ms per record. Never cancelled in mid-message.
HBBTV_RYN_EXPORT int ipc_snd_internal(int queue_id, long channel, int chunk_size, const IpcMessage* message,
                                      int kind);

/// Waits for the next message of a channel and joins its records into one NUL-terminated text.
///
/// Records that no sender of this library can have written are treated as if they had been dropped on
/// the way: a chunk_length below 0 or above chunk size + 1, or a record shorter than its header claims.
/// A message that is larger than a record is taken off the queue and reported as a failed receive.
///
/// @param queue_id        id of the queue, from msgget().
/// @param channel         only records of this System V message type are taken.
/// @param chunk_size      record payload parameter, at least 1; must equal the sender's.
/// @param[out] record     the caller's buffer of ipc_record_bytes(chunk_size) bytes. On 0 it holds the
///                        final record of the message; otherwise its content is unspecified.
/// @param[in,out] text    the caller's malloc() buffer of `*capacity` bytes, at least chunk size + 1. It
///                        may be moved by realloc(); it stays the caller's to free on every outcome. On 0
///                        it holds the joined bytes and a NUL.
/// @param[in,out] capacity  size of `*text` in bytes. On every outcome it is the buffer's true size.
/// @return 0 when a record with `last` set has been received; -1 when msgrcv() fails (a signal, the queue
///   removed) or the message was larger than a record, after a line on standard error, and the records
///   joined so far are lost; -3 for a null argument, a capacity below 1 or a chunk size below 1; -4 when
///   the text buffer cannot grow.
///
/// Any thread may call. Blocks until a message is complete. A cancellation point.
HBBTV_RYN_EXPORT int ipc_rcv_internal(int queue_id, long channel, int chunk_size, IpcRecord* record,
                                      char** text, int* capacity);

// --- Clients -----------------------------------------------------------------------------------------

/// Makes a client. Opens no queue, so it may be called before the server exists.
///
/// @param key         key of the request queue.
/// @param channel     System V message type of every record sent and every reply awaited, at least 1.
/// @param with_reply  non-zero: the client may make synchronous requests, answered on key + 1.
/// @param chunk_size  record payload parameter, at least 1; must equal the server's.
/// @param[out] client the handle when 0 is returned, to be released with zunt_ipc_client_destroy();
///                    else untouched.
/// @return 0; -3 for a null out-pointer; -4 when the handle cannot be allocated.
///
/// Any thread may call. Does not block.
HBBTV_RYN_EXPORT int zunt_ipc_client_create(key_t key, long channel, int with_reply, int chunk_size,
                                            IpcClient** client);

/// Releases a client. The queues stay as they are.
///
/// @param client  the handle; no other thread may be using it.
/// @return 0; -3 for a null handle.
///
/// Does not block.
HBBTV_RYN_EXPORT int zunt_ipc_client_destroy(IpcClient* client);

/// Sends a one-way message.
///
/// @param client   the handle.
/// @param message  1 to IPC_MAX_MESSAGE bytes; stays the caller's.
/// @return 0 when the message was handed to the queue, even if a full queue made it drop records; -3
///   for a null handle or message, a length of 0 or a queue that does not exist; -1 for a length above
///   IPC_MAX_MESSAGE, a length without a text, a chunk size below 1, or no memory for the record.
///
/// Any thread may call; calls on one handle are served one at a time. Blocks behind the other calls on
/// the handle, and up to 300 ms per record while the queue is full. A server that is gone makes no
/// difference.
HBBTV_RYN_EXPORT int zunt_ipc_client_send(IpcClient* client, const IpcMessage* message);

/// Sends a synchronous request and hands the reply to a function.
///
/// @param client   the handle, created with a reply queue.
/// @param request  1 to IPC_MAX_MESSAGE bytes; stays the caller's.
/// @param handler  called on this thread with a proper reply, not with a failure reply; may be null.
/// @return 0 after a reply of any kind, a failure reply included; -3 for a null handle or request, a
///   handle without reply queue, a chunk size of 0, a length of 0 or a queue that does not exist; -1 for
///   a length above IPC_MAX_MESSAGE, a length without a text, a queue without room for 300 ms, a wait
///   broken by a signal, an answer that was lost or has a gap, or a server that is gone; -4 out of memory
///   or threads.
///
/// Any thread may call; calls on one handle are served one at a time. Blocks until the server answers;
/// returns within a second when the server is gone. The first request starts a thread, which sleeps while
/// nothing is asked.
HBBTV_RYN_EXPORT int zunt_ipc_client_send_sync_with_callback(IpcClient* client, const IpcMessage* request,
                                                             IpcReplyHandler handler);

/// Sends a synchronous request and returns the reply.
///
/// @param client     the handle, created with a reply queue.
/// @param request    1 to IPC_MAX_MESSAGE bytes; stays the caller's.
/// @param[out] reply on 0 its `text` is a NUL-terminated malloc() buffer that the caller frees; `length` is
///                   the reply's length after a proper reply and left as it was after a failure reply (set
///                   it to 0 before the call and take 0 for failure). On -1 and -4 its `text` is null,
///                   except that a request longer than IPC_MAX_MESSAGE leaves it untouched. On -3
///                   untouched.
/// @return as zunt_ipc_client_send_sync_with_callback(); -3 also for a null `reply`.
///
/// Threads and blocking as zunt_ipc_client_send_sync_with_callback().
HBBTV_RYN_EXPORT int zunt_ipc_client_send_sync_with_params(IpcClient* client, const IpcMessage* request,
                                                           IpcMessage* reply);

// --- Servers -----------------------------------------------------------------------------------------

/// Makes a server: creates or opens its queues (mode 0666) and starts its receive thread. Messages that
/// an earlier run left on the queue are served.
///
/// The receive thread blocks every signal. A message that cannot be received costs a line on standard
/// error, one longer than 65536 bytes (with IPC_CHUNK_SIZE) is dropped whole, and the next one is served.
/// The thread ends on a stop record, on a one-way message that begins with "exit" (after the callback has
/// seen it), and when the server is destroyed.
///
/// @param key         key of the request queue.
/// @param channel     System V message type that is served, at least 1.
/// @param with_reply  non-zero: synchronous requests are answered on key + 1; else they are ignored.
/// @param chunk_size  record payload parameter, at least 1; must equal the clients'.
/// @param[out] server the handle when 0 is returned, to be released with zunt_ipc_server_destroy(); else
///                    untouched.
/// @return 0; -3 for a null out-pointer, or a queue that can be neither created nor opened; -4 out of
///   memory; -5 when the receive thread cannot be started. A server that cannot get its semaphores serves
///   without them: its clients wait for it without bound, as for one that is not of this library.
///
/// Any thread may call. Does not block.
HBBTV_RYN_EXPORT int zunt_ipc_server_create(key_t key, long channel, int with_reply, int chunk_size,
                                            IpcServer** server);

/// Stops the receive thread, after it has served what was waiting, and releases the server. A thread that
/// has not stopped within a second is cancelled. The queues stay as they are. On the receive thread itself,
/// where only an exit handler may call, it does nothing.
///
/// @param server  the handle; not to be used afterwards.
/// @return 0; -3 for a null handle.
///
/// Blocks up to a second (and 300 ms while the queue is full), and then until the callback returns or
/// reaches a cancellation point. In a forked child it does not block.
HBBTV_RYN_EXPORT int zunt_ipc_server_destroy(IpcServer* server);

/// Sets the callback and its user data together. A call in progress finishes with the old pair.
///
/// @param server     the handle.
/// @param callback   serves the messages from now on; null means none.
/// @param user_data  handed to every call; stays the caller's.
/// @return 0; -3 for a null handle.
///
/// Any thread may call, the receive thread only from an exit handler. Waits for a call in progress. In a
/// forked child it does nothing: the server serves in the parent.
HBBTV_RYN_EXPORT int zunt_ipc_server_register_callback(IpcServer* server, IpcServerCallback callback,
                                                       void* user_data);

/// Clears the callback and its user data together. From then on synchronous requests get the failure
/// reply and one-way messages are dropped.
///
/// @param server  the handle.
/// @return 0; -3 for a null handle.
///
/// Threads as zunt_ipc_server_register_callback().
HBBTV_RYN_EXPORT int zunt_ipc_server_unregister_callback(IpcServer* server);

#endif  // HBBTV_RYN_IPC_H
