// Any text as a request of the plug-in process.
#include <cstring>

#include "fuzzing.h"
#include "ipc/ryn_browser/state.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace)

namespace {

// Handlers that fill all they are given, and report more than there is room for.
ZuntRynBrowserEventCallback handlers() {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetChildApps = [](int appid, int orgid, int* appids, int* orgids, int* count) {
    for (int i = 0; i < ZUNT_RYN_MAX_CHILD_APPS; ++i) {
      appids[i] = appid;
      orgids[i] = orgid;
    }
    *count = appid;
  };
  handlers.CreateApp = [](int appid, int, const char* url, bool child, bool opapp, int* new_appid,
                          int* new_orgid) {
    fuzz::use(url, std::strlen(url) + 1);
    *new_appid = appid ^ (child ? 1 : 0);
    *new_orgid = opapp ? 1 : 0;
  };
  handlers.GetOtherKeys = [](int appid, int, int* keys, int* count) {
    for (int i = 0; i < ZUNT_RYN_MAX_OTHER_KEYS; ++i) keys[i] = i;
    *count = appid;
  };
  handlers.GetMaxiMumOtherKeys = handlers.GetOtherKeys;
  handlers.GetKeyIcon = [](int appid, int, int code, std::string& icon) {
    icon.assign(static_cast<std::size_t>(appid & 0x7fff), static_cast<char>(code));
  };
  handlers.SetValue = [](int, int, int, const int* keys, int count) {
    fuzz::require(count <= ZUNT_RYN_MAX_OTHER_KEYS, "no more keys than there is room for");
    fuzz::use(keys, ZUNT_RYN_MAX_OTHER_KEYS * sizeof *keys);
  };
  handlers.OpApp_SetStatus = [](std::string status) {
    fuzz::use(status);
    return static_cast<int>(status.size());
  };
  return handlers;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::silenceLibrary();
  return Zunt_RYN_Browser_RegisterCallback(handlers(), nullptr);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::serveAndCheck(&Zunt_RYN_Browser_Server_Callback, data, size);
  return 0;
}
