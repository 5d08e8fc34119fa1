#include "tools/support/isolation.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

bool g_isolated = false;

bool unshareNamespaces() {
  const uid_t uid = getuid();
  const gid_t gid = getgid();
  if (unshare(CLONE_NEWIPC | CLONE_NEWNET) == 0) return true;
  if (unshare(CLONE_NEWUSER | CLONE_NEWIPC | CLONE_NEWNET) != 0) return false;
  // Without an identity mapping every file of the caller would belong to nobody.
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
  std::ofstream("/proc/self/gid_map") << "0 " << gid << " 1";
  return true;
}

void bringLoopbackUp() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "socket");
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  const bool up = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  close(fd);
  if (!up) throw std::runtime_error("cannot bring lo up");
}

// The lock is the kernel's own list of the queues. The descriptor stays open: it lasts as long as the
// process.
void waitForTurn() {
  const int fd = open("/proc/sysvipc/msg", O_RDONLY | O_CLOEXEC);
  if (fd < 0 || flock(fd, LOCK_EX) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot lock /proc/sysvipc/msg");
  }
}

void removeQueuesOf(key_t key) {
  const int queue = msgget(key, 0);
  if (queue >= 0) msgctl(queue, IPC_RMID, nullptr);
  const int semaphores = semget(key, 0, 0);
  if (semaphores >= 0) semctl(semaphores, 0, IPC_RMID);
}

void writeKernelSetting(const std::string& name, int value) {
  if (!g_isolated) throw std::logic_error("kernel." + name + " is the machine's");
  std::ofstream setting("/proc/sys/kernel/" + name);
  setting << value << std::flush;
  if (!setting) throw std::runtime_error("kernel." + name + " cannot be set here");
}

}  // namespace

bool enterNamespaces() {
  g_isolated = unshareNamespaces();
  if (g_isolated) bringLoopbackUp();
  return g_isolated;
}

void removeQueues() {
  for (const key_t key : {kRequestKey, kNotificationKey, kQueryKey}) {
    removeQueuesOf(key);
    removeQueuesOf(key + 1);
  }
}

void isolateProcess() {
  if (enterNamespaces()) return;
  std::fprintf(stderr,
               "no namespaces for the tests (%s): they run one at a time and share the machine's queues\n",
               std::strerror(errno));
  waitForTurn();
}

void isolateTest() {
  if (!g_isolated) return removeQueues();
  if (unshare(CLONE_NEWIPC) != 0) throw std::system_error(errno, std::generic_category(), "unshare");
}

bool isIsolated() {
  return g_isolated;
}

void setQueueCapacity(int bytes) {
  writeKernelSetting("msgmnb", bytes);
}

void setQueueLimit(int queues) {
  writeKernelSetting("msgmni", queues);
}

}  // namespace hbbtv_ryn::test
