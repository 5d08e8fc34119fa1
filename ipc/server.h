// Servers as the endpoints start them.
#ifndef HBBTV_RYN_IPC_SERVER_H
#define HBBTV_RYN_IPC_SERVER_H

#include "hbbtv_ryn/ipc.h"

namespace hbbtv_ryn {

// An IpcServerCallback that is told the kind of what it serves: IPC_KIND_ONEWAY or IPC_KIND_REQUEST. Nobody
// takes or frees the answer to a one-way message, and any process may send one that looks like a question.
using ServeCallback = IpcMessage* (*)(const IpcMessage* message, int32_t kind, void* user_data);

// zunt_ipc_server_create() with the callback in place before the thread starts, so that what waits on the
// queue is served, and an endpoint needs no server's lock while it holds its own.
int createServer(key_t key, long channel, int with_reply, int chunk_size, ServeCallback callback,
                 void* user_data, IpcServer** server);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_SERVER_H
