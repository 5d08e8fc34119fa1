/// @file
/// Runs rynctl as a shell would.
#ifndef HBBTV_RYN_TESTS_RYNCTL_TOOL_H
#define HBBTV_RYN_TESTS_RYNCTL_TOOL_H

#include <sys/types.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace hbbtv_ryn::test {

struct ToolResult {
  int exit_code;
  std::string out;
  std::string err;
};

class Tool {
 public:
  enum class Output { Files, Terminal };

  /// @param environment  "NAME=value" each, in addition to the test's.
  /// @param output       Terminal: standard output is a pseudo-terminal.
  explicit Tool(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {},
                Output output = Output::Files);
  /// SIGKILL, unless it has ended.
  ~Tool();
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  void signal(int number) const;
  /// Standard output so far.
  const std::string& out();
  /// Standard error so far.
  std::string err() const;
  /// Waits for the end.
  ToolResult result();

 private:
  pid_t m_pid = -1;
  int m_out;  // to be read without waiting
  int m_err;  // a file
  std::string m_text;
};

/// Runs the tool to its end.
ToolResult rynctl(const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment = {});

/// Whether the tool runs under an emulator, whose name is then all that the kernel knows of it.
inline bool isEmulated() {
  return std::getenv("HBBTV_RYN_EMULATOR") != nullptr;
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_RYNCTL_TOOL_H
