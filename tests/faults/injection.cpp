#include "faults/injection.h"

#include <pthread.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <new>

namespace hbbtv_ryn::test {
namespace {

std::atomic<Fault> g_fault{Fault::kNone};
std::atomic<int> g_calls_left{0};
std::atomic<Where> g_where{Where::kThisThread};
thread_local bool t_is_this_thread = false;

bool strikes(Fault fault) {
  if (g_fault != fault || t_is_this_thread != (g_where == Where::kThisThread)) return false;
  return g_calls_left.fetch_sub(1) == 1;
}

}  // namespace

Injection::Injection(Fault fault, int nth, Where where) {
  t_is_this_thread = true;
  g_where = where;
  g_calls_left = nth;
  g_fault = fault;
}

Injection::~Injection() {
  g_fault = Fault::kNone;
  t_is_this_thread = false;
}

bool Injection::struck() const {
  return g_calls_left <= 0;
}

}  // namespace hbbtv_ryn::test

using hbbtv_ryn::test::Fault;
using hbbtv_ryn::test::strikes;

namespace {

template <typename Result>
Result failing(int error, Result result) {
  errno = error;
  return result;
}

}  // namespace

// The linker's names for the function itself and for what stands in front of it.
// NOLINTBEGIN(bugprone-macro-parentheses, bugprone-reserved-identifier, readability-identifier-naming)
#define WRAP(fault, error, failed, result, name, parameters, arguments)                      \
  result __real_##name parameters;                                                           \
  result __wrap_##name parameters {                                                          \
    return strikes(Fault::fault) ? failing<result>(error, failed) : __real_##name arguments; \
  }
extern "C" {

WRAP(kMemory, ENOMEM, nullptr, void*, malloc, (std::size_t bytes), (bytes))
WRAP(kMemory, ENOMEM, nullptr, void*, calloc, (std::size_t count, std::size_t bytes), (count, bytes))
WRAP(kMemory, ENOMEM, nullptr, void*, realloc, (void* memory, std::size_t bytes), (memory, bytes))
WRAP(kMemory, ENOMEM, nullptr, char*, strdup, (const char* text), (text))
WRAP(kQueueOpen, ENOSPC, -1, int, msgget, (key_t key, int flags), (key, flags))
WRAP(kSend, EAGAIN, -1, int, msgsnd, (int queue, const void* message, std::size_t bytes, int flags),
     (queue, message, bytes, flags))
WRAP(kSemaphore, ENOSPC, -1, int, semget, (key_t key, int count, int flags), (key, count, flags))
WRAP(kSemaphore, ENOMEM, -1, int, semop, (int set, sembuf* operations, std::size_t count),
     (set, operations, count))
WRAP(kThread, EAGAIN, EAGAIN, int, pthread_create,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* argument),
     (thread, attributes, entry, argument))

int __real_semctl(int set, int semaphore, int command, ...);
int __wrap_semctl(int set, int semaphore, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return strikes(Fault::kSemaphore) ? failing(EIDRM, -1) : __real_semctl(set, semaphore, command, argument);
}

ssize_t __real_msgrcv(int queue, void* message, std::size_t bytes, long type, int flags);
ssize_t __wrap_msgrcv(int queue, void* message, std::size_t bytes, long type, int flags) {
  // Only a wait can be interrupted.
  const bool fails = (flags & IPC_NOWAIT) == 0 && strikes(Fault::kReceive);
  return fails ? failing<ssize_t>(EINTR, -1) : __real_msgrcv(queue, message, bytes, type, flags);
}

}  // extern "C"
// NOLINTEND(bugprone-macro-parentheses, bugprone-reserved-identifier, readability-identifier-naming)

void* operator new(std::size_t bytes, const std::nothrow_t& /*tag*/) noexcept {
  return strikes(Fault::kMemory) ? nullptr : __real_malloc(bytes == 0 ? 1 : bytes);
}
void* operator new(std::size_t bytes) {
  void* const memory = operator new(bytes, std::nothrow);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*bytes*/) noexcept {
  std::free(memory);
}
