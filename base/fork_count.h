/// @file
/// Which of a process's objects were made before it was forked.
#ifndef HBBTV_RYN_BASE_FORK_COUNT_H
#define HBBTV_RYN_BASE_FORK_COUNT_H

#include <pthread.h>

#include <atomic>

namespace hbbtv_ryn {

/// How many forks lie between the first process that asked and this one. An object that remembers another
/// count than today's is a copy: its threads, and what the kernel keeps for its process, are the parent's.
inline unsigned forkCount() {
  static std::atomic<unsigned> count{0};
  static const int registered = pthread_atfork(nullptr, nullptr, [] { ++count; });
  static_cast<void>(registered);
  return count;
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_BASE_FORK_COUNT_H
