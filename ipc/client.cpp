#include <sys/msg.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <new>
#include <optional>
#include <thread>

#include "base/cancellation_off.h"
#include "base/host_call.h"
#include "ipc/peer_life.h"
#include "ipc/record.h"
#include "ipc/reply_watch.h"

using namespace std::chrono_literals;
using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definition of a public type
using Clock = std::chrono::steady_clock;

namespace {

// How long records may lie where nobody of ours serves, until they show that nobody serves at all.
constexpr auto kOfferTime = 250ms;
// How long nothing is offered after that.
constexpr auto kRefusalTime = 1s;
// How long the servers of a restart may overlap. A count of lives that stays above one is a stranger's
// doing, or a mistake that must not cost every request.
constexpr auto kOverlapTime = 3s;

// A record that every server takes and none answers.
constexpr IpcMessage kFence{0, nullptr};

bool isTooLong(const IpcMessage& message) {
  return static_cast<uint32_t>(message.length) > static_cast<uint32_t>(IPC_MAX_MESSAGE);
}

// Waits until something that is asked for again and again is so: promptly at first, then at leisure.
class GrowingPause {
 public:
  void operator()() {
    std::this_thread::sleep_for(next_);
    next_ = std::min<std::chrono::microseconds>(2 * next_, 20ms);
  }

 private:
  std::chrono::microseconds next_{50};
};

}  // namespace

struct IpcClient {
 public:
  IpcClient(key_t key, long channel, bool with_reply, int chunk_size)
      : key_(key), channel_(channel), with_reply_(with_reply), chunk_size_(chunk_size), life_(key) {}

  bool canAsk() const { return with_reply_ && isChunkSize(chunk_size_); }
  int sendOneWay(const IpcMessage& message);
  // One synchronous exchange. The handler, or null, is called with the lock held; the reply, or null, takes
  // the answer.
  int sendSync(const IpcMessage& request, IpcReplyHandler handler, IpcMessage* reply);

 private:
  // Who takes what is put on the request queue.
  enum class Reader { kPlain, kOurs, kNobody };

  bool openQueues();
  bool makeRecord();
  void lookWhoReads();
  bool oneServerSince();
  void noteLife(std::optional<int> life);
  int exchange(const IpcMessage& request, JoinedText* text);
  bool restoreOrder();
  bool put(const IpcMessage& message, int kind);
  bool mayOffer();
  bool isTaken();
  bool emptiesSoon() const;
  bool refuse();
  int awaitAnswer(JoinedText* text);

  const key_t key_;
  const long channel_;
  const bool with_reply_;
  const int chunk_size_;

  // Guards everything below, and is held across a whole exchange: the wire matches answers to requests by
  // order alone, so one request per handle is out at a time.
  std::mutex lock_;
  int request_queue_ = -1;  // each of them until it has been opened
  int reply_queue_ = -1;
  MallocPtr<IpcRecord> record_;  // for all that is sent and received; made by the first send

  PeerLife life_;
  ReplyWatch::Ptr watch_;
  Reader reader_ = Reader::kPlain;
  int deaths_ = 0;  // as the present exchange began
  std::optional<Clock::time_point> several_since_;
  // Whether all that a server of ours may have half taken, or not answered yet, is this handle's requests.
  bool knows_what_was_sent_ = false;
  // Whether something may still be answered that nobody waits for.
  bool in_doubt_ = false;
  Clock::time_point refused_until_ = Clock::time_point::min();
};

bool IpcClient::openQueues() {
  if (request_queue_ < 0) request_queue_ = msgget(key_, 0666);
  if (request_queue_ < 0) return false;
  if (!with_reply_ || reply_queue_ >= 0) return true;
  reply_queue_ = msgget(replyKey(key_), 0666);
  if (reply_queue_ < 0) return false;
  // Answers to an earlier process of ours.
  discardWaiting(reply_queue_, channel_);
  return true;
}

bool IpcClient::makeRecord() {
  if (!record_) record_ = newRecord(chunk_size_);
  return record_ != nullptr;
}

int IpcClient::sendOneWay(const IpcMessage& message) {
  const std::lock_guard<std::mutex> guard(lock_);
  if (!openQueues()) return -3;
  if (isTooLong(message) || !isChunkSize(chunk_size_) || !makeRecord()) return -1;
  const Sent sent =
      sendMessage(request_queue_, channel_, chunk_size_, &message, IPC_KIND_ONEWAY, record_.get());
  // Its end may have found no room, or another server than its beginning.
  if (record_->sequence > 1) knows_what_was_sent_ = false;
  return sent == Sent::kRefused ? -1 : 0;
}

int IpcClient::sendSync(const IpcMessage& request, IpcReplyHandler handler, IpcMessage* reply) {
  const std::lock_guard<std::mutex> guard(lock_);
  if (!openQueues()) return -3;
  if (isTooLong(request)) return -1;
  JoinedText text;
  const int result = exchange(request, &text);
  if (result != 0) text.bytes.reset();
  const bool proper = result == 0 && record_->kind == IPC_KIND_REPLY && record_->last == 1;
  const IpcMessage answer{proper ? reportedLength(*record_, &text) : 0, text.bytes.get()};
  if (proper && handler != nullptr) returnsNormally([&] { handler(&answer, 0); });
  if (proper && reply != nullptr) reply->length = answer.length;
  if (reply != nullptr) reply->text = text.bytes.release();
  return result;
}

void IpcClient::lookWhoReads() {
  const auto deaths = channel_ == kProtectedChannel ? life_.deaths() : std::nullopt;
  if (!deaths) {
    reader_ = Reader::kPlain;
    return;
  }
  // Life does not fall without a death.
  if (reader_ == Reader::kOurs && deaths_ == *deaths) return;
  if (deaths_ != *deaths) several_since_.reset();  // those that overlapped then are not those of now
  deaths_ = *deaths;
  const auto life = life_.life();
  noteLife(life);
  reader_ = life != 0 ? Reader::kOurs : Reader::kNobody;
}

void IpcClient::noteLife(std::optional<int> life) {
  if (life.value_or(1) <= 1) {
    several_since_.reset();
  } else if (!several_since_) {
    several_since_ = Clock::now();
  }
}

// Whether all that was taken since the exchange began was taken by the one server that there is. Life
// first: if another one has come and gone between the looks, the deaths tell.
bool IpcClient::oneServerSince() {
  noteLife(life_.life());
  const bool overlap = several_since_ && Clock::now() - *several_since_ < kOverlapTime;
  return !overlap && life_.deaths() == deaths_;
}

int IpcClient::exchange(const IpcMessage& request, JoinedText* text) {
  if (!canBeCut(channel_, chunk_size_, &request)) return -1;
  if (!makeRecord() || !text->allocate(chunk_size_)) return -4;
  lookWhoReads();
  if (reader_ == Reader::kNobody && !mayOffer()) return -1;
  if (reader_ != Reader::kPlain && (!watch_ || watch_->isLeftBehind())) {
    watch_ = ReplyWatch::start(&life_, channel_);
    if (!watch_) return -4;
  }
  if (reader_ == Reader::kOurs) {
    // Whoever sent before us may have left half a message, or may still be answered. And any process may
    // write to the request queue: the answers to that lie on our reply queue, where each would shift all
    // later ones by one.
    if (!knows_what_was_sent_) in_doubt_ = in_doubt_ || hasBeenSentTo(request_queue_);
    if (watch_->takeTick() && hasWaiting(reply_queue_, channel_)) in_doubt_ = true;
    knows_what_was_sent_ = true;
  }
  if (in_doubt_ && !restoreOrder()) return -1;
  if (!put(request, IPC_KIND_REQUEST)) return -1;
  return awaitAnswer(text);
}

// Makes sure that the next answer is the answer to the next request. A server is sequential: when it has
// taken a later record, everything that it had to say to the earlier ones lies on the reply queue. That
// record also ends what a dead sender has left unfinished in front of it.
bool IpcClient::restoreOrder() {
  // Of several servers another one might take it than the one that still has to answer.
  if (reader_ == Reader::kOurs && !oneServerSince()) return false;
  discardWaiting(reply_queue_, channel_);  // room for what is to come
  if (!put(kFence, IPC_KIND_FAILURE)) return false;
  GrowingPause pause;
  while (hasWaiting(request_queue_, channel_)) {
    discardWaiting(reply_queue_, channel_);
    if (reader_ == Reader::kOurs && life_.deaths() != deaths_) return false;
    pause();
  }
  if (reader_ == Reader::kOurs && !oneServerSince()) return false;
  discardWaiting(reply_queue_, channel_);
  in_doubt_ = false;
  return true;
}

// Puts a message on the request queue. False when it was not, or not wholly, taken over.
bool IpcClient::put(const IpcMessage& message, int kind) {
  RecordCutter records(channel_, chunk_size_, message, kind, record_.get());
  while (records.next()) {
    if (!putRecord(request_queue_, chunk_size_, *record_)) {
      in_doubt_ = true;
      return false;
    }
    if (reader_ == Reader::kNobody && !isTaken()) return false;
  }
  return true;
}

// Where nobody of ours serves, a plain server may have taken the key over: whether something may be put
// there to see. False when nobody takes what waits there already.
bool IpcClient::mayOffer() {
  while (reader_ == Reader::kNobody) {
    if (Clock::now() < refused_until_) return false;
    if (!emptiesSoon()) return refuse();
    if (life_.life() == 0 && life_.deaths() == deaths_) {
      // The last words of the dead.
      discardWaiting(reply_queue_, channel_);
      return true;
    }
    lookWhoReads();  // a server has started, and may have emptied the queue
  }
  return true;
}

// Whether the record that has been put where nobody of ours serves finds a taker, and who that is: a plain
// server, or one of ours that has just started.
bool IpcClient::isTaken() {
  if (!emptiesSoon() && msgrcv(request_queue_, record_.get(), recordPayloadBytes(chunk_size_), channel_,
                               IPC_NOWAIT | MSG_NOERROR) >= 0) {
    return refuse();
  }
  // Life first: if a server of ours has taken the record and was dead by then, the deaths tell.
  const auto life = life_.life();
  if (life_.deaths() != deaths_) {
    in_doubt_ = true;
    return false;
  }
  reader_ = life == 0 ? Reader::kPlain : Reader::kOurs;
  return true;
}

bool IpcClient::refuse() {
  refused_until_ = Clock::now() + kRefusalTime;
  return false;
}

bool IpcClient::emptiesSoon() const {
  const auto end = Clock::now() + kOfferTime;
  GrowingPause pause;
  while (hasWaiting(request_queue_, channel_)) {
    if (Clock::now() > end) return false;
    pause();
  }
  return true;
}

int IpcClient::awaitAnswer(JoinedText* text) {
  const bool several_records = record_->sequence > 1;
  const bool protected_wait = reader_ == Reader::kOurs;
  if (protected_wait) watch_->begin(reply_queue_, deaths_);
  const int received =
      receiveMessage(reply_queue_, channel_, chunk_size_, record_.get(), text, protected_wait);
  // The watch's record must not stay behind.
  if (protected_wait && watch_->end()) discardWaiting(reply_queue_, channel_);
  bool usable = received == 0;
  if (usable && protected_wait) {
    // An answer with a gap. Or one to a part of the request: the rest went to another server.
    usable = text->length == record_->total_length && (!several_records || oneServerSince());
    // A failure reply may be to the junk of a stranger, and ours still to come.
    if (record_->kind != IPC_KIND_REPLY) in_doubt_ = true;
  }
  if (usable) return 0;
  in_doubt_ = true;
  return -1;
}

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
  const Uncancelled call{};
  return client->sendOneWay(*message);
}

int zunt_ipc_client_send_sync_with_callback(IpcClient* client, const IpcMessage* request,
                                            IpcReplyHandler handler) {
  if (client == nullptr || request == nullptr || request->length == 0 || !client->canAsk()) return -3;
  const Uncancelled call{};
  return client->sendSync(*request, handler, nullptr);
}

int zunt_ipc_client_send_sync_with_params(IpcClient* client, const IpcMessage* request, IpcMessage* reply) {
  if (client == nullptr || request == nullptr || request->length == 0 || !client->canAsk()) return -3;
  if (reply == nullptr) return -3;
  const Uncancelled call{};
  return client->sendSync(*request, nullptr, reply);
}
