#include "ipc/peer_life.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include "base/fork_count.h"

namespace hbbtv_ryn {
namespace {

constexpr int kSemaphoreCount = 2;
constexpr int kMode = 0666;  // as the queues: the two processes may run as different users

// The kernel counts no further than 32767, and a count that stands still tells nothing.
constexpr short kStartOver = 30000;

template <std::size_t Count>
bool change(int semaphores, sembuf (&&changes)[Count]) {
  return semop(semaphores, changes, Count) == 0;
}

void keepCountable(int semaphores) {
  change(semaphores, {{kDeaths, -kStartOver, IPC_NOWAIT}});  // refused while the count is below
}

}  // namespace

void ServerLife::begin(key_t key) {
  const int semaphores = semget(key, kSemaphoreCount, IPC_CREAT | kMode);
  if (semaphores < 0) return;
  keepCountable(semaphores);
  // One death now, taken back for as long as the process lives: its end adds it again.
  if (!change(semaphores, {{kDeaths, 1, IPC_NOWAIT},
                           {kDeaths, -1, IPC_NOWAIT | SEM_UNDO},
                           {kLife, 1, IPC_NOWAIT | SEM_UNDO}})) {
    return;
  }
  semaphores_ = semaphores;
  forks_ = forkCount();
}

void ServerLife::noteLoss() const {
  if (semaphores_ < 0) return;
  keepCountable(semaphores_);
  change(semaphores_, {{kDeaths, 1, IPC_NOWAIT}});
}

void ServerLife::end() {
  if (semaphores_ < 0 || forks_ != forkCount()) return;
  change(semaphores_, {{kLife, -1, IPC_NOWAIT | SEM_UNDO}, {kDeaths, 1, IPC_NOWAIT | SEM_UNDO}});
  semaphores_ = -1;
}

std::optional<int> PeerLife::value(int semaphore) {
  int semaphores = semaphores_;
  for (const bool found_before : {semaphores >= 0, false}) {
    if (!found_before) semaphores = semget(key_, kSemaphoreCount, 0);
    const int value = semaphores < 0 ? -1 : semctl(semaphores, semaphore, GETVAL);
    semaphores_ = value < 0 ? -1 : semaphores;
    if (value >= 0) return value;
    if (!found_before) break;  // else the set was removed, and there may be a new one
  }
  return std::nullopt;
}

}  // namespace hbbtv_ryn
