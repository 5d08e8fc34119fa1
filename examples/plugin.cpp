#include <hbbtv_ryn/plugin.h>

#include <cstdio>

int main() {
  ZuntRynEventCallback loaded;
  loaded.onApp = [](int appid, int orgid, void*) { std::printf("%d/%d is loaded\n", appid, orgid); };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_APP_LOADED, loaded);

  if (Zunt_RYN_Plugin_Initialize() != 0) return 1;

  Zunt_RYN_Plugin_ShowApp(1, 10);  // a command: returns as soon as it is queued
  bool visible = false;
  const int result = Zunt_RYN_Plugin_GetVisible(1, 10, &visible);  // a question: waits for the answer
  if (result == 0) {
    std::printf("visible: %s\n", visible ? "yes" : "no");
  } else if (result == -3) {
    std::printf("no browser process has run yet\n");
  } else {
    std::printf("the browser process is gone\n");  // within a second, however it died
  }
  return Zunt_RYN_Plugin_Finalize();
}
