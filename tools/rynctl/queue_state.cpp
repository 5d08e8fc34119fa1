#include "queue_state.h"

#include <sys/msg.h>
#include <sys/sem.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <system_error>
#include <thread>

#include "exit_code.h"
#include "terminal.h"

namespace hbbtv_ryn::rynctl {

namespace {

constexpr unsigned short kLifeSemaphore = 0;

[[noreturn]] void failToLook(const std::string& what, int error) {
  throw Failure(ExitCode::NoPeer, what + " cannot be looked at: " + std::generic_category().message(error) +
                                      "; try as the user of the two processes, or as root");
}

}  // namespace

const char* nameOf(Side side) {
  return side == Side::kBrowser ? "browser" : "plug-in";
}

std::string keyText(key_t key) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%08x", static_cast<unsigned>(key));
  return text.data();
}

const QueueName& findQueue(const std::string& name) {
  std::vector<std::string> names;
  for (const QueueName& queue : kQueues) {
    if (name == queue.name || name == keyText(queue.key)) return queue;
    names.emplace_back(queue.name);
  }
  throw Failure(ExitCode::Usage,
                "no queue is called " + printable(name) + "; there are " + joined(names, ", "));
}

const QueueName& queueAt(key_t key) {
  return *std::find_if(kQueues.begin(), kQueues.end(),
                       [key](const QueueName& queue) { return queue.key == key; });
}

ServerLife lifeOfServer(key_t request_key) {
  ServerLife life;
  const int semaphores = semget(request_key, 0, 0);
  if (semaphores == -1) return life;
  life.count = semctl(semaphores, kLifeSemaphore, GETVAL);
  if (life.count == -1 && errno == EACCES) failToLook("semaphore " + keyText(request_key), errno);
  if (life.count > 0) {
    // Starting the server was the last operation on the semaphore.
    life.process = processAt(semctl(semaphores, kLifeSemaphore, GETPID), std::time(nullptr));
  }
  return life;
}

std::optional<QueueState> look(const QueueName& queue) {
  QueueState state;
  state.name = &queue;
  state.id = msgget(queue.key, 0);
  if (state.id == -1) return std::nullopt;
  msqid_ds facts{};
  if (msgctl(state.id, IPC_STAT, &facts) == -1) {
    if (errno == EACCES) failToLook(std::string("the queue ") + queue.name, errno);
    return std::nullopt;  // removed meanwhile
  }
  state.messages = facts.msg_qnum;
  state.bytes = facts.__msg_cbytes;
  state.limit = facts.msg_qbytes;
  state.written = facts.msg_stime;
  state.read = facts.msg_rtime;
  state.writer = processAt(facts.msg_lspid, facts.msg_stime);
  state.reader = processAt(facts.msg_lrpid, facts.msg_rtime);
  state.server = lifeOfServer(queue.request_key);
  return state;
}

const char* wordOf(Judgement judgement) {
  switch (judgement) {
    case Judgement::kIdle:
      return "idle";
    case Judgement::kBusy:
      return "busy";
    case Judgement::kStuck:
      return "STUCK";
    case Judgement::kOrphaned:
      return "ORPHANED";
  }
  return "";
}

Process readerOf(const QueueState& state) {
  if (!state.name->carriesReplies()) {
    if (state.server.known()) return state.server.alive() ? state.server.process : Process{};
    return state.reader;  // an older server shows no life but that it has read
  }
  // A reply is read by whoever sends the requests.
  const auto requests = look(queueAt(state.name->request_key));
  return requests && requests->writer.alive ? requests->writer : state.reader;
}

namespace {

bool hasReader(const QueueState& state) {
  if (!state.name->carriesReplies() && state.server.known()) return state.server.alive();
  return readerOf(state).alive;
}

/// Whether the queue was read from between the two looks.
bool wasRead(const QueueState& before, const QueueState& after) {
  return after.read != before.read || after.messages < before.messages;
}

}  // namespace

std::vector<JudgedQueue> judgeQueues() {
  constexpr std::chrono::milliseconds kBetweenLooks{250};
  // A time stamp of this second tells nothing about the order of its events.
  constexpr std::time_t kRecently = 1;
  std::vector<QueueState> first;
  bool waiting = false;
  for (const QueueName& queue : kQueues) {
    if (const auto state = look(queue)) {
      first.push_back(*state);
      waiting = waiting || state->messages > 0;
    }
  }
  if (waiting) std::this_thread::sleep_for(kBetweenLooks);

  std::vector<JudgedQueue> judged;
  for (const QueueState& before : first) {
    const auto now = waiting ? look(*before.name) : before;
    if (!now) continue;
    Judgement judgement = Judgement::kIdle;
    if (now->messages > 0 && !hasReader(*now)) {
      judgement = Judgement::kOrphaned;
    } else if (now->messages > 0) {
      const bool reads =
          before.messages == 0 || wasRead(before, *now) || std::time(nullptr) - now->read <= kRecently;
      judgement = reads ? Judgement::kBusy : Judgement::kStuck;
    }
    judged.push_back({*now, judgement});
  }
  return judged;
}

std::string ageText(std::time_t when) {
  constexpr std::time_t kMinute = 60;
  constexpr std::time_t kHour = 60 * kMinute;
  constexpr std::time_t kDay = 24 * kHour;
  if (when == 0) return "never";
  const std::time_t age = std::max<std::time_t>(std::time(nullptr) - when, 0);
  if (age < 2 * kMinute) return std::to_string(age) + " s ago";
  if (age < 2 * kHour) return std::to_string(age / kMinute) + " min ago";
  if (age < 2 * kDay) return std::to_string(age / kHour) + " h ago";
  return std::to_string(age / kDay) + " d ago";
}

}  // namespace hbbtv_ryn::rynctl
