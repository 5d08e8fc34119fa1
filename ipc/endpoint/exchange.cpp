#include "ipc/endpoint/exchange.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <utility>

#include "base/malloc_ptr.h"
#include "trace/trace.h"

namespace hbbtv_ryn {

using trace::Drop;
using trace::Kind;
using trace::Way;

namespace {

std::string_view textOf(const IpcMessage& message) {
  if (message.text == nullptr || message.length <= 0) return {};
  return {message.text, static_cast<std::size_t>(message.length)};
}

// The trace of one message at one end. An object asks once whether the trace is on; while it is off its
// functions do nothing. The message must outlive it.
class Trace {
 public:
  Trace(key_t queue, Way way, const IpcMessage& message)
      : on_(trace::isOn()),
        open_(on_ && way == Way::kIn),
        event_{queue, way, Kind::kUnknown, 0, textOf(message)} {}
  // At the receiver's end, what has not ended by now was ended by an exception.
  ~Trace() {
    if (open_) dropped(Drop::kThrew, event_.code);
  }
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  // About to be sent, or to be handled.
  void begin(const Message& row) {
    if (!on_) return;
    event_.kind = row.delivery == Delivery::kSync ? Kind::kRequest : Kind::kOneWay;
    event_.code = static_cast<int>(row.code);
    trace::emit(event_);
    began_ = trace::now();
  }

  // The channel has returned: its result, and the answer to a synchronous message.
  void sent(int result, const IpcMessage& reply) {
    const bool one_way = event_.kind == Kind::kOneWay;
    if (!on_ || (one_way && result == 0)) return;
    event_.result = result;
    if (!one_way) event_.waited = trace::now() - began_;
    if (result != 0) {
      // The channel tells a queue that cannot be opened from the rest, which has simply failed.
      const bool refused = one_way || result == -3 || event_.text.size() > IPC_MAX_MESSAGE;
      event_.drop = refused ? Drop::kNotSent : Drop::kNoAnswer;
    } else {
      event_.way = Way::kIn;
      event_.text = textOf(reply);
      event_.kind = event_.text.empty() ? Kind::kFailure : Kind::kReply;
      if (event_.text.empty()) event_.result = -1;
    }
    trace::emit(event_);
  }
  // The answer could not be read.
  void unusable() {
    if (!on_) return;
    event_.text = {};
    event_.waited = trace::kNotMeasured;
    event_.drop = Drop::kUnparseable;
    event_.result = -1;
    trace::emit(event_);
  }

  // Nothing comes of it. Returns null.
  IpcMessage* dropped(Drop reason, int code) {
    if (!on_) return nullptr;
    open_ = false;
    event_.code = code;
    event_.drop = reason;
    if (event_.kind != Kind::kUnknown) event_.handling = trace::now() - began_;
    trace::emit(event_);
    return nullptr;
  }
  // Handled. Returns the reply: null when nobody waits for one, and when memory is out.
  IpcMessage* handled(bool awaited, IpcMessage* reply) {
    open_ = false;
    if (!on_ || !awaited) return reply;
    event_.way = Way::kOut;
    event_.kind = Kind::kReply;
    event_.text = reply == nullptr ? std::string_view() : textOf(*reply);
    const bool too_long = reply != nullptr && reply->length > IPC_MAX_MESSAGE;
    dropped(reply == nullptr ? Drop::kNoMemory : too_long ? Drop::kReplyTooLong : Drop::kNone, event_.code);
    return reply;
  }

 private:
  const bool on_;
  bool open_;  // the receiver's end is still to be told
  trace::Event event_;
  std::int64_t began_ = 0;
};

// Returns the result of the function that asked.
int store(const Members& members, Value* value, void* const* places) {
  for (const Member& member : members) {
    if (member.is_result) return value->number;
    void* const place = *places++;
    if (isText(member.type)) {
      *static_cast<std::string*>(place) = std::move(*value->text);
    } else if (isFlag(member.type)) {
      *static_cast<bool*>(place) = value->flag;
    } else if (member.type == Type::kKeyCount) {
      *static_cast<KeyCodes*>(place) = value->keys;
    } else {
      *static_cast<int*>(place) = value->number;
    }
    ++value;
  }
  return 0;
}

// The reply as the channel takes it; null when memory is out.
IpcMessage* newReply(const Message& row, const Value* values) {
  const std::string text = serialise(compose(row.reply_code, row.reply, nullptr, values));
  MallocPtr<char> copy(strdup(text.c_str()));
  if (!copy) return nullptr;
  return new IpcMessage{static_cast<int32_t>(text.size()), copy.release()};  // the server frees both
}

}  // namespace

int exchange(const Line& line, const Message& row, const Given* given, void* const* places) try {
  std::string text = serialise(compose(static_cast<int>(row.code), row.request, given));
  const IpcMessage request{static_cast<int32_t>(text.size()), text.data()};
  IpcMessage reply{0, nullptr};
  const bool one_way = row.delivery == Delivery::kOneWay;

  const std::lock_guard<std::mutex> guard(line.mutex);
  Trace traced(queueOf(row), Way::kOut, request);
  traced.begin(row);
  const int result = one_way ? zunt_ipc_client_send(line.client, &request)
                             : zunt_ipc_client_send_sync_with_params(line.client, &request, &reply);
  const MallocPtr<char> reply_text(reply.text);
  traced.sent(result, reply);
  if (one_way || result != 0) return result;
  // A failure reply leaves the length at 0.
  if (!reply_text || reply.length == 0) return -1;
  try {
    Json::Value answer;
    Value values[Members::kCapacity];
    if (parse(reply_text.get(), &answer)) {
      read(answer, row.reply, values);
      return store(row.reply, values, places);
    }
  } catch (const Json::Exception&) {  // NOLINT(bugprone-empty-catch): a member that does not convert
  }
  traced.unusable();
  return -1;
} catch (const std::bad_alloc&) {
  return -4;
} catch (const std::exception&) {  // a cancellation passes through
  return -1;
}

IpcMessage* serve(const Service& service, const IpcMessage* message, int32_t kind, void* user_data) {
  if (message == nullptr || message->text == nullptr || message->length == 0) return nullptr;
  Trace traced(service.queue, Way::kIn, *message);
  Json::Value request;
  if (!parse(message->text, &request)) return traced.dropped(Drop::kUnparseable, 0);
  const int code = integer(request, key::kCode);
  const Route* const end = service.routes + service.route_count;
  const Route* const route = std::lower_bound(
      service.routes, end, code,
      [](const Route& before, int wanted) { return static_cast<int>(before.row->code) < wanted; });
  if (route == end || static_cast<int>(route->row->code) != code) {
    return traced.dropped(Drop::kUnknownCode, code);
  }
  const Message& row = *route->row;
  traced.begin(row);

  Value in[Members::kCapacity];
  Value out[Members::kCapacity];
  read(request, row.request, in);
  readDefaults(request, row.reply, out);
  {
    const auto guard = service.mutex == nullptr ? std::unique_lock<std::mutex>()
                                                : std::unique_lock<std::mutex>(*service.mutex);
    const AnyFunction handler = route->find();
    if (handler != nullptr) route->call(handler, {in, out, user_data});
  }
  // Nobody takes or frees the answer to a one-way message.
  const bool awaited = row.delivery == Delivery::kSync && kind == IPC_KIND_REQUEST;
  return traced.handled(awaited, awaited ? newReply(row, out) : nullptr);
}

int start(key_t queue, std::atomic<IpcClient*>* client) {
  if (*client != nullptr) return 0;
  IpcClient* created = nullptr;
  const int result = zunt_ipc_client_create(queue, kChannel, withReply(queue), IPC_CHUNK_SIZE, &created);
  *client = created;
  return result;
}

int start(key_t queue, ServeCallback callback, IpcServer** server) {
  if (*server != nullptr) return 0;
  return createServer(queue, kChannel, withReply(queue), IPC_CHUNK_SIZE, callback, nullptr, server);
}

}  // namespace hbbtv_ryn
