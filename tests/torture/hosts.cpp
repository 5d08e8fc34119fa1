#include "torture/hosts.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/plugin.h"

namespace hbbtv_ryn::test {
namespace {

constexpr int kUntouched = -77;
// Serialised with its envelope, such a text makes a message of one record.
constexpr int kOneRecordText = 800;

Ledger* g_ledger = nullptr;

class Random {
 public:
  explicit Random(uint64_t seed) : m_engine(seed) {}
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_engine); }
  int id() { return std::uniform_int_distribution<int>(1, 1 << 30)(m_engine); }
  std::string text(int length) {
    std::string text(static_cast<std::size_t>(length), ' ');
    for (char& c : text) c = static_cast<char>('a' + below(26));
    return text;
  }
  // Mostly short; long ones need many records.
  std::string text() {
    const bool one_record = g_ledger->phase == Phase::kMalformed || below(8) != 0;
    return text(below(one_record ? kOneRecordText : 12000));
  }

 private:
  std::mt19937_64 m_engine;
};

// --- The right answers

uint32_t digest(std::string_view text) {
  uint32_t hash = 2166136261U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return hash ^ (hash >> 15);
}
int number(std::string_view text) {
  return static_cast<int>(digest(text) >> 1);
}
std::string words(int a, int b, int c = 0) {
  return std::to_string(a) + '/' + std::to_string(b) + '/' + std::to_string(c);
}
int valueFor(int appid, int orgid) {
  return number(words(appid, orgid));
}
bool flagFor(int appid, int orgid) {
  return digest(words(appid, orgid)) % 2 != 0;
}
std::string labelFor(int appid, int orgid, int code) {
  const std::string word = words(appid, orgid, code);
  return word + std::string(digest(word) % 9 == 0 ? digest(word) % 12000 : digest(word) % 200, 'l');
}
int childCountFor(int appid, int orgid) {
  return valueFor(appid, orgid) % 100;
}
int createdFor(int appid, int orgid, std::string_view url, bool child, bool opapp) {
  return number(words(appid, orgid, 2 * (child ? 1 : 0) + (opapp ? 1 : 0)) + std::string(url));
}

// --- What handlers do besides answering

// Most answers come at once, a few late enough for the asker to wonder whether the host is alive.
void takeTime(int appid) {
  if (appid % 5000 == 1) usleep(700000);
  if (appid % 100 == 1) usleep(3000);
}
void onCommand(int, int) {
  ++g_ledger->received;
}

ZuntRynBrowserEventCallback browserHandlers() {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetOwnerApp = [](int* appid, int* orgid, void*) {
    *orgid = valueFor(*appid, 1);
    *appid = valueFor(*appid, 2);
  };
  handlers.GetChildApps = [](int appid, int orgid, int* appids, int* orgids, int* count) {
    *count = childCountFor(appid, orgid);
    for (int i = 0; i < *count; ++i) {
      appids[i] = appid - i;
      orgids[i] = orgid + i;
    }
  };
  handlers.CreateApp = [](int appid, int orgid, const char* url, bool child, bool opapp, int* new_appid,
                          int* new_orgid) {
    *new_appid = createdFor(appid, orgid, url, child, opapp);
    *new_orgid = createdFor(orgid, appid, url, child, opapp);
  };
  handlers.GetVisible = [](int appid, int orgid, bool* visible) { *visible = flagFor(appid, orgid); };
  handlers.GetValue = [](int appid, int orgid, int* value) {
    takeTime(appid);
    *value = valueFor(appid, orgid);
  };
  handlers.GetKeyLabel = [](int appid, int orgid, int code, std::string& label) {
    label = labelFor(appid, orgid, code);
  };
  handlers.OpApp_SetStatus = [](std::string status) { return number(status); };
  handlers.ShowApp = &onCommand;
  handlers.DestroyApp = &onCommand;
  handlers.SetValue = [](int appid, int orgid, int, const int*, int) { onCommand(appid, orgid); };
  return handlers;
}

void registerPluginCallbacks() {
  const auto add = [](ZuntRynEvent event, auto ZuntRynEventCallback::*member, auto function) {
    ZuntRynEventCallback callback;
    callback.*member = function;
    Zunt_RYN_Plugin_RegisterRynEventCallback(event, callback);
  };
  using Callback = ZuntRynEventCallback;
  add(ZUNT_RYN_EVENT_PARENTAL_RATING_QUERY, &Callback::onParentalRating,
      [](int appid, int orgid, bool* blocked) {
        takeTime(appid);
        *blocked = flagFor(appid, orgid);
      });
  add(ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY, &Callback::onObjectSupported,
      [](const std::string& mtype, bool* supported) { *supported = digest(mtype) % 2 != 0; });
  add(ZUNT_RYN_EVENT_APP_LOADED, &Callback::onApp, [](int appid, int orgid, void*) {
    onCommand(appid, orgid);
    // Callbacks may ask; not each time, or the browser's events would wait for its own answers.
    int value = 0;
    if (appid % 16 == 0) Zunt_RYN_Plugin_GetValue(2, orgid, &value);
  });
  add(ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE, &Callback::onOpAppChange,
      [](int appid, int orgid, std::string, std::string, std::string) { onCommand(appid, orgid); });
}

// --- Questions

struct Outcome {
  int result;  // 0, or why there is no answer
  bool right;  // the right answer; without an answer, the out-parameters as they were
};

template <typename Answer>
Outcome outcome(int result, const Answer& answer, const Answer& expected, const Answer& before) {
  return {result, answer == (result == 0 ? expected : before)};
}

Outcome askValue(Random& random) {
  const int appid = random.id();
  const int orgid = random.id();
  int value = kUntouched;
  const int result = Zunt_RYN_Plugin_GetValue(appid, orgid, &value);
  return outcome(result, value, valueFor(appid, orgid), kUntouched);
}

Outcome askVisible(Random& random) {
  const int appid = random.id();
  const int orgid = random.id();
  const bool before = !flagFor(appid, orgid);
  bool visible = before;
  const int result = Zunt_RYN_Plugin_GetVisible(appid, orgid, &visible);
  return outcome(result, visible, !before, before);
}

Outcome askOwner(Random& random) {
  const int asked = random.id();
  int appid = asked;
  int orgid = kUntouched;
  const int result = Zunt_RYN_Plugin_GetOwnerApp(&appid, &orgid);
  return outcome(result, std::pair(appid, orgid), {valueFor(asked, 2), valueFor(asked, 1)},
                 {asked, kUntouched});
}

Outcome askLabel(Random& random) {
  const int appid = random.id();
  const int orgid = random.id();
  const int code = random.id();
  std::string label = "before";
  const int result = Zunt_RYN_Plugin_GetKeyLabel(appid, orgid, code, label);
  return outcome(result, label, labelFor(appid, orgid, code), std::string("before"));
}

Outcome askChildren(Random& random) {
  const int appid = random.id();
  const int orgid = random.id();
  std::vector<int> appids(ZUNT_RYN_MAX_CHILD_APPS, kUntouched);
  std::vector<int> orgids = appids;
  int count = kUntouched;
  const int result = Zunt_RYN_Plugin_GetChildApps(appid, orgid, appids.data(), orgids.data(), &count);
  if (result != 0) return {result, count == kUntouched && appids[0] == kUntouched};
  bool right = count == childCountFor(appid, orgid);
  for (std::size_t i = 0; i < appids.size(); ++i) {
    const int child = static_cast<int>(i);
    right = right && appids[i] == (child < count ? appid - child : kUntouched) &&
            orgids[i] == (child < count ? orgid + child : kUntouched);
  }
  return {result, right};
}

Outcome askToCreate(Random& random) {
  const int appid = random.id();
  const int orgid = random.id();
  const std::string url = random.text();
  const bool child = random.below(2) != 0;
  const bool opapp = random.below(2) != 0;
  std::pair created(kUntouched, kUntouched);
  const int result =
      Zunt_RYN_Plugin_CreateApp(appid, orgid, url.c_str(), child, opapp, &created.first, &created.second);
  return outcome(result, created,
                 {createdFor(appid, orgid, url, child, opapp), createdFor(orgid, appid, url, child, opapp)},
                 {kUntouched, kUntouched});
}

Outcome askForStatus(Random& random) {
  const std::string status = random.text();
  const int result = Zunt_RYN_Plugin_OpApp_SetStatus(status);
  return result < 0 ? Outcome{result, true} : Outcome{0, result == number(status)};
}

Outcome askBlocked(Random& random) {
  const int appid = random.id();
  const int orgid = random.id();
  const bool before = !flagFor(appid, orgid);
  bool blocked = before;
  const int result = Zunt_RYN_Browser_IsParentalRatingBlocked(appid, orgid, &blocked);
  return outcome(result, blocked, !before, before);
}

Outcome askSupported(Random& random) {
  const std::string mtype = random.text();
  const bool before = digest(mtype) % 2 == 0;
  bool supported = before;
  const int result = Zunt_RYN_Browser_IsObjectSupported(mtype, &supported);
  return outcome(result, supported, !before, before);
}

struct Question {
  const char* name;
  Outcome (*ask)(Random&);
};
constexpr Question kPluginQuestions[] = {
    {"GetValue", &askValue},
    {"GetVisible", &askVisible},
    {"GetOwnerApp", &askOwner},
    {"GetKeyLabel", &askLabel},
    {"GetChildApps", &askChildren},
    {"CreateApp", &askToCreate},
    {"OpApp_SetStatus", &askForStatus},
};
constexpr Question kBrowserQuestions[] = {
    {"IsParentalRatingBlocked", &askBlocked},
    {"IsObjectSupported", &askSupported},
};

void command(Random& random) {
  switch (random.below(3)) {
    case 0:
      Zunt_RYN_Plugin_ShowApp(random.id(), random.id());
      return;
    case 1:
      Zunt_RYN_Plugin_DestroyApp(random.id(), random.id());
      return;
    default:
      const int keys[3] = {random.id(), random.id(), random.id()};
      Zunt_RYN_Plugin_SetValue(random.id(), random.id(), random.id(), keys, 3);
  }
}

void notify(Random& random) {
  if (random.below(2) == 0) {
    Zunt_RYN_Browser_SendAppLoaded(random.id(), random.id());
  } else {
    Zunt_RYN_Browser_OpApp_StateChange(random.id(), random.id(), random.text(), "new", "reason");
  }
}

// --- Callers

bool isChecked(Phase phase) {
  return phase != Phase::kAnything && phase != Phase::kSettling;
}

void tellWrong(Side side, const char* name, int result) {
  if (g_ledger->wrong_told.exchange(true)) return;
  std::snprintf(g_ledger->wrong_text, sizeof g_ledger->wrong_text, "%s of the %s, result %d, phase %d",
                name, kSideNames[side], result, static_cast<int>(g_ledger->phase.load()));
}

class Caller {
 public:
  Caller(Side side, int index, uint64_t seed, useconds_t pause)
      : m_side(side),
        m_in_progress(g_ledger->calls[side][static_cast<std::size_t>(index)]),
        m_random(seed + static_cast<uint64_t>(index)),
        m_pause(pause) {}

  template <typename Call>
  void repeat(const std::atomic<bool>& stop, Call call) {
    while (!stop) {
      if (!g_ledger->paused) call(*this);
      if (m_pause > 0 || g_ledger->paused) usleep(std::max<useconds_t>(m_pause, 1000));
    }
  }

  void ask(const Question& question) {
    const Phase phase = g_ledger->phase;
    const Nanoseconds began = begin();
    const Outcome outcome = question.ask(m_random);
    const Nanoseconds ended = end();
    const bool checked = isChecked(phase) && phase == g_ledger->phase;
    const bool expected_result = outcome.result == 0 || outcome.result == -1 || outcome.result == -3;
    if (!outcome.right || !expected_result) {
      ++(checked ? g_ledger->wrong : g_ledger->disturbed);
      if (checked) tellWrong(m_side, question.name, outcome.result);
      g_ledger->right_in_a_row[m_side] = 0;
    } else if (outcome.result == 0) {
      ++g_ledger->exchanges;
      ++g_ledger->right_in_a_row[m_side];
    } else {
      ++g_ledger->unanswered;
      g_ledger->right_in_a_row[m_side] = 0;
      if (phase == Phase::kKills && checked) countDeadCall(began, ended);
      usleep(1000);  // a host that got no answer has nothing better to do either
    }
  }

  void send(void (*message)(Random&)) {
    begin();
    message(m_random);
    end();
    ++g_ledger->one_way;
    // Each full queue costs a sender 100 ms and everyone who waits for it too: seldom enough for exchanges
    // to get their turn.
    usleep(300);
  }

  template <std::size_t Count>
  const Question& oneOf(const Question (&questions)[Count]) {
    return questions[m_random.below(static_cast<int>(Count))];
  }

 private:
  Nanoseconds begin() {
    const Nanoseconds time = now();
    m_in_progress = time;
    return time;
  }
  Nanoseconds end() {
    m_in_progress = 0;
    return now();
  }

  // How long the call lasted after its peer was dead.
  void countDeadCall(Nanoseconds began, Nanoseconds ended) {
    const Nanoseconds lasted = ended - std::max(began, g_ledger->killed_at[peerOf(m_side)].load());
    Nanoseconds longest = g_ledger->longest_dead_call;
    while (lasted > longest && !g_ledger->longest_dead_call.compare_exchange_weak(longest, lasted))
      continue;
  }

  const Side m_side;
  std::atomic<Nanoseconds>& m_in_progress;
  Random m_random;
  const useconds_t m_pause;
};

// --- The hosts

struct Lifecycle {
  int (*start)();
  int (*stop)();
};

template <std::size_t Count>
int runHost(Parent& parent, Side side, const Lifecycle& endpoint, const Question (&questions)[Count],
            void (*message)(Random&)) {
  // Each thread's arena would grow for a while before it is full of holes that fit.
  mallopt(M_ARENA_MAX, 1);
  g_ledger = &openLedger(parent.argument(0));
  const uint64_t seed = std::stoull(parent.argument(1));
  const auto pause = static_cast<useconds_t>(std::stoul(parent.argument(2)));
  // The channel reports full queues and odd records, by the thousand here. Sanitizers write to the
  // descriptor, not to the stream.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
  stderr = stdout;
  if (endpoint.start() != 0) return 3;
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  const auto call = [&](auto body) {
    threads.emplace_back([&stop, caller = Caller(side, static_cast<int>(threads.size()), seed, pause),
                          body]() mutable { caller.repeat(stop, body); });
  };
  const auto startCalling = [&] {
    stop = false;
    for (int i = 0; i < kCallers - 1; ++i) {
      call([&questions](Caller& caller) { caller.ask(caller.oneOf(questions)); });
    }
    call([message](Caller& caller) { caller.send(message); });
  };
  const auto stopCalling = [&] {
    stop = true;
    for (auto& thread : threads) thread.join();
    threads.clear();
  };
  startCalling();
  for (std::string order = parent.hear(); order != "finish"; order = parent.hear()) {
    if (order == "trim") {
      malloc_trim(0);
    } else {
      stopCalling();
      if (endpoint.stop() != 0 || endpoint.start() != 0) return 3;
      startCalling();
    }
    parent.say("done");
  }
  stopCalling();
  return endpoint.stop() == 0 ? 0 : 4;
}

}  // namespace

const ChildRole kBrowserHost("browser host", [](Parent& parent) {
  Zunt_RYN_Browser_RegisterCallback(browserHandlers(), nullptr);
  return runHost(parent, kBrowserSide, {&Zunt_RYN_Browser_Initialize, &Zunt_RYN_Browser_Finalize},
                 kBrowserQuestions, &notify);
});

const ChildRole kPluginHost("plug-in host", [](Parent& parent) {
  registerPluginCallbacks();
  return runHost(parent, kPluginSide, {&Zunt_RYN_Plugin_Initialize, &Zunt_RYN_Plugin_Finalize},
                 kPluginQuestions, &command);
});

}  // namespace hbbtv_ryn::test
