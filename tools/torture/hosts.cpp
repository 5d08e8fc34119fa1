#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "tools/support/sanitizers.h"
#include "tools/torture/answers.h"
#include "tools/torture/ledger.h"
#include "tools/torture/random.h"
#include "tools/torture/roles.h"

namespace hbbtv_ryn::test {
namespace {

Ledger* g_ledger = nullptr;
// Beside a predecessor that still asks, a host must not: two clients of one queue take each other's
// answers.
std::atomic<bool> g_may_call{false};

int anyId(Random& random) {
  return random.below(1 << 30);
}

// Mostly short.
std::string anyText(Random& random) {
  const bool one_record = g_ledger->phase == Phase::kMalformed || !random.oneIn(8);
  std::string text(static_cast<std::size_t>(random.below(one_record ? kOneRecordText : kManyRecordsText)),
                   ' ');
  for (char& c : text) c = static_cast<char>('a' + random.below(26));
  return text;
}

// --- What is answered

// Most answers come at once, a few late enough for the asker to wonder whether the host is alive.
void takeTime(int number) {
  if (number % 3000 == 1) usleep(700000);
  if (number % 100 == 1) usleep(3000);
}

void registerBrowserHandlers() {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetKeyLabel = [](int appid, int orgid, int, std::string& label) {
    takeTime(appid);
    label = labelFor(appid, orgid);
  };
  handlers.OpApp_SetStatus = [](std::string status) { return numberFor(status); };
  handlers.ShowApp = [](int, int) { ++g_ledger->received; };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
}

void registerPluginCallbacks() {
  ZuntRynEventCallback query;
  query.onObjectSupported = [](const std::string& mtype, bool* supported) {
    takeTime(numberFor(mtype));
    *supported = numberFor(mtype) % 2 != 0;
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY, query);
  ZuntRynEventCallback notification;
  notification.onOpAppChange = [](int appid, int orgid, std::string, std::string, std::string) {
    ++g_ledger->received;
    // Callbacks may ask; not each time, or the browser's events would wait for its own answers.
    std::string label;
    if (g_may_call && appid % 16 == 0) Zunt_RYN_Plugin_GetKeyLabel(2, orgid, 1, label);
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE, notification);
}

// --- What is asked and sent

struct Outcome {
  const char* question;
  int result;  // 0, or why there is no answer
  bool right;  // the right answer; without an answer, the out-parameters as they were
};

Outcome askLabel(Random& random) {
  const int appid = anyId(random);
  const int orgid = anyId(random);
  std::string label = "before";
  const int result = Zunt_RYN_Plugin_GetKeyLabel(appid, orgid, 3, label);
  return {"GetKeyLabel", result, label == (result == 0 ? labelFor(appid, orgid) : "before")};
}

Outcome askForStatus(Random& random) {
  const std::string status = anyText(random);
  const int result = Zunt_RYN_Plugin_OpApp_SetStatus(status);
  return {"OpApp_SetStatus", std::min(result, 0), result < 0 || result == numberFor(status)};
}

Outcome askSupported(Random& random) {
  const std::string mtype = anyText(random);
  const bool expected = numberFor(mtype) % 2 != 0;
  bool supported = !expected;
  const int result = Zunt_RYN_Browser_IsObjectSupported(mtype, &supported);
  return {"IsObjectSupported", result, (supported == expected) == (result == 0)};
}

struct Host {
  Side side;
  int (*start)();
  int (*stop)();
  std::vector<Outcome (*)(Random&)> questions;
  void (*send)(Random&);
};

const Host kBrowser{kBrowserSide,
                    &Zunt_RYN_Browser_Initialize,
                    &Zunt_RYN_Browser_Finalize,
                    {&askSupported},
                    [](Random& random) {
                      Zunt_RYN_Browser_OpApp_StateChange(anyId(random), 5, "old", anyText(random),
                                                         "reason");
                    }};
const Host kPlugin{kPluginSide,
                   &Zunt_RYN_Plugin_Initialize,
                   &Zunt_RYN_Plugin_Finalize,
                   {&askLabel, &askForStatus},
                   [](Random& random) { Zunt_RYN_Plugin_ShowApp(anyId(random), 5); }};

// --- The threads of a host that call the library

class Callers {
 public:
  Callers(const Host& host, uint64_t seed) : host_(host), seed_(seed) {
    const int lasting = kRequestersMayBeCancelled ? kCallers - 1 : kCallers;
    for (int i = 0; i < lasting; ++i) lasting_.emplace_back([this, i] { call(i); });
    if (kRequestersMayBeCancelled) nuisance_ = std::thread([this] { breakAndCancel(); });
  }
  ~Callers() {
    stop_ = true;
    if (nuisance_.joinable()) nuisance_.join();
    for (auto& thread : lasting_) thread.join();
  }
  Callers(const Callers&) = delete;
  Callers& operator=(const Callers&) = delete;

 private:
  // The thread may be cancelled in its call.
  struct InProgress {
    InProgress(std::atomic<Nanoseconds>& call, Nanoseconds began) : call_(call) { call_ = began; }
    ~InProgress() { call_ = 0; }
    InProgress(const InProgress&) = delete;
    InProgress& operator=(const InProgress&) = delete;
    std::atomic<Nanoseconds>& call_;
  };

  void call(int index) {
    auto& in_progress = g_ledger->calls[host_.side][static_cast<std::size_t>(index)];
    for (Random random(seed_ + static_cast<uint64_t>(index)); !stop_;) {
      index == 0 ? send(random, in_progress) : ask(random, in_progress);
    }
  }

  void send(Random& random, std::atomic<Nanoseconds>& in_progress) const {
    {
      const InProgress call(in_progress, now());
      host_.send(random);
    }
    ++g_ledger->one_way;
    // Each full queue costs a sender 100 ms and everyone who waits for it too: seldom enough for exchanges
    // to get their turn.
    usleep(300);
  }

  void ask(Random& random, std::atomic<Nanoseconds>& in_progress) const {
    const Phase phase = g_ledger->phase;
    const auto question = random.below(host_.questions.size());
    const Nanoseconds began = now();
    const Outcome outcome = [&] {
      const InProgress call(in_progress, began);
      return host_.questions[question](random);
    }();
    const bool may_be_disturbed =
        phase == Phase::kAnything || phase == Phase::kSettling || phase != g_ledger->phase;
    if (outcome.right && outcome.result == 0) {
      ++g_ledger->exchanges;
      ++g_ledger->right_in_a_row[host_.side];
      return;
    }
    g_ledger->right_in_a_row[host_.side] = 0;
    if (outcome.right && (outcome.result == -1 || outcome.result == -3)) {
      ++g_ledger->unanswered;
      if (phase == Phase::kKills && !may_be_disturbed) countDeadCall(began);
      usleep(1000);  // a host that got no answer has nothing better to do either
    } else if (may_be_disturbed) {
      ++g_ledger->disturbed;
    } else if (g_ledger->wrong++ == 0) {
      std::snprintf(g_ledger->first_wrong, sizeof g_ledger->first_wrong,
                    "%s of the %s, result %d, phase %d", outcome.question, kSideNames[host_.side],
                    outcome.result, static_cast<int>(phase));
    }
  }

  // How long the call lasted after its peer was dead. Where another lives by now, the call may have waited
  // for that one's slow handlers.
  void countDeadCall(Nanoseconds began) const {
    const Nanoseconds killed_at = g_ledger->killed_at[peerOf(host_.side)];
    if (killed_at == 0) return;
    const Nanoseconds lasted = now() - std::max(began, killed_at);
    Nanoseconds longest = g_ledger->longest_dead_call;
    while (lasted > longest && !g_ledger->longest_dead_call.compare_exchange_weak(longest, lasted))
      continue;
  }

  // Breaks the waits of the others with signals, and cancels the last caller wherever it is.
  void breakAndCancel() {
    for (Random random(seed_); !stop_;) {
      std::thread last([this] { call(kCallers - 1); });
      usleep(static_cast<useconds_t>(500 + random.below(30000)));
      for (auto& thread : lasting_) pthread_kill(thread.native_handle(), SIGUSR1);
      pthread_cancel(last.native_handle());
      last.join();
      ++g_ledger->cancelled;
    }
  }

  const Host& host_;
  const uint64_t seed_;
  std::atomic<bool> stop_{false};
  std::vector<std::thread> lasting_;
  std::thread nuisance_;
};

int runHost(Parent& parent, const Host& host, void (*register_callbacks)()) {
  // Each thread's arena would grow for a while before it is full of holes that fit.
  mallopt(M_ARENA_MAX, 1);
  g_ledger = &openLedger(parent.argument(0));
  // The channel writes a line for each refusal of a full queue: here, thousands.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
  struct sigaction breaking {};  // without SA_RESTART
  breaking.sa_handler = [](int) {};
  sigaction(SIGUSR1, &breaking, nullptr);
  register_callbacks();
  if (host.start() != 0) return 3;
  parent.say("up");
  parent.hear();
  g_may_call = true;
  {
    const Callers callers(host, std::stoull(parent.argument(1)));
    parent.hear();
  }
  return host.stop() == 0 ? 0 : 4;
}

}  // namespace

const ChildRole kBrowserHost("browser host", [](Parent& parent) {
  return runHost(parent, kBrowser, &registerBrowserHandlers);
});

const ChildRole kPluginHost("plug-in host", [](Parent& parent) {
  return runHost(parent, kPlugin, &registerPluginCallbacks);
});

}  // namespace hbbtv_ryn::test
