#include "ipc/server.h"

#include <pthread.h>
#include <sched.h>
#include <sys/msg.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "base/cancellation_off.h"
#include "base/fork_count.h"
#include "base/host_call.h"
#include "base/signal_free_thread.h"
#include "ipc/peer_life.h"
#include "ipc/record.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definition of a public type

namespace {

constexpr int kQueueMode = IPC_CREAT | 0666;
// How long destroying waits for the thread to see the stop record before it is cancelled.
constexpr std::chrono::seconds kStopPatience{1};

char kFailureText[] = "a";
constexpr IpcMessage kFailureReply{sizeof kFailureText, kFailureText};

struct ReplyDeleter {
  void operator()(IpcMessage* reply) const {
    std::free(reply->text);
    delete reply;
  }
};
using ReplyPtr = std::unique_ptr<IpcMessage, ReplyDeleter>;

}  // namespace

struct IpcServer {
 public:
  // The callback is taken without the lock: the caller may hold one of its own that the callback will want.
  IpcServer(key_t key, long channel, bool with_reply, int chunk_size, ServeCallback callback,
            void* user_data)
      : key_(key),
        channel_(channel),
        with_reply_(with_reply),
        chunk_size_(chunk_size),
        kind_callback_(callback),
        user_data_(user_data) {}

  // Opens the queues and starts the thread. The result is that of zunt_ipc_server_create().
  int start();
  // Ends the thread. To be called once, after start() has succeeded. False on that thread itself, which
  // goes on: a handler ends the process.
  bool stop();
  void setCallback(IpcServerCallback callback, void* user_data);

 private:
  enum class Next { kReceive, kStop };

  bool begin();
  bool isOnItsThread() const { return pthread_equal(pthread_self(), receiver_) != 0; }
  void receiveLoop();
  Next serve(IpcRecord* record, JoinedText* text);
  Next serveOneWay(const IpcMessage& message);
  void serveRequest(const IpcMessage& request, IpcRecord* record);
  bool answer(const IpcMessage& reply, int kind, IpcRecord* record);
  ReplyPtr call(const IpcMessage& message, int32_t kind) const;
  void leave();

  const key_t key_;
  const long channel_;
  const bool with_reply_;
  const int chunk_size_;

  // Fixed once the receive thread has begun.
  int request_queue_ = -1;
  int reply_queue_ = -1;
  pthread_t thread_{};
  const unsigned forks_ = forkCount();
  ServerLife life_;  // ended by the receive thread: nobody answers once it is gone

  // Guards what the receive thread tells of its beginning and end.
  std::mutex end_lock_;
  std::condition_variable changed_;
  bool began_ = false;
  bool running_ = true;
  pthread_t receiver_{};  // fixed once it has begun

  // Guards the callback, of either form, and its user data. Held during every call and the sending of its
  // reply.
  std::mutex lock_;
  ServeCallback kind_callback_;
  IpcServerCallback callback_ = nullptr;
  void* user_data_;
};

int IpcServer::start() {
  if (createSignalFreeThread<&IpcServer::receiveLoop>(&thread_, this) != 0) return -5;
  {
    std::unique_lock<std::mutex> guard(end_lock_);
    changed_.wait(guard, [this] { return began_ || !running_; });
    if (began_) return 0;
  }
  pthread_join(thread_, nullptr);
  return -3;
}

// On the receive thread. False when a queue cannot be had.
bool IpcServer::begin() {
  // What the kernel takes back is then this thread's alone, and is taken back also when the process goes on
  // as another program.
  unshare(CLONE_SYSVSEM);
  // Before the queues: a client that finds them must not find the server dead.
  if (channel_ == kProtectedChannel) life_.begin(key_);
  request_queue_ = msgget(key_, kQueueMode);
  if (request_queue_ < 0) return false;
  if (with_reply_) reply_queue_ = msgget(replyKey(key_), kQueueMode);
  if (with_reply_ && reply_queue_ < 0) return false;
  const std::lock_guard<std::mutex> guard(end_lock_);
  receiver_ = pthread_self();
  began_ = true;
  changed_.notify_one();
  return true;
}

bool IpcServer::stop() {
  if (forks_ != forkCount()) return true;  // the thread is the parent's, who goes on serving
  if (isOnItsThread()) return false;
  constexpr IpcMessage kStop{0, nullptr};
  ipc_snd_internal(request_queue_, channel_, chunk_size_, &kStop, IPC_KIND_STOP);
  {
    std::unique_lock<std::mutex> guard(end_lock_);
    if (!changed_.wait_for(guard, kStopPatience, [this] { return !running_; })) pthread_cancel(thread_);
  }
  pthread_join(thread_, nullptr);
  return true;
}

void IpcServer::setCallback(IpcServerCallback callback, void* user_data) {
  // In a forked child nobody calls it, and the parent's thread may have held the lock.
  if (forks_ != forkCount()) return;
  // A handler that ends the process has the lock.
  const auto guard = isOnItsThread() ? std::unique_lock<std::mutex>() : std::unique_lock<std::mutex>(lock_);
  kind_callback_ = nullptr;
  callback_ = callback;
  user_data_ = user_data;
}

void IpcServer::receiveLoop() {
  // Also when the thread is cancelled.
  struct Leave {
    IpcServer* server;
    ~Leave() { server->leave(); }
  } leave_at_end{this};
  if (!begin() || !isChunkSize(chunk_size_)) return;
  const auto record = newRecord(chunk_size_);
  JoinedText text;
  if (!record || !text.allocate(chunk_size_)) return;
  Next next = Next::kReceive;
  while (next == Next::kReceive) {
    const int received = receiveMessage(request_queue_, channel_, chunk_size_, record.get(), &text, false);
    if (received == 0) {
      next = serve(record.get(), &text);
    } else if (record->kind == IPC_KIND_REQUEST) {
      life_.noteLoss();
    }
  }
}

IpcServer::Next IpcServer::serve(IpcRecord* record, JoinedText* text) {
  if (record->kind == IPC_KIND_STOP) return record->total_length == 0 ? Next::kStop : Next::kReceive;
  if (record->last != 1) return Next::kReceive;
  const IpcMessage message{reportedLength(*record, text), text->bytes.get()};
  if (record->kind == IPC_KIND_ONEWAY) return serveOneWay(message);
  if (record->kind == IPC_KIND_REQUEST) {
    // Served, as the format says; but its requester must not take the answer for one to the whole of it.
    if (text->length != record->total_length) life_.noteLoss();
    serveRequest(message, record);
  }
  return Next::kReceive;
}

IpcServer::Next IpcServer::serveOneWay(const IpcMessage& message) {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    // A callback cannot know that its answer is not wanted; what it returns stays its own.
    static_cast<void>(call(message, IPC_KIND_ONEWAY).release());
  }
  constexpr char kExit[] = "exit";
  return std::strncmp(message.text, kExit, sizeof kExit - 1) == 0 ? Next::kStop : Next::kReceive;
}

// The record is the request's final one, and becomes the reply's.
void IpcServer::serveRequest(const IpcMessage& request, IpcRecord* record) {
  if (!with_reply_) {
    life_.noteLoss();
    return;
  }
  const std::lock_guard<std::mutex> guard(lock_);
  const ReplyPtr reply = call(request, IPC_KIND_REQUEST);
  if (reply && reply->length <= IPC_MAX_MESSAGE && answer(*reply, IPC_KIND_REPLY, record)) return;
  answer(kFailureReply, IPC_KIND_FAILURE, record);
}

// False when the reply is none.
bool IpcServer::answer(const IpcMessage& reply, int kind, IpcRecord* record) {
  const auto sent = sendMessage(reply_queue_, record->mtype, chunk_size_, &reply, kind, record);
  if (sent == Sent::kWithGaps) life_.noteLoss();
  return sent != Sent::kRefused;
}

// The callback's answer; null also when there is no callback or it throws. The lock must be held.
ReplyPtr IpcServer::call(const IpcMessage& message, int32_t kind) const {
  IpcMessage* reply = nullptr;
  returnsNormally([&] {
    if (kind_callback_ != nullptr) reply = kind_callback_(&message, kind, user_data_);
    if (callback_ != nullptr) reply = callback_(&message, user_data_);
  });
  return ReplyPtr(reply);
}

void IpcServer::leave() {
  life_.end();
  const std::lock_guard<std::mutex> guard(end_lock_);
  running_ = false;
  changed_.notify_one();
}

int hbbtv_ryn::createServer(key_t key, long channel, int with_reply, int chunk_size, ServeCallback callback,
                            void* user_data, IpcServer** server) {
  if (server == nullptr) return -3;
  const CancellationOff off;
  std::unique_ptr<IpcServer> created(
      new (std::nothrow) IpcServer(key, channel, with_reply != 0, chunk_size, callback, user_data));
  if (!created) return -4;
  const int result = created->start();
  if (result == 0) *server = created.release();
  return result;
}

int zunt_ipc_server_create(key_t key, long channel, int with_reply, int chunk_size, IpcServer** server) {
  return createServer(key, channel, with_reply, chunk_size, nullptr, nullptr, server);
}

int zunt_ipc_server_destroy(IpcServer* server) {
  if (server == nullptr) return -3;
  const CancellationOff off;
  if (server->stop()) delete server;
  return 0;
}

int zunt_ipc_server_register_callback(IpcServer* server, IpcServerCallback callback, void* user_data) {
  if (server == nullptr) return -3;
  server->setCallback(callback, user_data);
  return 0;
}

int zunt_ipc_server_unregister_callback(IpcServer* server) {
  return zunt_ipc_server_register_callback(server, nullptr, nullptr);
}
