// Servers as the endpoints start them.
#ifndef HBBTV_RYN_IPC_SERVER_H
#define HBBTV_RYN_IPC_SERVER_H

#include "hbbtv_ryn/ipc.h"

namespace hbbtv_ryn {

// zunt_ipc_server_create() with the callback in place before the thread starts, so that what waits on the
// queue is served, and an endpoint needs no server's lock while it holds its own.
int createServer(key_t key, long channel, int with_reply, int chunk_size, IpcServerCallback callback,
                 void* user_data, IpcServer** server);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_SERVER_H
