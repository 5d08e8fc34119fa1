#include "faults/injection.h"

#include <pthread.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <ctime>
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
// NOLINTBEGIN(bugprone-reserved-identifier, readability-identifier-naming)
extern "C" {

void* __real_malloc(std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);
void* __real_realloc(void* memory, std::size_t bytes);
char* __real_strdup(const char* text);
int __real_msgget(key_t key, int flags);
int __real_msgsnd(int queue, const void* message, std::size_t bytes, int flags);
ssize_t __real_msgrcv(int queue, void* message, std::size_t bytes, long type, int flags);
int __real_semget(key_t key, int count, int flags);
int __real_semop(int set, sembuf* operations, std::size_t count);
int __real_semctl(int set, int semaphore, int command, ...);
int __real_semtimedop(int set, sembuf* operations, std::size_t count, const timespec* limit);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                          void* argument);

void* __wrap_malloc(std::size_t bytes) {
  return strikes(Fault::kMemory) ? failing<void*>(ENOMEM, nullptr) : __real_malloc(bytes);
}
void* __wrap_calloc(std::size_t count, std::size_t bytes) {
  return strikes(Fault::kMemory) ? failing<void*>(ENOMEM, nullptr) : __real_calloc(count, bytes);
}
void* __wrap_realloc(void* memory, std::size_t bytes) {
  return strikes(Fault::kMemory) ? failing<void*>(ENOMEM, nullptr) : __real_realloc(memory, bytes);
}
char* __wrap_strdup(const char* text) {
  return strikes(Fault::kMemory) ? failing<char*>(ENOMEM, nullptr) : __real_strdup(text);
}
int __wrap_msgget(key_t key, int flags) {
  return strikes(Fault::kQueueOpen) ? failing(ENOSPC, -1) : __real_msgget(key, flags);
}
int __wrap_msgsnd(int queue, const void* message, std::size_t bytes, int flags) {
  return strikes(Fault::kSend) ? failing(EAGAIN, -1) : __real_msgsnd(queue, message, bytes, flags);
}
ssize_t __wrap_msgrcv(int queue, void* message, std::size_t bytes, long type, int flags) {
  return strikes(Fault::kReceive) ? failing<ssize_t>(EINTR, -1)
                                  : __real_msgrcv(queue, message, bytes, type, flags);
}
int __wrap_semget(key_t key, int count, int flags) {
  return strikes(Fault::kSemaphore) ? failing(ENOSPC, -1) : __real_semget(key, count, flags);
}
int __wrap_semop(int set, sembuf* operations, std::size_t count) {
  return strikes(Fault::kSemaphore) ? failing(ENOMEM, -1) : __real_semop(set, operations, count);
}
int __wrap_semctl(int set, int semaphore, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return strikes(Fault::kSemaphore) ? failing(EIDRM, -1) : __real_semctl(set, semaphore, command, argument);
}
int __wrap_semtimedop(int set, sembuf* operations, std::size_t count, const timespec* limit) {
  return strikes(Fault::kSemaphore) ? failing(EINTR, -1) : __real_semtimedop(set, operations, count, limit);
}
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                          void* argument) {
  return strikes(Fault::kThread) ? EAGAIN : __real_pthread_create(thread, attributes, entry, argument);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier, readability-identifier-naming)

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
