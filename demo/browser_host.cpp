// The browser side of an evening of television: it serves the plug-in process's requests from a small set
// of applications, reports what happens to them and asks its two questions. It runs until SIGTERM or SIGINT
// and ends with 0 only if every answer it got was the right one.

#include <hbbtv_ryn/browser.h>
#include <hbbtv_ryn/log.h>
#include <signal.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "demo/app_model.h"
#include "demo/narration.h"

namespace {

using demo::AppId;
using demo::name;
using demo::yesNo;

demo::Narrator g_narrator("browser", 36);
demo::AppModel g_apps;  // touched by the handlers only, which run one at a time
std::string g_operator_state = "background";
bool g_broadcast_independent = false;

constexpr int kRedKey = 403;
constexpr int kTab = 1;
constexpr int kLoadRefused = 4;
constexpr const char* kPlayable = "video/mp4";
constexpr int kLateNightOrganisation = 18;

// Handlers must return quickly, since the next request waits for them. What takes longer, or asks the
// plug-in process in turn, is left to this thread.
class Worker {
 public:
  ~Worker() {
    later(nullptr);
    if (thread_.joinable()) thread_.join();
  }
  void start() {
    thread_ = std::thread([this] { run(); });
  }
  void later(std::function<void()> task) {
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      tasks_.push_back(std::move(task));
    }
    arrived_.notify_one();
  }

 private:
  void run() {
    for (;;) {
      std::unique_lock<std::mutex> lock(mutex_);
      arrived_.wait(lock, [this] { return !tasks_.empty(); });
      const std::function<void()> task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      if (!task) return;
      task();
    }
  }

  std::mutex mutex_;  // guards the tasks; an empty one ends the thread
  std::condition_variable arrived_;
  std::deque<std::function<void()>> tasks_;
  std::thread thread_;
};

Worker* g_worker = nullptr;

void later(std::function<void()> task) {
  g_worker->later(std::move(task));
}

void sent(const std::string& news, int result) {
  if (result == 0) return g_narrator.say("tells    " + news);
  g_narrator.check("tells    " + news, "result " + std::to_string(result), false, 0);
}

// Asks both questions and reports the outcome, as a browser does when it loads an application.
void load(AppId app) {
  const auto [appid, orgid] = app;
  sent("the configuration is wanted", Zunt_RYN_Browser_Get_Configuration());
  bool supported = false;
  demo::Stopwatch object_time;
  int result = Zunt_RYN_Browser_IsObjectSupported(kPlayable, &supported);
  g_narrator.check(std::string("asks     can you play ") + kPlayable + "?", yesNo(supported),
                   result == 0 && supported, object_time.microseconds());

  bool blocked = false;
  demo::Stopwatch rating_time;
  result = Zunt_RYN_Browser_IsParentalRatingBlocked(appid, orgid, &blocked);
  g_narrator.check("asks     is " + name(appid, orgid) + " blocked by parental rating?", yesNo(blocked),
                   result == 0 && blocked == (orgid == kLateNightOrganisation), rating_time.microseconds());
  if (blocked) {
    sent(name(appid, orgid) + " could not be loaded",
         Zunt_RYN_Browser_SendAppLoadError(appid, orgid, kLoadRefused));
    return;
  }
  sent(name(appid, orgid) + " is loaded", Zunt_RYN_Browser_SendAppLoaded(appid, orgid));
  sent(name(appid, orgid) + " is top-most", Zunt_RYN_Browser_SendTopMost(appid, orgid, true));
}

void pressKeys(AppId app) {
  const auto [appid, orgid] = app;
  for (int type = 1; type <= 3; ++type) {
    sent(
        "key " + std::to_string(kRedKey) + ", type " + std::to_string(type) + ", for " + name(appid, orgid),
        Zunt_RYN_Browser_SendKey(appid, orgid, static_cast<ZuntKey>(kRedKey),
                                 static_cast<ZuntKeyEventType>(type)));
  }
}

void unload(AppId app) {
  const auto [appid, orgid] = app;
  sent(name(appid, orgid) + " is not top-most any more", Zunt_RYN_Browser_SendTopMost(appid, orgid, false));
  sent(name(appid, orgid) + " is unloaded", Zunt_RYN_Browser_SendAppUnloaded(appid, orgid));
}

int changeOperatorState(const std::string& new_state) {
  const std::string old_state = g_operator_state;
  g_operator_state = new_state;
  later([old_state, new_state] {
    sent("operator application: " + old_state + " to " + new_state,
         Zunt_RYN_Browser_OpApp_StateChange(1, 10, old_state, new_state, "asked \"politely\""));
  });
  return 0;
}

demo::App& app(int appid, int orgid) {
  static demo::App nobody;
  demo::App* const found = g_apps.find({appid, orgid});
  return found != nullptr ? *found : nobody = demo::App();
}

void served(const std::string& deed) {
  g_narrator.say("serves   " + deed);
  zunt_log("browser", __FILE__, "served", __LINE__, "%s\n", deed.c_str());
}

ZuntRynBrowserEventCallback handlers() {
  ZuntRynBrowserEventCallback h{};
  h.GetOwnerApp = [](int* appid, int* orgid, void*) {
    const AppId owner = app(*appid, g_apps.byNumber(*appid).second).owner;
    *appid = owner.first;
    *orgid = owner.second;
  };
  h.GetCurrentApp = [](int* appid, int* orgid, void*) {
    *appid = g_apps.current().first;
    *orgid = g_apps.current().second;
  };
  h.GetChildApps = [](int appid, int orgid, int* appids, int* orgids, int* count) {
    for (const AppId& child : g_apps.childrenOf({appid, orgid})) {
      if (*count == ZUNT_RYN_MAX_CHILD_APPS) return;
      appids[*count] = child.first;
      orgids[*count] = child.second;
      ++*count;
    }
  };
  h.CreateApp = [](int appid, int orgid, const char* url, bool child, bool opapp, int* new_appid,
                   int* new_orgid) {
    const AppId created = g_apps.create({appid, orgid}, url, child, opapp);
    *new_appid = created.first;
    *new_orgid = created.second;
    served("create " + name(created.first, created.second) + " from " + url);
    later([created] { load(created); });
  };
  h.DestroyApp = [](int appid, int orgid) {
    served("destroy " + name(appid, orgid));
    for (const AppId& gone : g_apps.destroy({appid, orgid})) later([gone] { unload(gone); });
  };
  h.ShowApp = [](int appid, int orgid) {
    served("show " + name(appid, orgid));
    app(appid, orgid).visible = true;
  };
  h.HideApp = [](int appid, int orgid) {
    served("hide " + name(appid, orgid));
    app(appid, orgid).visible = false;
    later([] {
      sent("the broadcast service is yours", Zunt_RYN_Browser_Handle_BroadcastService(true));
      sent("the broadcast goes full screen", Zunt_RYN_Browser_Set_BroadcastFullScreen(true));
    });
  };
  h.ActivateInput = [](int appid, int orgid, bool focus) {
    served("input for " + name(appid, orgid) + (focus ? ", with focus" : ""));
    app(appid, orgid).active = true;
    app(appid, orgid).focus = focus;
    later([=] { pressKeys({appid, orgid}); });
  };
  h.DeactivateInput = [](int appid, int orgid) {
    served("no input for " + name(appid, orgid));
    app(appid, orgid).active = app(appid, orgid).focus = false;
    later([=] {
      sent(name(appid, orgid) + " wants to be destroyed", Zunt_RYN_Browser_RequestDestroyApp(appid, orgid));
    });
  };
  h.GetVisible = [](int appid, int orgid, bool* visible) { *visible = app(appid, orgid).visible; };
  h.GetActive = [](int appid, int orgid, bool* active) { *active = app(appid, orgid).active; };
  h.GetPrimaryReceiver = [](int appid, int orgid, bool* primary) { *primary = app(appid, orgid).focus; };

  h.GetValue = [](int appid, int orgid, int* value) { *value = app(appid, orgid).key_set; };
  h.GetOtherKeys = [](int appid, int orgid, int* keys, int* count) {
    const std::vector<int>& other = app(appid, orgid).other_keys;
    *count = static_cast<int>(other.size());
    std::copy(other.begin(), other.end(), keys);
  };
  h.GetMaxiMumValue = [](int, int, int* value) { *value = 0x3ff; };
  h.GetMaxiMumOtherKeys = [](int, int, int* keys, int* count) {
    for (int key = kRedKey; key < kRedKey + 4; ++key) keys[(*count)++] = key;
  };
  h.SetSupportsPointer = [](int appid, int orgid, bool pointer) { app(appid, orgid).pointer = pointer; };
  h.GetSupportsPointer = [](int appid, int orgid, bool* pointer) { *pointer = app(appid, orgid).pointer; };
  h.GetKeyIcon = [](int, int, int code, std::string& icon) {
    icon = "icons/" + std::to_string(code) + ".png";
  };
  h.GetKeyLabel = [](int, int, int code, std::string& label) { label = code == kRedKey ? "Röd" : "?"; };
  h.SetValue = [](int appid, int orgid, int value, const int* keys, int count) {
    served("key set of " + name(appid, orgid) + ": " + std::to_string(value));
    app(appid, orgid).key_set = value;
    app(appid, orgid).other_keys.assign(keys, keys + std::max(count, 0));
  };

  h.Get_VB_Resouce_Allowed = [](int tabid, bool* allowed) { *allowed = tabid == kTab; };
  h.SetBRAppToBI = [](int) { g_broadcast_independent = true; };
  h.SetBIAppToBR = [](int) { g_broadcast_independent = false; };
  h.Get_APP_TYPE = [](int, int* type) { *type = g_broadcast_independent ? 2 : 1; };
  h.KeyConsumedByBrowser = [](int, int key_code, bool* consumed) { *consumed = key_code == kRedKey; };

  h.OpApp_Uninstall_Judge = [](bool* flag) { *flag = g_operator_state == "background"; };
  h.OpApp_GetStatus = [](std::string& status) {
    status = g_operator_state;
    return 0;
  };
  h.OpApp_SetStatus = [](std::string status) {
    later([status] {
      sent("operator application launched from " + status,
           Zunt_RYN_Browser_OpApp_ContextChange(1, 10, "boot", status, "status set"));
    });
    return 1;
  };
  h.OpApp_RequestTransient = [] { return changeOperatorState("transient"); };
  h.OpApp_RequestForeground = [] { return changeOperatorState("foreground"); };
  h.OpApp_RequestBackground = [] { return changeOperatorState("background"); };
  h.OpApp_GetUpdateStatus = [](int* status) {
    *status = 3;
    return 0;
  };
  h.OpApp_RequestUpdate = [] {
    later([] {
      sent("operator application: update", Zunt_RYN_Browser_OpApp_Update(1, 10, "SOFTWARE_INSTALLED"));
    });
    return 0;
  };
  return h;
}

}  // namespace

int main() {
  // Blocked before any thread starts, so that only sigwait() below takes them.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  if (std::getenv("DEMO_TRACE") != nullptr) insert_modules_list("ryn_trace", 1);
  zunt_log_initialize(1);
  {
    Worker worker;
    g_worker = &worker;
    Zunt_RYN_Browser_RegisterCallback(handlers(), nullptr);
    if (Zunt_RYN_Browser_Initialize() != 0) {
      std::fprintf(stderr,
                   "browser_host: the bridge cannot be started; do the queues belong to another user?\n");
      return 1;
    }
    // Requests are served from the middle of the initialisation on, but nothing can be sent before its end.
    worker.start();
    int signal = 0;
    sigwait(&stop_signals, &signal);
    Zunt_RYN_Browser_UnregisterCallback();  // from here on no handler gives the worker anything to do
  }
  Zunt_RYN_Browser_Finalize();  // nobody sends any more
  if (g_narrator.mistakes() > 0)
    std::fprintf(stderr, "browser_host: %d wrong answers\n", g_narrator.mistakes());
  return g_narrator.mistakes() == 0 ? 0 : 1;
}
