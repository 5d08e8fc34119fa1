/// @file
/// Threads of the library run with every signal blocked, so that a host's handlers never run on them and
/// no host signal interrupts their system calls.
#ifndef HBBTV_RYN_BASE_SIGNAL_FREE_THREAD_H
#define HBBTV_RYN_BASE_SIGNAL_FREE_THREAD_H

#include <pthread.h>
#include <signal.h>

namespace hbbtv_ryn {

/// As pthread_create() with the default attributes, with every signal blocked in the new thread.
inline int createSignalFreeThread(pthread_t* thread, void* (*entry)(void*), void* argument) {
  // In the creating thread, since a new one would be open to signals until its first instruction.
  sigset_t every_signal;
  sigset_t before;
  sigfillset(&every_signal);
  pthread_sigmask(SIG_SETMASK, &every_signal, &before);
  const int result = pthread_create(thread, nullptr, entry, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return result;
}

/// The same for a member function of `object`.
template <auto Run, typename Object>
int createSignalFreeThread(pthread_t* thread, Object* object) {
  const auto entry = [](void* self) -> void* {
    (static_cast<Object*>(self)->*Run)();
    return nullptr;
  };
  return createSignalFreeThread(thread, entry, object);
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_BASE_SIGNAL_FREE_THREAD_H
