// The library as its hosts use it: a plug-in that asks, and a browser that notifies.
#include <hbbtv_ryn/browser.h>
#include <hbbtv_ryn/plugin.h>
#include <unistd.h>

#include <stdexcept>

#include "message.h"
#include "transport.h"

namespace bench {
namespace {

// The handlers are plain functions, so what they use is global. Set before they are registered.
SharedPage* g_page = nullptr;

void checkCall(int result, const char* what) {
  if (result != 0) throw std::runtime_error(std::string(what) + " returns " + std::to_string(result));
}

void onGetVisible(int appid, int orgid, bool* visible) {
  *visible = appid == kAppId && orgid == kOrgId;
  g_page->arrived();
}

// The slot takes its string by value.  NOLINTNEXTLINE(performance-unnecessary-value-param)
int onSetStatus(std::string status) {
  g_page->arrived();
  return status.empty() ? -1 : 0;
}

void onAppLoaded(int appid, int orgid, void*) {
  if (appid == kAppId && orgid == kOrgId) g_page->arrived();
}

void startBrowser() {
  checkCall(Zunt_RYN_Browser_Initialize(), "Zunt_RYN_Browser_Initialize");
}
void startPlugin() {
  checkCall(Zunt_RYN_Plugin_Initialize(), "Zunt_RYN_Plugin_Initialize");
}

bool asks(Work work) {
  return work == Work::kRoundTrip || work == Work::kSweep;
}

class Library final : public Transport {
 public:
  void receive(Work work, SharedPage& page) override {
    g_page = &page;
    if (asks(work)) {
      ZuntRynBrowserEventCallback handlers{};
      handlers.GetVisible = onGetVisible;
      handlers.OpApp_SetStatus = onSetStatus;
      Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
      startBrowser();
    } else {
      ZuntRynEventCallback callback{};
      callback.onApp = onAppLoaded;
      Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_APP_LOADED, callback);
      startPlugin();
    }
    page.receiverIsReady();
    for (;;) pause();
  }

  void startSender(Work work) override { asks(work) ? startPlugin() : startBrowser(); }

  void getVisible() override {
    bool visible = false;
    checkCall(Zunt_RYN_Plugin_GetVisible(kAppId, kOrgId, &visible), "Zunt_RYN_Plugin_GetVisible");
    if (!visible) throw std::runtime_error("the answer to a request is wrong");
  }

  void notify() override {
    checkCall(Zunt_RYN_Browser_SendAppLoaded(kAppId, kOrgId), "Zunt_RYN_Browser_SendAppLoaded");
  }

  void exchange(int bytes) override {
    checkCall(Zunt_RYN_Plugin_OpApp_SetStatus(std::string(statusLength(bytes), 's')),
              "Zunt_RYN_Plugin_OpApp_SetStatus");
  }
};

}  // namespace

std::unique_ptr<Transport> makeLibrary(const std::string&) {
  return std::make_unique<Library>();
}

}  // namespace bench
