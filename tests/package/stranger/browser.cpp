// A browser host that knows one application. It ends when that application has been destroyed.

#include <hbbtv_ryn/browser.h>
#include <hbbtv_ryn/log.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <string>

namespace {

constexpr int kAppId = 7;
constexpr int kOrgId = 42;

bool g_visible = false;
std::promise<bool> g_destroyed;
std::promise<void> g_shown;

void createApp(int appid, int orgid, const char* url, bool child, bool opapp, int* new_appid,
               int* new_orgid) {
  const bool as_asked = appid == 1 && orgid == 2 && child && !opapp &&
                        std::strcmp(url, "http://example.org/?a=\"b\"&c=\\d") == 0;
  *new_appid = as_asked ? kAppId : 0;
  *new_orgid = as_asked ? kOrgId : 0;
}

void showApp(int appid, int orgid) {
  g_visible = appid == kAppId && orgid == kOrgId;
  g_shown.set_value();
}

void getVisible(int appid, int orgid, bool* visible) {
  *visible = appid == kAppId && orgid == kOrgId && g_visible;
}

void getKeyLabel(int, int, int key_code, std::string& label) {
  label = key_code == 403 ? "red" : "";
}

void destroyApp(int appid, int orgid) {
  g_destroyed.set_value(appid == kAppId && orgid == kOrgId);
}

template <typename Value>
bool arrives(std::future<Value>& value) {
  return value.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
}

bool serve() {
  auto shown = g_shown.get_future();
  auto destroyed = g_destroyed.get_future();
  if (!arrives(shown)) return false;

  bool blocked = false;
  if (Zunt_RYN_Browser_IsParentalRatingBlocked(kAppId, kOrgId, &blocked) != 0 || !blocked) return false;
  if (Zunt_RYN_Browser_SendAppLoaded(kAppId, kOrgId) != 0) return false;
  return arrives(destroyed) && destroyed.get();
}

}  // namespace

int main() {
  zunt_log_print(LOG_TYPE_ERROR, "stranger", __FILE__, __func__, __LINE__, nullptr, nullptr);

  ZuntRynBrowserEventCallback handlers{};
  handlers.CreateApp = createApp;
  handlers.ShowApp = showApp;
  handlers.GetVisible = getVisible;
  handlers.GetKeyLabel = getKeyLabel;
  handlers.DestroyApp = destroyApp;
  if (Zunt_RYN_Browser_RegisterCallback(handlers, nullptr) != 0) return 1;
  if (Zunt_RYN_Browser_Initialize() != 0) return 1;
  const bool content = serve();
  if (Zunt_RYN_Browser_Finalize() != 0) return 1;
  std::printf("browser: %s\n", content ? "content" : "NOT content");
  return content ? 0 : 1;
}
