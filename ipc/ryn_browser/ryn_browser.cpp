// The browser endpoint's life, and the registration of the host's handlers.

#include "ipc/protocol/queues.h"
#include "ipc/ryn_browser/state.h"
#include "ipc/server.h"

namespace hbbtv_ryn {

IpcServer* g_browser_server = nullptr;
std::atomic<IpcClient*> g_browser_notify_client{nullptr};
std::atomic<IpcClient*> g_browser_query_client{nullptr};
std::mutex g_browser_callback_mutex;
ZuntRynBrowserEventCallback g_browser_callbacks{};

namespace {

int createRequestServer() {
  if (g_browser_server != nullptr) return 0;
  return createServer(kRequestQueueKey, kChannel, kWithReply, IPC_CHUNK_SIZE,
                      &Zunt_RYN_Browser_Server_Callback, nullptr, &g_browser_server);
}

int createClient(key_t key, int with_reply, std::atomic<IpcClient*>* client) {
  if (*client != nullptr) return 0;
  IpcClient* created = nullptr;
  if (zunt_ipc_client_create(key, kChannel, with_reply, IPC_CHUNK_SIZE, &created) != 0) return -1;
  *client = created;
  return 0;
}

int destroyClient(std::atomic<IpcClient*>* client) {
  if (*client == nullptr) return 0;
  if (zunt_ipc_client_destroy(*client) != 0) return -1;
  *client = nullptr;
  return 0;
}

int destroyServer() {
  if (g_browser_server == nullptr) return 0;
  if (zunt_ipc_server_unregister_callback(g_browser_server) != 0) return -1;
  if (zunt_ipc_server_destroy(g_browser_server) != 0) return -1;
  g_browser_server = nullptr;
  return 0;
}

}  // namespace
}  // namespace hbbtv_ryn

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

int Zunt_RYN_Browser_Initialize() {
  if (createRequestServer() == 0 &&
      createClient(kNotificationQueueKey, kOneWayOnly, &g_browser_notify_client) == 0 &&
      createClient(kQueryQueueKey, kWithReply, &g_browser_query_client) == 0) {
    return 0;
  }
  Zunt_RYN_Browser_Finalize();
  return -1;
}

int Zunt_RYN_Browser_Finalize() {
  // A handler may be sending: once this has returned, none is running and none is called again.
  if (g_browser_server != nullptr) zunt_ipc_server_unregister_callback(g_browser_server);
  destroyClient(&g_browser_query_client);
  g_browser_query_client = nullptr;
  if (destroyClient(&g_browser_notify_client) != 0) return -1;
  return destroyServer();
}

int Zunt_RYN_Browser_RegisterCallback(ZuntRynBrowserEventCallback callbacks, const void* /*user_data*/) {
  const std::lock_guard<std::mutex> guard(g_browser_callback_mutex);
  g_browser_callbacks = callbacks;
  return 0;
}

int Zunt_RYN_Browser_UnregisterCallback() {
  return Zunt_RYN_Browser_RegisterCallback({}, nullptr);
}
