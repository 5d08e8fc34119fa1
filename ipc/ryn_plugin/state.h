/// @file
/// What the parts of the plug-in endpoint share.
#ifndef HBBTV_RYN_IPC_RYN_PLUGIN_STATE_H
#define HBBTV_RYN_IPC_RYN_PLUGIN_STATE_H

#include <atomic>
#include <mutex>

#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/plugin.h"

namespace hbbtv_ryn {

/// Serialises starting, stopping, registering and every request for its whole exchange. Guards the handles.
/// Event callbacks run without it, since they may make requests.
extern std::mutex g_plugin_mutex;
extern std::atomic<IpcClient*> g_plugin_client;  // null while the endpoint is not started

/// The callback registered for an event, of which all members are null when there is none. Waits for no
/// request.
ZuntRynEventCallback findEventCallback(ZuntRynEvent event);

/// The callbacks of the notification and the query server. The user data goes on to onApp.
IpcMessage* Zunt_RYN_Plugin_Server_Callback(const IpcMessage* request, int32_t kind, void* user_data);
IpcMessage* Zunt_RYN_Plugin_Query_Callback(const IpcMessage* request, int32_t kind, void* user_data);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_RYN_PLUGIN_STATE_H
