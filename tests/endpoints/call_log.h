// The calls that a host of the tests has received. Handlers note them on the library's threads.
#ifndef HBBTV_RYN_TESTS_ENDPOINTS_CALL_LOG_H
#define HBBTV_RYN_TESTS_ENDPOINTS_CALL_LOG_H

#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace hbbtv_ryn::test {

using Calls = std::vector<std::string>;

class CallLog {
 public:
  /// One call as a line of values, separated by blanks.
  template <typename... Values>
  void note(Values... values) {
    std::ostringstream line;
    [[maybe_unused]] const char* separator = "";
    ((line << std::exchange(separator, " ") << values), ...);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back(line.str());
  }
  /// The calls since the last take().
  Calls take() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_calls, {});
  }

 private:
  std::mutex m_mutex;
  Calls m_calls;  // guarded by m_mutex
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_ENDPOINTS_CALL_LOG_H
