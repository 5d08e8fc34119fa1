/// @file
/// The life of a queue's servers, told beside the wire by a set of two System V semaphores on the request
/// queue's key. They live in the IPC namespace of the queues, and what a server has put there with SEM_UNDO
/// the kernel takes back when its process ends by any cause.
///
///   life    one unit per receive thread that serves the protected channel
///   deaths  counts what cost a requester its answer: ends of such threads, and messages that they lost
///
/// Life cannot fall without deaths rising, in one step. A server without the units is a plain one. The set
/// is anybody's to create and to alter, so no value of it is relied on for more than an answer of -1.
#ifndef HBBTV_RYN_IPC_PEER_LIFE_H
#define HBBTV_RYN_IPC_PEER_LIFE_H

#include <sys/types.h>

#include <atomic>
#include <optional>

namespace hbbtv_ryn {

/// The only channel whose servers are told of; the other ones of a key are plain.
inline constexpr long kProtectedChannel = 1;

inline constexpr unsigned short kLife = 0;  // the semaphores in their set
inline constexpr unsigned short kDeaths = 1;

/// A server's unit. Where it cannot be had, the server serves as a plain one.
class ServerLife {
 public:
  ServerLife() = default;
  ~ServerLife() { end(); }
  ServerLife(const ServerLife&) = delete;
  ServerLife& operator=(const ServerLife&) = delete;

  void begin(key_t key);
  /// To be called when a request, or a record of an answer, was lost: its requester waits in vain.
  void noteLoss() const;
  void end();

 private:
  int semaphores_ = -1;  // -1: no unit is held
  unsigned forks_ = 0;   // a child that was forked off holds no unit
};

/// What a client sees of the servers of its queue. Any thread may ask.
class PeerLife {
 public:
  explicit PeerLife(key_t key) : key_(key) {}

  /// Each is one system call once the set has been found. Nothing when there is no set that can be read.
  std::optional<int> deaths() { return value(kDeaths); }
  std::optional<int> life() { return value(kLife); }

 private:
  std::optional<int> value(int semaphore);

  const key_t key_;
  std::atomic<int> semaphores_{-1};  // -1: not found yet, or removed
};

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_PEER_LIFE_H
