/// @file
/// What the parts of the browser endpoint share.
#ifndef HBBTV_RYN_IPC_RYN_BROWSER_STATE_H
#define HBBTV_RYN_IPC_RYN_BROWSER_STATE_H

#include <atomic>
#include <mutex>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/ipc.h"

namespace hbbtv_ryn {

/// Null while the endpoint is not started. Read by whoever sends: a handler may do so while the endpoint is
/// still being started.
extern std::atomic<IpcClient*> g_browser_notify_client;
extern std::atomic<IpcClient*> g_browser_query_client;

/// Guards g_browser_callbacks, and is held while a handler runs, so that no handler of an unregistered
/// record is running once unregistering has returned.
extern std::mutex g_browser_callback_mutex;
extern ZuntRynBrowserEventCallback g_browser_callbacks;

/// Answers the plug-in process's requests: the callback of the request server.
IpcMessage* Zunt_RYN_Browser_Server_Callback(const IpcMessage* request, int32_t kind, void* user_data);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_RYN_BROWSER_STATE_H
