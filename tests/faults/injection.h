/// @file
/// Makes one call fail that the library makes: the linker puts a function of ours in front of each (see
/// CMakeLists.txt), and operator new is replaced for the whole program, the JSON library included.
#ifndef HBBTV_RYN_TESTS_FAULTS_INJECTION_H
#define HBBTV_RYN_TESTS_FAULTS_INJECTION_H

namespace hbbtv_ryn::test {

enum class Fault {
  kNone,
  kMemory,     ///< malloc(), calloc(), realloc(), strdup(), operator new
  kQueueOpen,  ///< msgget()
  kSend,       ///< msgsnd(): as on a full queue
  kReceive,    ///< msgrcv() that waits: as interrupted by a signal
  kSemaphore,  ///< semget(), semop(), semctl()
  kThread,     ///< pthread_create()
};

enum class Where {
  kThisThread,
  kOtherThreads,
};

/// While it lives, the nth call of the kind fails, once.
class Injection {
 public:
  Injection(Fault fault, int nth, Where where);
  ~Injection();
  Injection(const Injection&) = delete;
  Injection& operator=(const Injection&) = delete;

  /// Whether there was an nth call.
  bool struck() const;
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_FAULTS_INJECTION_H
