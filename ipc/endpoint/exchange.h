/// @file
/// What both endpoints do alike, whatever the message: a row and values become an exchange, and a message
/// becomes a call. The one place where the channel and the language meet. Functions and handlers reach it
/// through ipc/endpoint/signature.h, which checks them against the row.
#ifndef HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_H
#define HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_H

#include <atomic>
#include <cstddef>
#include <mutex>

#include "hbbtv_ryn/ipc.h"
#include "ipc/protocol/envelope.h"
#include "ipc/server.h"

namespace hbbtv_ryn {

/// Where an endpoint sends. The handle is read under the mutex, which is held for the whole exchange; null
/// while the endpoint is not started.
struct Line {
  const std::atomic<IpcClient*>& client;
  std::mutex& mutex;
};

/// Sends a message and, when it is synchronous, waits for the answer and stores what it holds: all of it is
/// read before the first is stored.
///
/// @param given   one value for each member of the request.
/// @param places  for each member of the reply but the host's own result: an int*, bool*, std::string* or
///                KeyCodes*, as the row has it.
/// @return 0, or the host's own result where the reply has one; -1 for a reply that is empty, no JSON
///   object or does not convert; else the channel's result; -4 when memory is out.
int exchange(const Line& line, const Message& row, const Given* given, void* const* places);

/// A function of any signature.
using AnyFunction = void (*)();

/// What a handler is called with.
struct Call {
  Value* in;        ///< the request
  Value* out;       ///< the default answers, which the handler may replace
  void* user_data;  ///< what the server's callback was registered with
};

/// How a message is served.
struct Route {
  const Message* row;
  AnyFunction (*find)();                         ///< the handler; null when there is none now
  void (*call)(AnyFunction handler, Call with);  ///< hands it its parameters
};

/// What a server serves.
struct Service {
  key_t queue;
  const Route* routes;  ///< in ascending order of their codes
  std::size_t route_count;
  std::mutex* mutex;  ///< held while a handler is looked for and runs; null: none
};

/// Serves one message of a kind. Returns the reply for the channel; null for a one-way message, one that is
/// no message or has no route, and when memory for the reply is out. Throws what the handler throws, and
/// Json::Exception, without a call, when a member does not convert.
IpcMessage* serve(const Service& service, const IpcMessage* message, int32_t kind, void* user_data);

/// Creates the client or the server of a queue, unless there is one.
/// @return the channel's result.
int start(key_t queue, std::atomic<IpcClient*>* client);
int start(key_t queue, ServeCallback callback, IpcServer** server);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_ENDPOINT_EXCHANGE_H
