#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/plugin.h"
#include "torture/processes.h"

namespace hbbtv_ryn::test {
namespace {

// Serialised with its envelope, such a text makes a message of one record.
constexpr int kOneRecordText = 800;
constexpr int kManyRecordsText = 12000;

Ledger* g_ledger = nullptr;

class Random {
 public:
  explicit Random(uint64_t seed) : m_engine(seed) {}
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_engine); }
  // Mostly short.
  std::string text() {
    const bool one_record = g_ledger->phase == Phase::kMalformed || below(8) != 0;
    std::string text(static_cast<std::size_t>(below(one_record ? kOneRecordText : kManyRecordsText)), ' ');
    for (char& c : text) c = static_cast<char>('a' + below(26));
    return text;
  }

 private:
  std::mt19937_64 m_engine;
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
  if (number % 5000 == 1) usleep(700000);
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
    if (appid % 16 == 0) Zunt_RYN_Plugin_GetKeyLabel(2, orgid, 1, label);
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
      : m_host(host),
        m_in_progress(g_ledger->calls[host.side][static_cast<std::size_t>(index)]),
        m_random(seed + static_cast<uint64_t>(index)) {}

  void send() {
    m_in_progress = now();
    m_host.send(m_random);
    m_in_progress = 0;
    ++g_ledger->one_way;
    // Each full queue costs a sender 100 ms and everyone who waits for it too: seldom enough for exchanges
    // to get their turn.
    usleep(300);
  }

  void ask() {
    const Phase phase = g_ledger->phase;
    const auto index = m_random.below(static_cast<int>(m_host.questions.size()));
    const Nanoseconds began = now();
    m_in_progress = began;
    const Outcome outcome = m_host.questions[static_cast<std::size_t>(index)](m_random);
    m_in_progress = 0;
    const bool may_be_disturbed =
        phase == Phase::kAnything || phase == Phase::kSettling || phase != g_ledger->phase;
    if (outcome.right && outcome.result == 0) {
      ++g_ledger->exchanges;
      ++g_ledger->right_in_a_row[m_host.side];
      return;
    }
    g_ledger->right_in_a_row[m_host.side] = 0;
    if (outcome.right && (outcome.result == -1 || outcome.result == -3)) {
      ++g_ledger->unanswered;
      if (phase == Phase::kKills && !may_be_disturbed) countDeadCall(began);
      usleep(1000);  // a host that got no answer has nothing better to do either
    } else if (may_be_disturbed) {
      ++g_ledger->disturbed;
    } else if (g_ledger->wrong++ == 0) {
      std::snprintf(g_ledger->first_wrong, sizeof g_ledger->first_wrong,
                    "%s of the %s, result %d, phase %d", outcome.question, kSideNames[m_host.side],
                    outcome.result, static_cast<int>(phase));
    }
  }

 private:
  // How long the call lasted after its peer was dead.
  void countDeadCall(Nanoseconds began) {
    const Nanoseconds lasted = now() - std::max(began, g_ledger->killed_at[peerOf(m_host.side)].load());
    Nanoseconds longest = g_ledger->longest_dead_call;
    while (lasted > longest && !g_ledger->longest_dead_call.compare_exchange_weak(longest, lasted))
      continue;
  }

  const Host& m_host;
  std::atomic<Nanoseconds>& m_in_progress;
  Random m_random;
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
  for (std::string order; order != "finish";) {
    if (host.start() != 0) return 3;
    if (order == "restart") parent.say("done");
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kCallers; ++i) {
      threads.emplace_back([&, i] {
        for (Caller caller(host, i, seed); !stop;) {
          if (!g_ledger->paused) i == 0 ? caller.send() : caller.ask();
          if (pause > 0 || g_ledger->paused) usleep(std::max<useconds_t>(pause, 1000));
        }
      });
    }
    while ((order = parent.hear()) == "trim") {
      malloc_trim(0);
      parent.say("done");
    }
    stop = true;
    for (auto& thread : threads) thread.join();
    if (host.stop() != 0) return 4;
  }
  return 0;
}

}  // namespace

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
