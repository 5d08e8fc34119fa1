#include "tools/torture/ledger.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace hbbtv_ryn::test {

int createShared(const char* name) {
  // Above the descriptors that a child begins with.
  constexpr int kLowest = 64;
  const int created = memfd_create(name, MFD_CLOEXEC);
  const int descriptor = fcntl(created, F_DUPFD, kLowest);
  close(created);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "no shared memory");
  return descriptor;
}

std::string createLedger() {
  const int descriptor = createShared("ledger");
  if (ftruncate(descriptor, sizeof(Ledger)) != 0) {
    throw std::system_error(errno, std::generic_category(), "no shared memory");
  }
  return std::to_string(descriptor);
}

Ledger& openLedger(const std::string& argument) {
  void* memory = mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED, std::stoi(argument), 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
  return *static_cast<Ledger*>(memory);
}

}  // namespace hbbtv_ryn::test
