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

// Runs `exchange`, which may throw what jsoncpp and the allocator throw. A cancellation passes through.
template <typename Exchange>
int resultOf(const Exchange& exchange) {
  try {
    return exchange();
  } catch (const std::bad_alloc&) {
    return -4;
  } catch (const std::exception&) {
    return -1;
  }
}

// The reply as the channel takes it; null for a one-way message and when memory is out.
IpcMessage* newReply(const Message& served, int32_t kind, Json::Value* reply) {
  if (served.delivery == Delivery::kOneWay || kind != IPC_KIND_REQUEST) return nullptr;
  if (served.reply_code != kNoReplyCode) set(reply, key::kCode, static_cast<Json::UInt>(served.reply_code));
  const std::string text = serialise(*reply);
  MallocPtr<char> copy(strdup(text.c_str()));
  if (!copy) return nullptr;
  auto* const message = new IpcMessage{static_cast<int32_t>(text.size()), copy.get()};
  static_cast<void>(copy.release());  // the server frees it
  return message;
}

IpcMessage asMessage(std::string& text) {
  return {static_cast<int32_t>(text.size()), text.data()};
}

}  // namespace

int tell(const Outlet& outlet, const Draft& message) {
  return resultOf([&] {
    std::string text = message.text();
    const IpcMessage request = asMessage(text);
    const std::lock_guard<std::mutex> guard(outlet.mutex);
    SendTrace traced(message.code(), text);
    return traced.told(zunt_ipc_client_send(outlet.client, &request));
  });
}

int ask(const Outlet& outlet, const Draft& message, ReplyReader read) {
  return resultOf([&] {
    std::string text = message.text();
    const IpcMessage request = asMessage(text);
    IpcMessage reply{0, nullptr};
    const std::lock_guard<std::mutex> guard(outlet.mutex);
    SendTrace traced(message.code(), text);
    const int sent = zunt_ipc_client_send_sync_with_params(outlet.client, &request, &reply);
    const MallocPtr<char> reply_text(reply.text);
    if (sent != 0) return traced.unanswered(sent);
    traced.answered(reply);
    Json::Value members;
    // A failure reply leaves the length at 0.
    if (!reply_text || reply.length == 0 || !parse(reply_text.get(), &members)) return -1;
    return traced.understood(read(members));
  });
}

int askInteger(const Outlet& outlet, const Draft& message, const char* key, int* value) {
  return ask(outlet, message, [&](const Json::Value& reply) {
    *value = integer(reply, key);
    return 0;
  });
}

int askBoolean(const Outlet& outlet, const Draft& message, const char* key, bool* value) {
  return ask(outlet, message, [&](const Json::Value& reply) {
    *value = boolean(reply, key);
    return 0;
  });
}

int askString(const Outlet& outlet, const Draft& message, const char* key, std::string* value) {
  return ask(outlet, message, [&](const Json::Value& reply) {
    *value = string(reply, key);
    return 0;
  });
}

int Incoming::integer(const char* key) const {
  return hbbtv_ryn::integer(members, key);
}
bool Incoming::boolean(const char* key) const {
  return hbbtv_ryn::boolean(members, key);
}
std::string Incoming::string(const char* key) const {
  return hbbtv_ryn::string(members, key);
}

IpcMessage* serve(const IpcMessage* request, int32_t kind, void* user_data, const Route* routes,
                  std::size_t route_count) {
  if (request == nullptr || request->text == nullptr || request->length == 0) return nullptr;
  ServeTrace traced(*request, kind, routes[0].code);
  Json::Value members;
  if (!parse(request->text, &members)) return traced.dropped(trace::Drop::kUnparseable);
  const int code = integer(members, key::kCode);
  const Route* const end = routes + route_count;
  const Route* const route =
      std::find_if(routes, end, [code](const Route& row) { return static_cast<int>(row.code) == code; });
  if (route == end) return traced.dropped(trace::Drop::kUnknownCode, code);
  traced.received(route->code);
  Json::Value reply(Json::objectValue);
  route->handle({members, user_data}, &reply);
  return traced.answered(newReply(messageOf(route->code), kind, &reply));
}

}  // namespace hbbtv_ryn
