// The plug-in side of an evening of television: it creates, shows, asks about and destroys
// applications in the browser process, and is told what becomes of them. It ends with 0 only if every
// answer and every event was the right one. --evenings N repeats it, for something to look at; --on-request
// plays an evening for each line on standard input.

#include <hbbtv_ryn/log.h>
#include <hbbtv_ryn/plugin.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <mutex>
#include <thread>
#include <vector>

#include "demo/narration.h"

namespace {

using demo::name;
using demo::yesNo;
using std::chrono::milliseconds;

demo::Narrator g_narrator("plug-in", 33);

constexpr int kOrganisation = 10;
constexpr int kLateNightOrganisation = 18;
constexpr int kTab = 1;
constexpr int kRedKey = 403;

// --- Events: told on a thread of the library, awaited by the evening ----------------------------------

class Events {
 public:
  void tell(const std::string& event) {
    g_narrator.say("hears    " + event);
    zunt_log("plugin", __FILE__, "tell", __LINE__, "%s\n", event.c_str());
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      events_.push_back(event);
    }
    told_.notify_one();
  }

  // Takes the next event and checks that it is the expected one.
  void expect(const std::string& event) {
    std::unique_lock<std::mutex> lock(mutex_);
    const bool came = told_.wait_for(lock, std::chrono::seconds(10), [this] { return !events_.empty(); });
    const std::string next = came ? events_.front() : "nothing";
    if (came) events_.pop_front();
    lock.unlock();
    if (next != event) g_narrator.check("expects  " + event, next, false, 0);
  }

 private:
  std::mutex mutex_;  // guards the events
  std::condition_variable told_;
  std::deque<std::string> events_;
};

Events g_events;

void on(ZuntRynEvent event, void (*callback)(int, int, void*)) {
  ZuntRynEventCallback registered;
  registered.onApp = callback;
  Zunt_RYN_Plugin_RegisterRynEventCallback(event, registered);
}

void registerEvents() {
  on(ZUNT_RYN_EVENT_APP_LOAD_ERROR,
     [](int a, int o, void*) { g_events.tell(name(a, o) + " failed to load"); });
  on(ZUNT_RYN_EVENT_APP_LOADED, [](int a, int o, void*) { g_events.tell(name(a, o) + " loaded"); });
  on(ZUNT_RYN_EVENT_APP_UNLOADED, [](int a, int o, void*) { g_events.tell(name(a, o) + " unloaded"); });
  on(ZUNT_RYN_EVENT_APP_TOPMOST, [](int a, int o, void*) { g_events.tell(name(a, o) + " top-most"); });
  on(ZUNT_RYN_EVENT_APP_NOT_TOPMOST,
     [](int a, int o, void*) { g_events.tell(name(a, o) + " not top-most"); });
  on(ZUNT_RYN_EVENT_APP_DESTROY_REQUEST,
     [](int a, int o, void*) { g_events.tell(name(a, o) + " wants to go"); });
  on(ZUNT_RYN_EVENT_KEY_TYPE_1, [](int a, int o, void*) { g_events.tell(name(a, o) + " key type 1"); });
  on(ZUNT_RYN_EVENT_KEY_TYPE_2, [](int a, int o, void*) { g_events.tell(name(a, o) + " key type 2"); });
  on(ZUNT_RYN_EVENT_KEY_TYPE_3, [](int a, int o, void*) { g_events.tell(name(a, o) + " key type 3"); });

  ZuntRynEventCallback callback;
  callback.onParentalRating = [](int, int orgid, bool* blocked) {
    *blocked = orgid == kLateNightOrganisation;
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY, callback);
  callback.onObjectSupported = [](const std::string& mtype, bool* supported) {
    *supported = mtype == "video/mp4";
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY, callback);
  callback.onNotify = [] { g_events.tell("configuration wanted"); };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_GET_CONFIGURATION, callback);
  callback.onFlag = [](bool mine) { g_events.tell(std::string("broadcast service: ") + yesNo(mine)); };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_BROADCAST_SERVICE, callback);
  callback.onFlag = [](bool full) { g_events.tell(std::string("broadcast full screen: ") + yesNo(full)); };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_BROADCAST_FULLSCREEN, callback);
  callback.onOpAppChange = [](int, int, std::string before, std::string now, std::string reason) {
    g_events.tell("operator application from " + before + " to " + now + ", " + reason);
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE, callback);
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OPAPP_CONTEXT_CHANGE, callback);
  callback.onOpAppUpdate = [](int, int, std::string event) {
    g_events.tell("operator application: " + event);
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OPAPP_UPDATE, callback);
}

// --- Requests ----------------------------------------------------------------------------------------

// Makes a request and tells how it went. `request` returns the library's result, `answer` the words for it.
template <typename Request, typename Answer>
void ask(const std::string& question, Request request, Answer answer, const std::string& expected,
         int expected_result = 0) {
  const demo::Stopwatch time;
  const int result = request();
  const double took = time.microseconds();
  const std::string got = result == expected_result ? answer() : "result " + std::to_string(result);
  g_narrator.check("asks     " + question, got, got == expected, took);
}

template <typename Request>
void command(const std::string& words, Request request) {
  const demo::Stopwatch time;
  const int result = request();
  g_narrator.check("commands " + words, result == 0 ? "sent" : "result " + std::to_string(result),
                   result == 0, time.microseconds());
}

template <typename Function>
void askYesNo(const std::string& question, Function function, bool expected) {
  bool answer = !expected;
  ask(
      question, [&] { return function(&answer); }, [&] { return yesNo(answer); }, yesNo(expected));
}

template <typename Function>
void askNumber(const std::string& question, Function function, int expected) {
  int answer = -1;
  ask(
      question, [&] { return function(&answer); }, [&] { return std::to_string(answer); },
      std::to_string(expected));
}

template <typename Function>
void askKeys(const std::string& question, Function function, const std::vector<int>& expected) {
  int keys[20] = {};
  int count = 0;
  const auto words = [](const int* first, std::size_t number) {
    std::string list;
    for (std::size_t i = 0; i < number; ++i) list += (i == 0 ? "" : ", ") + std::to_string(first[i]);
    return list;
  };
  ask(
      question, [&] { return function(keys, &count); },
      [&] { return words(keys, static_cast<std::size_t>(count)); },
      words(expected.data(), expected.size()));
}

// The browser may start later than we do: until it has, requests fail with -3 at once.
bool waitForBrowser() {
  for (int attempt = 0; attempt < 100; ++attempt) {
    int appid = 0;
    int orgid = 0;
    if (Zunt_RYN_Plugin_GetCurrentApp(&appid, &orgid) == 0) return true;
    std::this_thread::sleep_for(milliseconds(100));
  }
  return false;
}

struct App {
  int appid = 0;
  int orgid = 0;
  std::string words() const { return name(appid, orgid); }
};

App create(const App& creator, const std::string& url, bool child, int expected_orgid) {
  App created;
  ask(
      "create an application from " + url,
      [&] {
        return Zunt_RYN_Plugin_CreateApp(creator.appid, creator.orgid, url.c_str(), child, false,
                                         &created.appid, &created.orgid);
      },
      [&] {
        return created.appid > creator.appid ? "organisation " + std::to_string(created.orgid)
                                             : "no number";
      },
      "organisation " + std::to_string(expected_orgid));
  g_events.expect("configuration wanted");
  return created;
}

void watchPortal(const App& app) {
  command("show " + app.words(), [&] { return Zunt_RYN_Plugin_ShowApp(app.appid, app.orgid); });
  askYesNo(
      "is it visible?", [&](bool* v) { return Zunt_RYN_Plugin_GetVisible(app.appid, app.orgid, v); }, true);
  command("give it input", [&] { return Zunt_RYN_Plugin_ActivateInput(app.appid, app.orgid, true); });
  for (const char* type : {"1", "2", "3"}) g_events.expect(app.words() + " key type " + type);
  askYesNo(
      "is it active?", [&](bool* a) { return Zunt_RYN_Plugin_GetActive(app.appid, app.orgid, a); }, true);
  askYesNo(
      "is it the primary receiver?",
      [&](bool* p) { return Zunt_RYN_Plugin_GetPrimaryReceiver(app.appid, app.orgid, p); }, true);
  askYesNo(
      "did the browser consume the red key?",
      [](bool* c) { return Zunt_RYN_Plugin_KeyConsumedByBrowser(kTab, kRedKey, c); }, true);
}

void setKeys(const App& app) {
  const int keys[] = {kRedKey, kRedKey + 1};
  command("use key set 31", [&] { return Zunt_RYN_Plugin_SetValue(app.appid, app.orgid, 31, keys, 2); });
  askNumber(
      "its key set?", [&](int* v) { return Zunt_RYN_Plugin_GetValue(app.appid, app.orgid, v); }, 31);
  askKeys("its other keys?",
          [&](int* k, int* n) { return Zunt_RYN_Plugin_GetOtherKeys(app.appid, app.orgid, k, n); },
          {403, 404});
  askNumber(
      "the largest key set?",
      [&](int* v) { return Zunt_RYN_Plugin_GetMaxiMumValue(app.appid, app.orgid, v); }, 1023);
  askKeys("the most other keys?",
          [&](int* k, int* n) { return Zunt_RYN_Plugin_GetMaxiMumOtherKeys(app.appid, app.orgid, k, n); },
          {403, 404, 405, 406});
  std::string words;
  ask(
      "the red key's label?",
      [&] { return Zunt_RYN_Plugin_GetKeyLabel(app.appid, app.orgid, kRedKey, words); },
      [&] { return words; }, "Röd");
  ask(
      "the red key's icon?",
      [&] { return Zunt_RYN_Plugin_GetKeyIcon(app.appid, app.orgid, kRedKey, words); },
      [&] { return words; }, "icons/403.png");
  command("support a pointer",
          [&] { return Zunt_RYN_Plugin_SetSupportsPointer(app.appid, app.orgid, true); });
  askYesNo(
      "does it?", [&](bool* p) { return Zunt_RYN_Plugin_GetSupportsPointer(app.appid, app.orgid, p); },
      true);
}

void openChild(const App& portal) {
  const App child = create(portal, "http://portal.example/guide", true, portal.orgid);
  g_events.expect(child.words() + " loaded");
  g_events.expect(child.words() + " top-most");
  App owner{child.appid, 0};
  ask(
      "who owns " + child.words() + "?",
      [&] { return Zunt_RYN_Plugin_GetOwnerApp(&owner.appid, &owner.orgid); },
      [&] { return owner.words(); }, portal.words());
  App current;
  ask(
      "which one is current?",
      [&] { return Zunt_RYN_Plugin_GetCurrentApp(&current.appid, &current.orgid); },
      [&] { return current.words(); }, child.words());
  int appids[512] = {};
  int orgids[512] = {};
  int count = 0;
  ask(
      "the children of " + portal.words() + "?",
      [&] { return Zunt_RYN_Plugin_GetChildApps(portal.appid, portal.orgid, appids, orgids, &count); },
      [&] { return count == 1 ? name(appids[0], orgids[0]) : std::to_string(count); }, child.words());
}

void switchBroadcast() {
  askYesNo(
      "may tab 1 use the broadcast?",
      [](bool* a) { return Zunt_RYN_Plugin_Get_VB_Resouce_Allowed(kTab, a); }, true);
  command("make its application broadcast-independent", [] { return Zunt_RYN_Plugin_SetBRAppToBI(kTab); });
  askNumber(
      "its type?", [](int* type) { return Zunt_RYN_Plugin_Get_APP_TYPE(kTab, type); }, 2);
  command("make it broadcast-related again", [] { return Zunt_RYN_Plugin_SetBIAppToBR(kTab); });
  askNumber(
      "its type?", [](int* type) { return Zunt_RYN_Plugin_Get_APP_TYPE(kTab, type); }, 1);
}

void runOperatorApp() {
  const auto nothing = [] { return std::string("done"); };
  askYesNo("may the operator application be uninstalled?", &Zunt_RYN_Plugin_OpApp_Uninstall_Judge, true);
  ask("put it in the foreground", &Zunt_RYN_Plugin_OpApp_RequestForeground, nothing, "done");
  g_events.expect("operator application from background to foreground, asked \"politely\"");
  std::string status;
  ask(
      "its status?", [&] { return Zunt_RYN_Plugin_OpApp_GetStatus(status); }, [&] { return status; },
      "foreground");
  ask("make it transient", &Zunt_RYN_Plugin_OpApp_RequestTransient, nothing, "done");
  g_events.expect("operator application from foreground to transient, asked \"politely\"");
  ask(
      "set its status", [] { return Zunt_RYN_Plugin_OpApp_SetStatus("home \\ menu"); }, nothing, "done", 1);
  g_events.expect("operator application from boot to home \\ menu, status set");
  askNumber("how far is its update?", &Zunt_RYN_Plugin_OpApp_GetUpdateStatus, 3);
  ask("update it", &Zunt_RYN_Plugin_OpApp_RequestUpdate, nothing, "done");
  g_events.expect("operator application: SOFTWARE_INSTALLED");
  ask("put it in the background", &Zunt_RYN_Plugin_OpApp_RequestBackground, nothing, "done");
  g_events.expect("operator application from transient to background, asked \"politely\"");
}

void goHome(const App& portal) {
  command("hide " + portal.words(), [&] { return Zunt_RYN_Plugin_HideApp(portal.appid, portal.orgid); });
  g_events.expect("broadcast service: yes");
  g_events.expect("broadcast full screen: yes");
  command("take its input away",
          [&] { return Zunt_RYN_Plugin_DeactivateInput(portal.appid, portal.orgid); });
  g_events.expect(portal.words() + " wants to go");
  command("destroy " + portal.words(),
          [&] { return Zunt_RYN_Plugin_DestroyApp(portal.appid, portal.orgid); });
  const App child{portal.appid + 1, portal.orgid};
  for (const App& gone : {child, portal}) {
    g_events.expect(gone.words() + " not top-most");
    g_events.expect(gone.words() + " unloaded");
  }
}

void spendEvening() {
  const App portal = create({}, "http://portal.example/?org=10", false, kOrganisation);
  g_events.expect(portal.words() + " loaded");
  g_events.expect(portal.words() + " top-most");
  watchPortal(portal);
  openChild(portal);
  setKeys(portal);
  switchBroadcast();
  runOperatorApp();
  goHome(portal);
  const App late = create({}, "http://late.example/?org=18", false, kLateNightOrganisation);
  g_events.expect(late.words() + " failed to load");
  command("destroy " + late.words(), [&] { return Zunt_RYN_Plugin_DestroyApp(late.appid, late.orgid); });
  g_events.expect(late.words() + " not top-most");
  g_events.expect(late.words() + " unloaded");
}

}  // namespace

int main(int argc, char** argv) {
  const bool repeat = argc == 3 && std::strcmp(argv[1], "--evenings") == 0;
  const bool on_request = argc == 2 && std::strcmp(argv[1], "--on-request") == 0;
  const long evenings = repeat ? std::strtol(argv[2], nullptr, 10) : 1;
  if ((argc != 1 && !repeat && !on_request) || evenings < 1) {
    std::fprintf(stderr, "Usage: plugin_host [--evenings NUMBER | --on-request]\n");
    return 2;
  }
  if (std::getenv("DEMO_TRACE") != nullptr) insert_modules_list("ryn_trace", 1);
  zunt_log_initialize(1);
  registerEvents();
  if (Zunt_RYN_Plugin_Initialize() != 0) {
    std::fprintf(stderr,
                 "plugin_host: the bridge cannot be started; do the queues belong to another user?\n");
    return 1;
  }
  if (!waitForBrowser()) {
    std::fprintf(stderr, "plugin_host: no browser host answers; start browser_host\n");
    Zunt_RYN_Plugin_Finalize();
    return 1;
  }
  if (on_request) {
    for (std::string line; std::getline(std::cin, line);) spendEvening();
  }
  for (long evening = 0; evening < evenings && !on_request; ++evening) {
    if (evening > 0) std::this_thread::sleep_for(milliseconds(500));
    spendEvening();
  }
  Zunt_RYN_Plugin_Finalize();
  if (g_narrator.mistakes() > 0) std::fprintf(stderr, "plugin_host: %d surprises\n", g_narrator.mistakes());
  return g_narrator.mistakes() == 0 ? 0 : 1;
}
