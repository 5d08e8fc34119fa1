// The browser endpoint's life, and the registration of the host's handlers.

#include <utility>

#include "ipc/endpoint/exchange.h"
#include "ipc/protocol/catalogue.h"
#include "ipc/ryn_browser/state.h"

namespace hbbtv_ryn {

std::atomic<IpcClient*> g_browser_notify_client{nullptr};
std::atomic<IpcClient*> g_browser_query_client{nullptr};
std::mutex g_browser_callback_mutex;
ZuntRynBrowserEventCallback g_browser_callbacks{};

namespace {

// Null while the endpoint is not started. Used by Initialize and Finalize, on one thread of the host.
IpcServer* g_browser_server = nullptr;

}  // namespace
}  // namespace hbbtv_ryn

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace): the definitions of the public functions

int Zunt_RYN_Browser_Initialize() {
  if (start(kRequestQueueKey, &Zunt_RYN_Browser_Server_Callback, &g_browser_server) == 0 &&
      start(kNotificationQueueKey, &g_browser_notify_client) == 0 &&
      start(kQueryQueueKey, &g_browser_query_client) == 0) {
    return 0;
  }
  Zunt_RYN_Browser_Finalize();
  return -1;
}

int Zunt_RYN_Browser_Finalize() {
  // A handler may be sending: once this has returned, none is running and none is called again.
  zunt_ipc_server_unregister_callback(g_browser_server);
  zunt_ipc_client_destroy(g_browser_query_client.exchange(nullptr));
  zunt_ipc_client_destroy(g_browser_notify_client.exchange(nullptr));
  zunt_ipc_server_destroy(std::exchange(g_browser_server, nullptr));
  return 0;
}

int Zunt_RYN_Browser_RegisterCallback(ZuntRynBrowserEventCallback callbacks, const void* /*user_data*/) {
  const std::lock_guard<std::mutex> guard(g_browser_callback_mutex);
  g_browser_callbacks = callbacks;
  return 0;
}

int Zunt_RYN_Browser_UnregisterCallback() {
  return Zunt_RYN_Browser_RegisterCallback({}, nullptr);
}
