#include <json/json.h>
#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/plugin.h"
#include "ipc/protocol/queues.h"
#include "tools/support/plain_server.h"
#include "tools/support/sanitizers.h"
#include "torture/processes.h"

namespace hbbtv_ryn::test {
namespace {

// Serialised with its envelope, such a text makes a message of one record.
constexpr int kOneRecordText = 800;
constexpr int kManyRecordsText = 12000;

Ledger* g_ledger = nullptr;
// Beside a predecessor that still asks, a host must not: two clients of one queue take each other's
// answers.
std::atomic<bool> g_may_call{false};

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(engine_); }
  // Mostly short.
  std::string text() {
    const bool one_record = g_ledger->phase == Phase::kMalformed || below(8) != 0;
    std::string text(static_cast<std::size_t>(below(one_record ? kOneRecordText : kManyRecordsText)), ' ');
    for (char& c : text) c = static_cast<char>('a' + below(26));
    return text;
  }

 private:
  std::mt19937_64 engine_;
};

// --- The right answers

int numberFor(const std::string& question) {
  uint32_t hash = 2166136261U;
  for (const char c : question) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return static_cast<int>((hash ^ (hash >> 15)) >> 1);
}
bool flagFor(const std::string& question) {
  return numberFor(question) % 2 != 0;
}
std::string labelFor(int appid, int orgid) {
  const std::string question = std::to_string(appid) + '/' + std::to_string(orgid);
  const int number = numberFor(question);
  const int length = number % (number % 9 == 0 ? kManyRecordsText : kOneRecordText);
  return question + std::string(static_cast<std::size_t>(length), 'l');
}

// --- The handlers

// Most answers come at once, a few late enough for the asker to wonder whether the host is alive.
void takeTime(int number) {
  if (number % 3000 == 1) usleep(700000);
  if (number % 100 == 1) usleep(3000);
}

ZuntRynBrowserEventCallback browserHandlers() {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetKeyLabel = [](int appid, int orgid, int, std::string& label) {
    takeTime(appid);
    label = labelFor(appid, orgid);
  };
  handlers.OpApp_SetStatus = [](std::string status) { return numberFor(status); };
  handlers.ShowApp = [](int, int) { ++g_ledger->received; };
  return handlers;
}

void registerPluginCallbacks() {
  ZuntRynEventCallback query;
  query.onObjectSupported = [](const std::string& mtype, bool* supported) {
    takeTime(numberFor(mtype));
    *supported = flagFor(mtype);
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

// --- What the callers call

struct Outcome {
  const char* question;
  int result;  // 0, or why there is no answer
  bool right;  // the right answer; without an answer, the out-parameters as they were
};

Outcome askLabel(Random& random) {
  const int appid = random.below(1 << 30);
  const int orgid = random.below(1 << 30);
  std::string label = "before";
  const int result = Zunt_RYN_Plugin_GetKeyLabel(appid, orgid, 3, label);
  return {"GetKeyLabel", result, label == (result == 0 ? labelFor(appid, orgid) : "before")};
}

Outcome askForStatus(Random& random) {
  const std::string status = random.text();
  const int result = Zunt_RYN_Plugin_OpApp_SetStatus(status);
  return {"OpApp_SetStatus", std::min(result, 0), result < 0 || result == numberFor(status)};
}

Outcome askSupported(Random& random) {
  const std::string mtype = random.text();
  const bool expected = flagFor(mtype);
  bool supported = !expected;
  const int result = Zunt_RYN_Browser_IsObjectSupported(mtype, &supported);
  return {"IsObjectSupported", result, (supported == expected) == (result == 0)};
}

void command(Random& random) {
  Zunt_RYN_Plugin_ShowApp(random.below(1 << 30), 5);
}

void notify(Random& random) {
  Zunt_RYN_Browser_OpApp_StateChange(random.below(1 << 30), 5, "old", random.text(), "reason");
}

// --- The hosts

struct Host {
  Side side;
  int (*start)();
  int (*stop)();
  std::vector<Outcome (*)(Random&)> questions;
  void (*send)(Random&);
};

class Caller {
 public:
  Caller(const Host& host, int index, uint64_t seed)
      : host_(host),
        in_progress_(g_ledger->calls[host.side][static_cast<std::size_t>(index)]),
        random_(seed + static_cast<uint64_t>(index)) {}

  void send() {
    {
      const InProgress call(in_progress_, now());
      host_.send(random_);
    }
    ++g_ledger->one_way;
    // Each full queue costs a sender 100 ms and everyone who waits for it too: seldom enough for exchanges
    // to get their turn.
    usleep(300);
  }

  void ask() {
    const Phase phase = g_ledger->phase;
    const auto index = random_.below(static_cast<int>(host_.questions.size()));
    const Nanoseconds began = now();
    const Outcome outcome = [&] {
      const InProgress call(in_progress_, began);
      return host_.questions[static_cast<std::size_t>(index)](random_);
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

 private:
  // The thread may be cancelled in its call.
  struct InProgress {
    InProgress(std::atomic<Nanoseconds>& call, Nanoseconds began) : call_(call) { call_ = began; }
    ~InProgress() { call_ = 0; }
    InProgress(const InProgress&) = delete;
    InProgress& operator=(const InProgress&) = delete;
    std::atomic<Nanoseconds>& call_;
  };

  // How long the call lasted after its peer was dead. Where another lives by now, the call may have waited
  // for that one's slow handlers.
  void countDeadCall(Nanoseconds began) {
    const Nanoseconds killed_at = g_ledger->killed_at[peerOf(host_.side)];
    if (killed_at == 0) return;
    const Nanoseconds lasted = now() - std::max(began, killed_at);
    Nanoseconds longest = g_ledger->longest_dead_call;
    while (lasted > longest && !g_ledger->longest_dead_call.compare_exchange_weak(longest, lasted))
      continue;
  }

  const Host& host_;
  std::atomic<Nanoseconds>& in_progress_;
  Random random_;
};

// The threads of a host that call the library.
class Callers {
 public:
  Callers(const Host& host, uint64_t seed, useconds_t pause) : host_(host), seed_(seed), pause_(pause) {
    const bool nuisance = pause == 0 && kRequestersMayBeCancelled;
    const int lasting = nuisance ? kCallers - 1 : kCallers;
    for (int i = 0; i < lasting; ++i) lasting_.emplace_back([this, i] { call(i); });
    if (nuisance) nuisance_ = std::thread([this] { breakAndCancel(); });
  }
  ~Callers() {
    stop_ = true;
    if (nuisance_.joinable()) nuisance_.join();
    for (auto& thread : lasting_) thread.join();
  }
  Callers(const Callers&) = delete;
  Callers& operator=(const Callers&) = delete;

 private:
  void call(int index) {
    for (Caller caller(host_, index, seed_); !stop_;) {
      if (!g_ledger->paused) index == 0 ? caller.send() : caller.ask();
      if (pause_ > 0 || g_ledger->paused) usleep(std::max<useconds_t>(pause_, 1000));
    }
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
  const useconds_t pause_;
  std::atomic<bool> stop_{false};
  std::vector<std::thread> lasting_;
  std::thread nuisance_;
};

int runHost(Parent& parent, const Host& host) {
  // Each thread's arena would grow for a while before it is full of holes that fit.
  mallopt(M_ARENA_MAX, 1);
  g_ledger = &openLedger(parent.argument(0));
  const uint64_t seed = std::stoull(parent.argument(1));
  const auto pause = static_cast<useconds_t>(std::stoul(parent.argument(2)));
  // The channel reports full queues and odd records, by the thousand here. Sanitizers write to the
  // descriptor, not to the stream.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
  stderr = stdout;
  struct sigaction breaking {};  // without SA_RESTART
  breaking.sa_handler = [](int) {};
  sigaction(SIGUSR1, &breaking, nullptr);
  for (std::string order; order != "finish";) {
    if (host.start() != 0) return 3;
    if (order == "restart") {
      parent.say("done");
    } else {
      parent.say("up");
      parent.hear();
      g_may_call = true;
    }
    {
      const Callers callers(host, seed, pause);
      while ((order = parent.hear()) == "trim") {
        malloc_trim(0);
        parent.say("done");
      }
    }
    if (host.stop() != 0) return 4;
  }
  return 0;
}

// --- The plain browser

std::string plainAnswer(const std::string& request) {
  Json::Value members;
  Json::Reader().parse(request, members);
  Json::Value answer;
  switch (members["t"].asInt()) {
    case 237:
      answer["t"] = 238;
      answer["label"] = labelFor(members["appid"].asInt(), members["orgid"].asInt());
      break;
    case 280:
      answer["ret"] = numberFor(members["status"].asString());
      break;
  }
  return answer.toStyledString();
}

}  // namespace

const ChildRole kPlainBrowser("plain browser", [](Parent& parent) {
  PlainServer server(kRequestQueueKey, kChannel, &plainAnswer);
  parent.hear();
  const std::set<int> known{IPC_KIND_ONEWAY, IPC_KIND_REQUEST, IPC_KIND_FAILURE};
  const std::set<int> met = server.finish();
  return std::includes(known.begin(), known.end(), met.begin(), met.end()) ? 0 : 1;
});

const ChildRole kBrowserHost("browser host", [](Parent& parent) {
  Zunt_RYN_Browser_RegisterCallback(browserHandlers(), nullptr);
  return runHost(
      parent,
      {kBrowserSide, &Zunt_RYN_Browser_Initialize, &Zunt_RYN_Browser_Finalize, {&askSupported}, &notify});
});

const ChildRole kPluginHost("plug-in host", [](Parent& parent) {
  registerPluginCallbacks();
  return runHost(parent, {kPluginSide,
                          &Zunt_RYN_Plugin_Initialize,
                          &Zunt_RYN_Plugin_Finalize,
                          {&askLabel, &askForStatus},
                          &command});
});

}  // namespace hbbtv_ryn::test
