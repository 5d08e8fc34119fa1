#include <hbbtv_ryn/browser.h>
#include <signal.h>

bool g_visible = false;

int main() {
  sigset_t stop;  // before any thread starts
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);

  // Serve what you can; what you leave out is answered with 0, false or nothing.
  ZuntRynBrowserEventCallback handlers{};
  handlers.ShowApp = [](int, int) { g_visible = true; };
  handlers.GetVisible = [](int, int, bool* visible) { *visible = g_visible; };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);

  if (Zunt_RYN_Browser_Initialize() != 0) return 1;
  Zunt_RYN_Browser_SendAppLoaded(1, 10);  // -3 until a plug-in process has run: nobody misses it

  int signal = 0;
  sigwait(&stop, &signal);
  return Zunt_RYN_Browser_Finalize();
}
