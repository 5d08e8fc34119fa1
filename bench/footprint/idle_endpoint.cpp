// One endpoint that has had its first exchange with the other and is idle since. Says "idle" and stays.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"

namespace {

// The other process may start later than this one: its queue does not exist until then.
template <typename Question>
int askWhenReady(Question question) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  for (;;) {
    const int result = question();
    if (result == 0 || std::chrono::steady_clock::now() > deadline) return result;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

int startBrowser() {
  const int result = Zunt_RYN_Browser_Initialize();
  if (result != 0) return result;
  return askWhenReady([] {
    bool supported = false;
    return Zunt_RYN_Browser_IsObjectSupported("video/broadcast", &supported);
  });
}

int startPlugin() {
  const int result = Zunt_RYN_Plugin_Initialize();
  if (result != 0) return result;
  return askWhenReady([] {
    bool visible = false;
    return Zunt_RYN_Plugin_GetVisible(1, 1, &visible);
  });
}

}  // namespace

int main(int argc, char** argv) {
  const std::string side = argc == 2 ? argv[1] : "";
  if (side != "browser" && side != "plugin") {
    std::fputs("Usage: idle_endpoint browser|plugin\n", stderr);
    return 2;
  }
  if ((side == "browser" ? startBrowser() : startPlugin()) != 0) {
    std::fprintf(stderr, "The %s endpoint had no exchange with the other one.\n", side.c_str());
    return 1;
  }
  std::puts("idle");
  std::fflush(stdout);
  pause();
}
