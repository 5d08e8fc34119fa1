// What both endpoints do alike: send a draft, ask one, and answer what arrives. The one place where the
// channel and the language meet.
#ifndef HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_H
#define HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_H

#include <json/value.h>

#include <atomic>
#include <mutex>

#include "hbbtv_ryn/ipc.h"
#include "ipc/protocol/catalogue.h"
#include "ipc/protocol/draft.h"

namespace hbbtv_ryn {

// Where an endpoint sends. The handle is read under the mutex, which is held for the whole exchange; null
// while the endpoint is not started.
struct Outlet {
  const std::atomic<IpcClient*>& client;
  std::mutex& mutex;
};

// A function that takes the reply, stores what it holds and returns the result of the request. It reads all
// values before it stores the first: a value that does not convert throws.
class ReplyReader {
 public:
  template <typename Function>
  ReplyReader(
      const Function& function)  // NOLINT(google-explicit-constructor): a parameter type for lambdas
      : function_(&function), call_([](const void* f, const Json::Value& reply) -> int {
          return (*static_cast<const Function*>(f))(reply);
        }) {}
  int operator()(const Json::Value& reply) const { return call_(function_, reply); }

 private:
  const void* function_;
  int (*call_)(const void*, const Json::Value&);
};

// Sends a one-way message. Returns the channel's result, or -4 when memory is out.
int tell(const Outlet& outlet, const Draft& message);

// Sends a synchronous message, waits and hands the reply to `read`, all under the mutex. Returns what
// `read` returns; -1 for a reply that is empty, no JSON object or does not convert; else the channel's
// result, or -4 when memory is out.
int ask(const Outlet& outlet, const Draft& message, ReplyReader read);

// The readers of replies that store one value.
int askInteger(const Outlet& outlet, const Draft& message, const char* key, int* value);
int askBoolean(const Outlet& outlet, const Draft& message, const char* key, bool* value);
int askString(const Outlet& outlet, const Draft& message, const char* key, std::string* value);

// A parsed message on its way to the host. The readers throw Json::Exception when a member does not
// convert.
struct Incoming {
  const Json::Value& members;
  void* user_data;  // what the callback was registered with

  int integer(const char* key) const;
  bool boolean(const char* key) const;
  std::string string(const char* key) const;
  int appid() const { return integer(key::kAppid); }
  int orgid() const { return integer(key::kOrgid); }
  int tabid() const { return integer(key::kTabid); }
};

// What serves a code: reads the message, calls the host and fills the reply.
struct Route {
  Code code;
  void (*handle)(const Incoming& in, Json::Value* reply);
};

// Serves one message of a kind from a queue with the route of its code. Returns the reply for the channel;
// null for a one-way message, one that is no message or has no route, and when memory for the reply is out.
// Throws what the route throws.
IpcMessage* serve(const IpcMessage* request, int32_t kind, void* user_data, const Route* routes,
                  std::size_t route_count);

template <std::size_t Count>
IpcMessage* serve(const IpcMessage* request, int32_t kind, void* user_data, const Route (&routes)[Count]) {
  return serve(request, kind, user_data, routes, Count);
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_H
