// The life of a peer, told by a System V semaphore on the request queue's key.
//
// Semaphore 0 counts the receive threads that serve the queue, semaphore 1 those of them that send fences
// back. Both units are taken with SEM_UNDO, so the kernel returns them when the process dies by any cause,
// and they live in the same IPC namespace as the queues. A peer that has only semaphore 0, or none, is an
// older one.
#ifndef HBBTV_RYN_IPC_PEER_LIFE_H
#define HBBTV_RYN_IPC_PEER_LIFE_H

#include <sys/types.h>

#include <chrono>

namespace hbbtv_ryn {

// A server's unit. Where semaphores cannot be had, the server serves without.
class ServerLife {
 public:
  ServerLife() = default;
  ~ServerLife() { end(); }
  ServerLife(const ServerLife&) = delete;
  ServerLife& operator=(const ServerLife&) = delete;

  // False when the set is there but the unit cannot be taken: clients would take the server for dead.
  bool begin(key_t key, bool answers_fences);
  void end();

 private:
  int semaphores_ = -1;  // -1: no unit is held
  bool answers_fences_ = false;
};

// What a client knows of the servers of its queue. Not synchronised: the owner guards it.
class PeerLife {
 public:
  enum class State {
    kUnknown,  // no semaphore: an older peer, of which nothing is known
    kAlive,
    kGone,
  };

  explicit PeerLife(key_t key) : key_(key) {}

  // One system call, once the semaphore has been found.
  State state();
  bool answersFences();

  // Id of the semaphore set for awaitDeath(); -1 when the peer is an older one.
  int semaphores() const { return semaphores_; }

  // Waits until no server is left. True at once when that is so, and also when a server has died and
  // another has taken its place meanwhile; false when the time is over. Blocks up to `limit`.
  static bool awaitDeath(int semaphores, std::chrono::milliseconds limit);

 private:
  int value(int semaphore);

  const key_t key_;
  int semaphores_ = -1;
};

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PEER_LIFE_H
