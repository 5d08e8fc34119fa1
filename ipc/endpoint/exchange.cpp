#include "ipc/endpoint/exchange.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <utility>

#include "base/malloc_ptr.h"
#include "ipc/endpoint/exchange_trace.h"
#include "ipc/protocol/envelope.h"

namespace hbbtv_ryn {
namespace {

// Returns the result of the function that asked.
int store(const Members& members, Values* values, void* const* stored) {
  const Scalar* scalar = values->scalars;
  std::string* text = values->texts;
  for (const Member& member : members) {
    if (member.is_result) return scalar->number;
    void* const place = *stored++;
    if (isText(member.type)) {
      *static_cast<std::string*>(place) = std::move(*text++);
    } else if (isFlag(member.type)) {
      *static_cast<bool*>(place) = scalar++->number != 0;
    } else if (member.type == Type::kKeyCount) {
      *static_cast<KeyCodes*>(place) = values->keys;
    } else {
      *static_cast<int*>(place) = scalar++->number;
    }
  }
  return 0;
}

// What exchange() does; throws what jsoncpp and the allocator throw.
int exchangeOrThrow(const Line& line, const Message& row, const Given* given, void* const* stored,
                    Observer observer) {
  const Json::Value message = compose(static_cast<int>(row.code), row.request, given);
  if (observer != nullptr) observer(message);
  std::string text = serialise(message);
  const IpcMessage request{static_cast<int32_t>(text.size()), text.data()};
  IpcMessage reply{0, nullptr};
  const bool one_way = row.delivery == Delivery::kOneWay;

  const std::lock_guard<std::mutex> guard(line.mutex);
  SendTrace traced(row, text);
  const int result = one_way ? zunt_ipc_client_send(line.client, &request)
                             : zunt_ipc_client_send_sync_with_params(line.client, &request, &reply);
  const MallocPtr<char> reply_text(reply.text);
  traced.ended(result, reply);
  if (one_way || result != 0) return result;
  // A failure reply leaves the length at 0.
  if (!reply_text || reply.length == 0) return -1;
  try {
    Json::Value answer;
    Values values;
    if (parse(reply_text.get(), &answer)) {
      read(answer, row.reply, &values);
      return store(row.reply, &values, stored);
    }
  } catch (const Json::Exception&) {  // NOLINT(bugprone-empty-catch): a member that does not convert
  }
  traced.unusable();
  return -1;
}

// The default answers, for what no handler answers.
void prepareAnswer(const Members& reply, const Json::Value& request, Values* values) {
  Scalar* scalar = values->scalars;
  for (const Member& member : reply) {
    const bool repeated = member.default_answer == kAsRequested;
    const int answer = repeated ? integer(request, member.key) : member.default_answer;
    if (member.type == Type::kKeyCount) {
      values->keys = {answer, {}};
    } else if (!isText(member.type)) {
      *scalar++ = {answer, answer != 0};
    }
  }
}

// The reply as the channel takes it; null when memory is out.
IpcMessage* newReply(const Message& row, const Values& values) {
  const std::string text = serialise(compose(row.reply_code, row.reply, values));
  MallocPtr<char> copy(strdup(text.c_str()));
  if (!copy) return nullptr;
  auto* const message = new IpcMessage{static_cast<int32_t>(text.size()), copy.get()};
  static_cast<void>(copy.release());  // the server frees it
  return message;
}

}  // namespace

int exchange(const Line& line, const Message& row, const Given* given, void* const* stored,
             Observer observer) {
  try {
    return exchangeOrThrow(line, row, given, stored, observer);
  } catch (const std::bad_alloc&) {
    return -4;
  } catch (const std::exception&) {  // a cancellation passes through
    return -1;
  }
}

IpcMessage* serve(const Service& service, const IpcMessage* message, int32_t kind, void* user_data) {
  if (message == nullptr || message->text == nullptr || message->length == 0) return nullptr;
  ServeTrace traced(service.queue, *message, kind);
  Json::Value request;
  if (!parse(message->text, &request)) return traced.dropped(trace::Drop::kUnparseable);
  const int code = integer(request, key::kCode);
  const Route* const end = service.routes + service.route_count;
  const Route* const route = std::lower_bound(
      service.routes, end, code,
      [](const Route& before, int wanted) { return static_cast<int>(before.row->code) < wanted; });
  if (route == end || static_cast<int>(route->row->code) != code) {
    return traced.dropped(trace::Drop::kUnknownCode, code);
  }
  const Message& row = *route->row;
  traced.received(row);

  Call call;
  call.user_data = user_data;
  read(request, row.request, &call.in);
  prepareAnswer(row.reply, request, &call.out);
  {
    const auto guard = service.mutex == nullptr ? std::unique_lock<std::mutex>()
                                                : std::unique_lock<std::mutex>(*service.mutex);
    const AnyFunction handler = route->find();
    if (handler != nullptr) route->call(handler, &call);
  }
  // Nobody takes or frees the answer to a one-way message.
  const bool answered = row.delivery == Delivery::kSync && kind == IPC_KIND_REQUEST;
  return traced.answered(answered ? newReply(row, call.out) : nullptr);
}

}  // namespace hbbtv_ryn
