// What a process holds, for tests that nothing is left behind.
#ifndef HBBTV_RYN_TESTS_ENDPOINTS_PROCESS_RESOURCES_H
#define HBBTV_RYN_TESTS_ENDPOINTS_PROCESS_RESOURCES_H

#include <cstddef>
#include <filesystem>
#include <iterator>

#include "support/deadline.h"

namespace hbbtv_ryn::test {

inline std::size_t entriesOf(const char* directory) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}
inline std::size_t threadCount() {
  return entriesOf("/proc/self/task");
}
inline std::size_t descriptorCount() {
  return entriesOf("/proc/self/fd");
}

/// A joined thread leaves /proc a moment after pthread_join() has returned.
inline void waitForThreadCount(std::size_t count) {
  waitUntil("no further thread was left", [count] { return threadCount() == count; });
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_ENDPOINTS_PROCESS_RESOURCES_H
