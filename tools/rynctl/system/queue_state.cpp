#include "tools/rynctl/system/queue_state.h"

#include <sys/msg.h>
#include <sys/sem.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <thread>

#include "ipc/peer_life.h"
#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

std::vector<std::string> queueNames() {
  std::vector<std::string> names;
  for (const QueueName& queue : kQueues) names.emplace_back(queue.name);
  return names;
}

const QueueName& findQueue(const std::string& name) {
  for (const QueueName& queue : kQueues) {
    if (name == queue.name || name == keyText(queue.key)) return queue;
  }
  throw Failure(ExitCode::kUsage, "no queue is called {}; there are {}", printable(name),
                joined(queueNames(), ", "));
}

const QueueName& queueAt(key_t key) {
  return *std::find_if(std::begin(kQueues), std::end(kQueues),
                       [key](const QueueName& queue) { return queue.key == key; });
}

Servers serversOf(key_t request_key) {
  Servers servers;
  const int semaphores = semget(request_key, 0, 0);
  if (semaphores == -1) return servers;
  servers.count = semctl(semaphores, kLife, GETVAL);
  if (servers.count == -1 && errno == EACCES) {
    throw Failure(ExitCode::kNoPeer, "the semaphores on key {} may not be read; try as root",
                  keyText(request_key));
  }
  // Starting the server was the last operation on the semaphore.
  const int latest = semctl(semaphores, kLife, GETPID);
  if (servers.alive()) servers.latest = processAt(latest, std::time(nullptr));
  return servers;
}

std::optional<QueueState> look(const QueueName& queue) {
  QueueState state;
  state.name = &queue;
  state.id = msgget(queue.key, 0);
  if (state.id == -1) return std::nullopt;
  msqid_ds facts{};
  if (msgctl(state.id, IPC_STAT, &facts) == -1) {
    if (errno != EACCES) return std::nullopt;  // removed meanwhile
    throw Failure(ExitCode::kNoPeer,
                  "the queue '{}' may not be looked at; try as the user of the two processes, or as root",
                  queue.name);
  }
  state.messages = facts.msg_qnum;
  state.bytes = facts.__msg_cbytes;
  state.limit = facts.msg_qbytes;
  state.written = facts.msg_stime;
  state.read = facts.msg_rtime;
  state.writer = processAt(facts.msg_lspid, facts.msg_stime);
  state.reader = processAt(facts.msg_lrpid, facts.msg_rtime);
  state.servers = serversOf(queue.request_key);
  return state;
}

Process QueueState::whoReads() const {
  if (!name->carriesReplies()) return isServedPlainly() ? reader : servers.latest;
  // A reply is read by whoever sends the requests.
  const auto requests = look(queueAt(name->request_key));
  return requests && requests->writer.alive ? requests->writer : reader;
}

bool QueueState::isServedPlainly() const {
  // A client that finds nobody takes its own request back.
  return !name->carriesReplies() && !servers.alive() && reader.alive && reader.pid != writer.pid;
}

namespace {

QueueState::Judgement judge(const QueueState& before, const QueueState& now) {
  // A time stamp of this second tells nothing about the order of its events.
  constexpr std::time_t kRecently = 1;
  if (now.messages == 0) return QueueState::kIdle;
  const bool served = !now.name->carriesReplies() && now.servers.alive();
  if (!served && !now.whoReads().alive) return QueueState::kOrphaned;
  const bool was_read = now.read != before.read || now.messages < before.messages;
  const bool reads = before.messages == 0 || was_read || std::time(nullptr) - now.read <= kRecently;
  return reads ? QueueState::kBusy : QueueState::kStuck;
}

}  // namespace

std::vector<QueueState> judgeQueues() {
  constexpr std::chrono::milliseconds kBetweenLooks{250};
  std::vector<QueueState> first;
  for (const QueueName& queue : kQueues) {
    if (const auto state = look(queue)) first.push_back(*state);
  }
  const bool waiting =
      std::any_of(first.begin(), first.end(), [](const QueueState& state) { return state.messages > 0; });
  if (waiting) std::this_thread::sleep_for(kBetweenLooks);
  std::vector<QueueState> judged;
  for (const QueueState& before : first) {
    auto now = waiting ? look(*before.name) : before;
    if (!now) continue;
    now->judgement = judge(before, *now);
    judged.push_back(*now);
  }
  return judged;
}

}  // namespace hbbtv_ryn::rynctl
