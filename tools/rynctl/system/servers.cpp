#include "tools/rynctl/system/servers.h"

#include <sys/sem.h>

#include <cerrno>

#include "tools/rynctl/failure.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

Servers serversOf(key_t request_key) {
  constexpr unsigned short kLife = 0;
  Servers servers;
  const int semaphores = semget(request_key, 0, 0);
  if (semaphores == -1) return servers;
  servers.count = semctl(semaphores, kLife, GETVAL);
  if (servers.count == -1 && errno == EACCES) {
    throw Failure(ExitCode::NoPeer, "the semaphores on key {} may not be read; try as root",
                  keyText(request_key));
  }
  // Starting the server was the last operation on the semaphore.
  if (servers.alive()) servers.latest = processAt(semctl(semaphores, kLife, GETPID), std::time(nullptr));
  return servers;
}

}  // namespace hbbtv_ryn::rynctl
