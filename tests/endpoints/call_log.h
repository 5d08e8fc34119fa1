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
  /// One call as a line: the name and the arguments, separated by blanks.
  template <typename... Arguments>
  void note(const char* name, Arguments... arguments) {
    std::ostringstream line;
    line << name;
    ((line << ' ' << arguments), ...);
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
