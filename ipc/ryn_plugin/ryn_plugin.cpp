// The plug-in endpoint's life, and the registration of the host's event callbacks.

#include <atomic>
#include <exception>
#include <map>
#include <utility>

#include "ipc/protocol/queues.h"
#include "ipc/ryn_plugin/plugin_state.h"

namespace hbbtv_ryn {

std::mutex g_plugin_mutex;
IpcClient* g_plugin_client = nullptr;

namespace {

// Written under g_plugin_mutex, which also guards the server handles; read before it is taken, so that
// starting and stopping twice does not wait for a request.
std::atomic<int> g_plugin_initialized{0};
IpcServer* g_plugin_notify_server = nullptr;
IpcServer* g_plugin_query_server = nullptr;

// Guards g_plugin_event_callbacks, for a look-up or an edit only: the receive threads must not wait for
// g_plugin_mutex, which is held for whole requests.
std::mutex g_plugin_event_mutex;
std::map<int, ZuntRynEventCallback> g_plugin_event_callbacks;

int createServer(key_t key, int with_reply, IpcServerCallback callback, IpcServer** server) {
  const int created = zunt_ipc_server_create(key, kChannel, with_reply, IPC_CHUNK_SIZE, server);
  if (created != 0) return created;
  const int registered = zunt_ipc_server_register_callback(*server, callback, nullptr);
  if (registered != 0) {
    zunt_ipc_server_destroy(*server);
    *server = nullptr;
  }
  return registered;
}

// Both null the handle.
int destroyServer(IpcServer*& server) {
  IpcServer* const destroyed = std::exchange(server, nullptr);
  zunt_ipc_server_unregister_callback(destroyed);
  return zunt_ipc_server_destroy(destroyed);
}
int destroyClient(IpcClient*& client) {
  return zunt_ipc_client_destroy(std::exchange(client, nullptr));
}

// Starts the three objects; undoes what was done, newest first, when one fails.
int createAll() {
  int result =
      zunt_ipc_client_create(kRequestQueueKey, kChannel, kWithReply, IPC_CHUNK_SIZE, &g_plugin_client);
  if (result != 0) return result;
  result = createServer(kNotificationQueueKey, kOneWayOnly, &notificationEntry, &g_plugin_notify_server);
  if (result == 0) {
    result = createServer(kQueryQueueKey, kWithReply, &queryEntry, &g_plugin_query_server);
    if (result != 0) destroyServer(g_plugin_notify_server);
  }
  if (result != 0) destroyClient(g_plugin_client);
  return result;
}

}  // namespace

bool findEventCallback(ZuntRynEvent event, ZuntRynEventCallback* callback) {
  const std::lock_guard<std::mutex> guard(g_plugin_event_mutex);
  const auto found = g_plugin_event_callbacks.find(event);
  if (found == g_plugin_event_callbacks.end()) return false;
  *callback = found->second;
  return true;
}

}  // namespace hbbtv_ryn

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

int Zunt_RYN_Plugin_Initialize() {
  if (g_plugin_initialized != 0) return 0;
  const std::lock_guard<std::mutex> guard(g_plugin_mutex);
  if (g_plugin_initialized != 0) return 0;
  const int result = createAll();
  if (result == 0) g_plugin_initialized = 1;
  return result;
}

int Zunt_RYN_Plugin_Finalize() {
  if (g_plugin_initialized == 0) return 0;
  std::unique_lock<std::mutex> guard(g_plugin_mutex);
  if (g_plugin_initialized == 0) return 0;
  g_plugin_initialized = 0;
  IpcServer* query_server = std::exchange(g_plugin_query_server, nullptr);
  IpcServer* notify_server = std::exchange(g_plugin_notify_server, nullptr);
  IpcClient* client = std::exchange(g_plugin_client, nullptr);
  // A callback may be about to make a request: it must get the mutex to return, and its server waits for
  // it to return.
  guard.unlock();
  destroyServer(query_server);
  destroyServer(notify_server);
  return destroyClient(client);
}

int Zunt_RYN_Plugin_RegisterRynEventCallback(ZuntRynEvent event, ZuntRynEventCallback callback) {
  const std::lock_guard<std::mutex> guard(g_plugin_mutex);
  const std::lock_guard<std::mutex> event_guard(g_plugin_event_mutex);
  try {
    g_plugin_event_callbacks.emplace(event, callback);
  } catch (const std::exception&) {
    return -4;
  }
  return 0;
}

int Zunt_RYN_Plugin_UnRegisterRynEventCallback(ZuntRynEvent event) {
  const std::lock_guard<std::mutex> guard(g_plugin_mutex);
  const std::lock_guard<std::mutex> event_guard(g_plugin_event_mutex);
  g_plugin_event_callbacks.erase(event);
  return 0;
}
