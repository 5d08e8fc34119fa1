// The plug-in endpoint's life, and the registration of the host's event callbacks.

#include <atomic>
#include <exception>
#include <map>
#include <utility>

#include "ipc/endpoint/exchange.h"
#include "ipc/protocol/catalogue.h"
#include "ipc/ryn_plugin/state.h"

namespace hbbtv_ryn {

std::mutex g_plugin_mutex;
std::atomic<IpcClient*> g_plugin_client{nullptr};

namespace {

// Written under g_plugin_mutex, which also guards the server handles; read before it is taken, so that
// starting and stopping twice does not wait for a request.
std::atomic<int> g_plugin_initialized{0};
IpcServer* g_plugin_notify_server = nullptr;
IpcServer* g_plugin_query_server = nullptr;

// Guards g_plugin_event_callbacks, for a look-up or an edit only: the receive threads must not wait for
// g_plugin_mutex, which is held for whole requests.
std::mutex g_plugin_event_mutex;
// Never destroyed: a host that exits without stopping us leaves the receive threads running.
std::map<int, ZuntRynEventCallback>& g_plugin_event_callbacks = *new std::map<int, ZuntRynEventCallback>;

// Creates the three objects. When one fails, those before it are left.
int createAll() {
  int result = start(kRequestQueueKey, &g_plugin_client);
  if (result == 0) {
    result = start(kNotificationQueueKey, &Zunt_RYN_Plugin_Server_Callback, &g_plugin_notify_server);
  }
  if (result == 0) result = start(kQueryQueueKey, &Zunt_RYN_Plugin_Query_Callback, &g_plugin_query_server);
  return result;
}

// Destroys what there is, newest first, and gives the mutex up before. A callback may be about to make a
// request: it must get the mutex to return, and its server waits for it to return.
void destroyAll(std::unique_lock<std::mutex>* guard) {
  IpcServer* const servers[] = {std::exchange(g_plugin_query_server, nullptr),
                                std::exchange(g_plugin_notify_server, nullptr)};
  IpcClient* const client = g_plugin_client.exchange(nullptr);
  guard->unlock();
  for (IpcServer* const server : servers) {
    zunt_ipc_server_unregister_callback(server);
    zunt_ipc_server_destroy(server);
  }
  zunt_ipc_client_destroy(client);
}

}  // namespace

ZuntRynEventCallback findEventCallback(ZuntRynEvent event) {
  const std::lock_guard<std::mutex> guard(g_plugin_event_mutex);
  const auto found = g_plugin_event_callbacks.find(event);
  return found == g_plugin_event_callbacks.end() ? ZuntRynEventCallback{} : found->second;
}

}  // namespace hbbtv_ryn

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

int Zunt_RYN_Plugin_Initialize() {
  if (g_plugin_initialized != 0) return 0;
  std::unique_lock<std::mutex> guard(g_plugin_mutex);
  if (g_plugin_initialized != 0) return 0;
  const int result = createAll();
  g_plugin_initialized = result == 0 ? 1 : 0;
  if (result != 0) destroyAll(&guard);
  return result;
}

int Zunt_RYN_Plugin_Finalize() {
  if (g_plugin_initialized == 0) return 0;
  std::unique_lock<std::mutex> guard(g_plugin_mutex);
  if (g_plugin_initialized == 0) return 0;
  destroyAll(&guard);
  // Last: a callback that was running meanwhile and started the endpoint has started nothing.
  guard.lock();
  g_plugin_initialized = 0;
  return 0;
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
