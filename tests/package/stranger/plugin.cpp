// A plug-in host that creates, shows and destroys one application, and checks each answer.

#include <hbbtv_ryn/plugin.h>
#include <hbbtv_ryn/request_registry.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <thread>

namespace {

std::promise<bool> g_loaded;

void onAppLoaded(int appid, int orgid, void*) {
  g_loaded.set_value(appid == 7 && orgid == 42);
}

void onParentalRating(int, int, bool* blocked) {
  *blocked = true;
}

// The browser process may start later than this one: it has no queue then (-3), or nobody serves it yet
// (-1).
int createWhenReady(int* appid, int* orgid) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  for (;;) {
    const int result =
        Zunt_RYN_Plugin_CreateApp(1, 2, "http://example.org/?a=\"b\"&c=\\d", true, false, appid, orgid);
    if (result == 0 || std::chrono::steady_clock::now() > deadline) return result;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

const char* firstDisappointment() {
  int appid = 0;
  int orgid = 0;
  if (createWhenReady(&appid, &orgid) != 0) return "CreateApp";
  if (appid != 7 || orgid != 42) return "the new application";

  bool visible = true;
  if (Zunt_RYN_Plugin_GetVisible(appid, orgid, &visible) != 0 || visible) return "GetVisible before";
  if (Zunt_RYN_Plugin_ShowApp(appid, orgid) != 0) return "ShowApp";
  if (Zunt_RYN_Plugin_GetVisible(appid, orgid, &visible) != 0 || !visible) return "GetVisible after";

  std::string label;
  if (Zunt_RYN_Plugin_GetKeyLabel(appid, orgid, 403, label) != 0 || label != "red") return "GetKeyLabel";

  auto loaded = g_loaded.get_future();
  if (loaded.wait_for(std::chrono::seconds(30)) != std::future_status::ready || !loaded.get()) {
    return "the loaded event";
  }
  return Zunt_RYN_Plugin_DestroyApp(appid, orgid) == 0 ? nullptr : "DestroyApp";
}

}  // namespace

int main() {
  int request = 0;
  if (addRequest(true, "create", nullptr, &request) != 0 || getRequestSize() != 1) return 1;

  ZuntRynEventCallback callback{};
  callback.onApp = onAppLoaded;
  if (Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_APP_LOADED, callback) != 0) return 1;
  callback.onParentalRating = onParentalRating;
  if (Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY, callback) != 0)
    return 1;
  if (Zunt_RYN_Plugin_Initialize() != 0) return 1;
  const char* disappointment = firstDisappointment();
  if (Zunt_RYN_Plugin_Finalize() != 0) return 1;
  std::printf("plugin: %s%s\n", disappointment == nullptr ? "content" : "NOT content with ",
              disappointment == nullptr ? "" : disappointment);
  return disappointment == nullptr ? 0 : 1;
}
