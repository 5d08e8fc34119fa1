#include <sys/msg.h>

#include <mutex>
#include <new>

#include "ipc/host_call.h"
#include "ipc/record.h"
#include "ipc/reply_watch.h"

using hbbtv_ryn::FenceToken;
using hbbtv_ryn::JoinedText;
using hbbtv_ryn::MallocPtr;
using hbbtv_ryn::ReplyWatch;

namespace {

constexpr int kUnopened = -1;

bool isTooLong(const IpcMessage& message) {
  return static_cast<uint32_t>(message.length) > static_cast<uint32_t>(IPC_MAX_MESSAGE);
}

}  // namespace

struct IpcClient {
  IpcClient(key_t request_key, long message_channel, bool replies, int record_chunk)
      : key(request_key),
        channel(message_channel),
        with_reply(replies),
        chunk_size(record_chunk),
        watch(request_key, message_channel) {}

  const key_t key;
  const long channel;
  const bool with_reply;
  const int chunk_size;

  // Guards everything below, and is held across a whole exchange: the wire matches answers to requests by
  // order alone, so one request per handle is out at a time.
  std::mutex lock;
  int request_queue = kUnopened;
  int reply_queue = kUnopened;
  // Requests sent whose answer has not been taken off the reply queue.
  int unanswered = 0;
  // Whether both queues are known to hold nothing of an earlier process's or a dead server's exchange.
  bool in_step = false;
  // For every record that is sent or received; made by the first send.
  MallocPtr<IpcRecord> record;
  ReplyWatch watch;

  bool openQueues();
  int sendOneWay(const IpcMessage& message);
  // Sends a request and joins its answer, of any kind, whose final record is then in `record`.
  int exchange(const IpcMessage& request, JoinedText* text);

 private:
  bool makeRecord();
  bool restoreOrder();
  int awaitAnswer(JoinedText* text);
  void onLostAnswer(bool server_died);
};

bool IpcClient::openQueues() {
  if (request_queue < 0) request_queue = msgget(key, 0666);
  if (request_queue < 0) return false;
  if (!with_reply || reply_queue >= 0) return true;
  reply_queue = msgget(hbbtv_ryn::replyKey(key), 0666);
  if (reply_queue < 0) return false;
  // Answers to an earlier process of ours.
  hbbtv_ryn::discardWaiting(reply_queue, channel);
  return true;
}

int IpcClient::sendOneWay(const IpcMessage& message) {
  if (!openQueues()) return -3;
  if (isTooLong(message)) return -1;
  if (!makeRecord()) return -1;
  const int sent = hbbtv_ryn::sendMessage(request_queue, channel, chunk_size, &message, IPC_KIND_ONEWAY,
                                          record.get(), nullptr);
  return sent == 0 ? 0 : -1;
}

bool IpcClient::makeRecord() {
  if (!record) record = hbbtv_ryn::newRecordToSend(chunk_size);
  return record != nullptr;
}

int IpcClient::exchange(const IpcMessage& request, JoinedText* text) {
  if (!makeRecord()) return -4;
  if (!watch.mayRead()) return -1;
  if (!watch.prepare()) return -4;
  if (!restoreOrder()) return -1;
  if (hbbtv_ryn::sendMessage(request_queue, channel, chunk_size, &request, IPC_KIND_REQUEST, record.get(),
                             &watch) != 0) {
    // The beginning of the request may be on the queue. A fence ends it, so that the successor of a dead
    // server does not join a one-way message to it.
    in_step = false;
    hbbtv_ryn::postFence(request_queue, channel, watch.newToken());
    return -1;
  }
  ++unanswered;
  if (!text->allocate(chunk_size)) return -4;
  return awaitAnswer(text);
}

// Makes sure that the next answer on the reply queue is the answer to the next request.
bool IpcClient::restoreOrder() {
  // Any process may write to the request queue, and its answers lie on our reply queue: taken for ours,
  // each of them would shift every later answer by one.
  if (in_step && watch.takeStrayCheck() && !hbbtv_ryn::isEmpty(reply_queue)) in_step = false;
  if (in_step && unanswered == 0) return true;
  if (!watch.answersFences()) {
    // An older peer: counting answers is all that can be done.
    in_step = true;
    return true;
  }
  const FenceToken token = watch.newToken();
  // A full queue is no failure here: the watch posts the fence again.
  hbbtv_ryn::postFence(request_queue, channel, token);
  ReplyWatch::Vigil vigil(&watch, request_queue, reply_queue, token);
  const bool arrived = hbbtv_ryn::awaitFence(reply_queue, channel, chunk_size, record.get(), token);
  if (vigil.end() || !arrived) return false;
  unanswered = 0;
  in_step = true;
  return true;
}

int IpcClient::awaitAnswer(JoinedText* text) {
  const FenceToken token = watch.newToken();
  ReplyWatch::Vigil vigil(&watch, request_queue, reply_queue, token);
  int result = -1;
  bool lost = false;
  while (hbbtv_ryn::receiveMessage(reply_queue, channel, chunk_size, record.get(), text) == 0) {
    FenceToken arrived;
    if (hbbtv_ryn::readFence(*record, &arrived)) {
      lost = arrived == token;
      if (lost) break;
      continue;  // left over from a request that was answered after all
    }
    if (--unanswered == 0) {
      // Junk that a stranger wrote to the request queue is answered with a failure reply too: ours may
      // still be to come.
      if (record->kind != IPC_KIND_REPLY) in_step = false;
      result = 0;
      break;
    }
  }
  const bool server_died = vigil.end();
  if (lost) onLostAnswer(server_died);
  return result;
}

void IpcClient::onLostAnswer(bool server_died) {
  in_step = !server_died;
  // A live server sent the fence back behind every answer it had. A dead one answers nothing, but its
  // successor does if the request, our last record on this queue, is still there.
  unanswered = server_died && !hbbtv_ryn::isEmpty(request_queue) ? 1 : 0;
}

namespace {

// One synchronous exchange. `deliver(proper, length, text)` takes the answer, with the handle's lock held.
template <typename Deliver>
int sendSync(IpcClient* client, const IpcMessage* request, Deliver deliver) {
  if (client == nullptr || request == nullptr || request->length == 0) return -3;
  if (!client->with_reply || !hbbtv_ryn::isChunkSize(client->chunk_size)) return -3;
  const std::lock_guard<std::mutex> guard(client->lock);
  if (!client->openQueues()) return -3;
  if (isTooLong(*request)) return -1;
  JoinedText text;
  const int result = client->exchange(*request, &text);
  if (result != 0) text.bytes.reset();
  const IpcRecord* const record = client->record.get();
  const bool proper = result == 0 && record->kind == IPC_KIND_REPLY && record->last == 1;
  deliver(proper, proper ? hbbtv_ryn::reportedLength(*record, &text) : 0, text.bytes);
  return result;
}

}  // namespace

int zunt_ipc_client_create(key_t key, long channel, int with_reply, int chunk_size, IpcClient** client) {
  if (client == nullptr) return -3;
  auto* created = new (std::nothrow) IpcClient(key, channel, with_reply != 0, chunk_size);
  if (created == nullptr) return -4;
  *client = created;
  return 0;
}

int zunt_ipc_client_destroy(IpcClient* client) {
  if (client == nullptr) return -3;
  delete client;
  return 0;
}

int zunt_ipc_client_send(IpcClient* client, const IpcMessage* message) {
  if (client == nullptr || message == nullptr || message->length == 0) return -3;
  const std::lock_guard<std::mutex> guard(client->lock);
  return client->sendOneWay(*message);
}

int zunt_ipc_client_send_sync_with_callback(IpcClient* client, const IpcMessage* request,
                                            IpcReplyHandler handler) {
  return sendSync(client, request, [&](bool proper, int32_t length, MallocPtr<char>& text) {
    const IpcMessage reply{length, text.get()};
    if (proper && handler != nullptr) hbbtv_ryn::returnsNormally([&] { handler(&reply, 0); });
  });
}

int zunt_ipc_client_send_sync_with_params(IpcClient* client, const IpcMessage* request, IpcMessage* reply) {
  if (reply == nullptr) return -3;
  return sendSync(client, request, [&](bool proper, int32_t length, MallocPtr<char>& text) {
    if (proper) reply->length = length;
    reply->text = text.release();
  });
}
