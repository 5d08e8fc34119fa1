#include "ipc/server.h"

#include <pthread.h>
#include <sys/msg.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "base/signal_free_thread.h"
#include "ipc/host_call.h"
#include "ipc/peer_life.h"
#include "ipc/record.h"

using hbbtv_ryn::JoinedText;

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
  IpcServer(key_t request_key, long message_channel, bool replies, int record_chunk)
      : key(request_key), channel(message_channel), with_reply(replies), chunk_size(record_chunk) {}

  const key_t key;
  const long channel;
  const bool with_reply;
  const int chunk_size;

  // Fixed before the receive thread starts.
  int request_queue = -1;
  int reply_queue = -1;
  pthread_t thread{};
  hbbtv_ryn::ServerLife life;  // ended by the receive thread: nobody answers once it is gone

  // Guards `running`. Written by the receive thread when it leaves, read by the destroyer.
  std::mutex end_lock;
  std::condition_variable ended;
  bool running = true;

  // Guards the callback, of either form, and its user data. Held during every call and the sending of its
  // reply.
  std::mutex lock;
  hbbtv_ryn::ServeCallback kind_callback = nullptr;
  IpcServerCallback callback = nullptr;
  void* user_data = nullptr;

  bool openQueues();
  void receiveLoop();
  bool stopsWithin(std::chrono::seconds patience);

 private:
  enum class Next { kReceive, kStop };
  Next serve(IpcRecord* record, JoinedText* text);
  Next serveOneWay(const IpcMessage& message);
  void serveRequest(const IpcMessage& request, IpcRecord* record);
  ReplyPtr call(const IpcMessage& message, int32_t kind) const;
  void leave();
};

bool IpcServer::openQueues() {
  request_queue = msgget(key, kQueueMode);
  if (request_queue < 0) return false;
  if (with_reply) reply_queue = msgget(hbbtv_ryn::replyKey(key), kQueueMode);
  return !with_reply || reply_queue >= 0;
}

void IpcServer::receiveLoop() {
  // Also when the thread is cancelled.
  struct Leave {
    IpcServer* server;
    ~Leave() { server->leave(); }
  } leave_at_end{this};
  if (!hbbtv_ryn::isChunkSize(chunk_size)) return;
  const auto record = hbbtv_ryn::newRecord(chunk_size);
  JoinedText text;
  if (!record || !text.allocate(chunk_size)) return;
  Next next = Next::kReceive;
  while (next == Next::kReceive) {
    if (hbbtv_ryn::receiveMessage(request_queue, channel, chunk_size, record.get(), &text) == 0) {
      next = serve(record.get(), &text);
    }
  }
}

IpcServer::Next IpcServer::serve(IpcRecord* record, JoinedText* text) {
  if (record->kind == IPC_KIND_STOP) return record->total_length == 0 ? Next::kStop : Next::kReceive;
  if (record->last != 1) return Next::kReceive;
  const IpcMessage message{hbbtv_ryn::reportedLength(*record, text), text->bytes.get()};
  if (record->kind == IPC_KIND_ONEWAY) return serveOneWay(message);
  if (!with_reply) return Next::kReceive;
  hbbtv_ryn::FenceToken token;
  if (record->kind == IPC_KIND_REQUEST) {
    serveRequest(message, record);
  } else if (hbbtv_ryn::readFence(*record, &token)) {
    hbbtv_ryn::postFence(reply_queue, record->mtype, token);
  }
  return Next::kReceive;
}

IpcServer::Next IpcServer::serveOneWay(const IpcMessage& message) {
  {
    const std::lock_guard<std::mutex> guard(lock);
    // A callback cannot know that its answer is not wanted; what it returns stays its own.
    static_cast<void>(call(message, IPC_KIND_ONEWAY).release());
  }
  constexpr char kExit[] = "exit";
  return std::strncmp(message.text, kExit, sizeof kExit - 1) == 0 ? Next::kStop : Next::kReceive;
}

// The record is the request's final one, and becomes the reply's.
void IpcServer::serveRequest(const IpcMessage& request, IpcRecord* record) {
  const auto send = [&](const IpcMessage& reply, int kind) {
    return hbbtv_ryn::sendMessage(reply_queue, record->mtype, chunk_size, &reply, kind, record, nullptr) ==
           0;
  };
  const std::lock_guard<std::mutex> guard(lock);
  const ReplyPtr reply = call(request, IPC_KIND_REQUEST);
  if (reply && reply->length <= IPC_MAX_MESSAGE && send(*reply, IPC_KIND_REPLY)) return;
  send(kFailureReply, IPC_KIND_FAILURE);
}

// The callback's answer; null also when there is no callback or it throws. The lock must be held.
ReplyPtr IpcServer::call(const IpcMessage& message, int32_t kind) const {
  IpcMessage* reply = nullptr;
  hbbtv_ryn::returnsNormally([&] {
    if (kind_callback != nullptr) reply = kind_callback(&message, kind, user_data);
    if (callback != nullptr) reply = callback(&message, user_data);
  });
  return ReplyPtr(reply);
}

void IpcServer::leave() {
  life.end();
  const std::lock_guard<std::mutex> guard(end_lock);
  running = false;
  ended.notify_one();
}

bool IpcServer::stopsWithin(std::chrono::seconds patience) {
  std::unique_lock<std::mutex> guard(end_lock);
  return ended.wait_for(guard, patience, [this] { return !running; });
}

namespace {

void* ipc_server_receive_loop(void* server) {
  static_cast<IpcServer*>(server)->receiveLoop();
  return nullptr;
}

int setCallback(IpcServer* server, IpcServerCallback callback, void* user_data) {
  if (server == nullptr) return -3;
  const std::lock_guard<std::mutex> guard(server->lock);
  server->kind_callback = nullptr;
  server->callback = callback;
  server->user_data = user_data;
  return 0;
}

}  // namespace

namespace hbbtv_ryn {

int createServer(key_t key, long channel, int with_reply, int chunk_size, ServeCallback callback,
                 void* user_data, IpcServer** server) {
  if (server == nullptr) return -3;
  std::unique_ptr<IpcServer> created(new (std::nothrow)
                                         IpcServer(key, channel, with_reply != 0, chunk_size));
  if (!created) return -4;
  created->kind_callback = callback;
  created->user_data = user_data;
  // Before the queues: a client that finds them must not find the server dead.
  if (!created->life.begin(key, with_reply != 0)) return -3;
  if (!created->openQueues()) return -3;
  if (createSignalFreeThread(&created->thread, nullptr, &ipc_server_receive_loop, created.get()) != 0) {
    return -5;
  }
  *server = created.release();
  return 0;
}

}  // namespace hbbtv_ryn

int zunt_ipc_server_create(key_t key, long channel, int with_reply, int chunk_size, IpcServer** server) {
  return hbbtv_ryn::createServer(key, channel, with_reply, chunk_size, nullptr, nullptr, server);
}

int zunt_ipc_server_destroy(IpcServer* server) {
  if (server == nullptr) return -3;
  char no_text[] = "";
  const IpcMessage stop{0, no_text};
  ipc_snd_internal(server->request_queue, server->channel, server->chunk_size, &stop, IPC_KIND_STOP);
  if (!server->stopsWithin(kStopPatience)) pthread_cancel(server->thread);
  pthread_join(server->thread, nullptr);
  delete server;
  return 0;
}

int zunt_ipc_server_register_callback(IpcServer* server, IpcServerCallback callback, void* user_data) {
  return setCallback(server, callback, user_data);
}

int zunt_ipc_server_unregister_callback(IpcServer* server) {
  return setCallback(server, nullptr, nullptr);
}
