// The two request procedures, as the plug-in endpoint's functions use them: one exchange with the browser
// under g_plugin_mutex.
#ifndef HBBTV_RYN_IPC_RYN_PLUGIN_REQUESTS_H
#define HBBTV_RYN_IPC_RYN_PLUGIN_REQUESTS_H

#include <string>

#include "ipc/endpoint/exchange.h"
#include "ipc/ryn_plugin/state.h"

namespace hbbtv_ryn {

inline const Outlet kBrowser{g_plugin_client, g_plugin_mutex};

inline int tell(const Draft& command) {
  return tell(kBrowser, command);
}
inline int ask(const Draft& question, ReplyReader read) {
  return ask(kBrowser, question, read);
}
inline int askInteger(const Draft& question, const char* key, int* value) {
  return askInteger(kBrowser, question, key, value);
}
inline int askBoolean(const Draft& question, const char* key, bool* value) {
  return askBoolean(kBrowser, question, key, value);
}
inline int askString(const Draft& question, const char* key, std::string* value) {
  return askString(kBrowser, question, key, value);
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_RYN_PLUGIN_REQUESTS_H
