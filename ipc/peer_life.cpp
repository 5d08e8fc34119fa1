#include "ipc/peer_life.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cerrno>
#include <ctime>

namespace hbbtv_ryn {
namespace {

constexpr unsigned short kLife = 0;
constexpr unsigned short kFences = 1;
constexpr int kSemaphoreCount = 2;
constexpr int kMode = 0666;  // as the queues: the two processes may run as different users

// Adds `change` units to each semaphore that the server holds.
bool changeUnits(int semaphores, bool answers_fences, short change) {
  sembuf changes[] = {{kLife, change, SEM_UNDO | IPC_NOWAIT}, {kFences, change, SEM_UNDO | IPC_NOWAIT}};
  return semop(semaphores, changes, answers_fences ? 2 : 1) == 0;
}

}  // namespace

bool ServerLife::begin(key_t key, bool answers_fences) {
  answers_fences_ = answers_fences;
  int semaphores = semget(key, kSemaphoreCount, IPC_CREAT | kMode);
  if (semaphores < 0) {
    // A set of one semaphore stands on the key already: it still tells our life.
    answers_fences_ = false;
    semaphores = semget(key, 1, kMode);
  }
  // A set that may not be altered stays at 0, and clients that may read it would take us for dead.
  if (semaphores < 0) return errno != EACCES;
  if (!changeUnits(semaphores, answers_fences_, 1)) return false;
  semaphores_ = semaphores;
  return true;
}

void ServerLife::end() {
  if (semaphores_ < 0) return;
  changeUnits(semaphores_, answers_fences_, -1);
  semaphores_ = -1;
}

int PeerLife::value(int semaphore) {
  if (semaphores_ < 0) semaphores_ = semget(key_, 0, 0);
  if (semaphores_ < 0) return -1;
  const int value = semctl(semaphores_, semaphore, GETVAL);
  // Every set has a first semaphore, so the set has been removed; a server to come makes a new one.
  if (value < 0 && semaphore == kLife) semaphores_ = -1;
  return value;
}

PeerLife::State PeerLife::state() {
  const int units = value(kLife);
  if (units < 0) return State::kUnknown;
  return units == 0 ? State::kGone : State::kAlive;
}

bool PeerLife::answersFences() {
  return value(kFences) > 0;
}

bool PeerLife::awaitDeath(int semaphores, std::chrono::milliseconds limit) {
  // A wait for zero is completed by the very call, or process exit, that brings the semaphore to zero, so
  // a server that is replaced at once is still seen to die.
  sembuf until_zero{kLife, 0, 0};
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
  const timespec time{static_cast<time_t>(seconds.count()),
                      static_cast<long>(std::chrono::nanoseconds(limit - seconds).count())};
  if (semtimedop(semaphores, &until_zero, 1, &time) == 0) return true;
  return errno != EAGAIN && errno != EINTR;
}

}  // namespace hbbtv_ryn
