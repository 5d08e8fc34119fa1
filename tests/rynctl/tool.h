/// @file
/// Runs rynctl as a shell would, and the processes that it looks at.
#ifndef HBBTV_RYN_TESTS_RYNCTL_TOOL_H
#define HBBTV_RYN_TESTS_RYNCTL_TOOL_H

#include <json/value.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/output_capture.h"
#include "tools/support/child_process.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {

using Words = std::vector<std::string>;

struct ToolResult {
  int exit_code;
  std::string out;
  std::string err;
};

class Tool {
 public:
  /// @param before  shell commands that end with a semicolon.
  explicit Tool(const Words& arguments, const std::string& before = "");
  /// SIGKILL, unless it has ended.
  ~Tool();
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  /// What it has written so far.
  std::string out() const { return out_.text(); }
  std::string err() const { return err_.text(); }
  void signal(int number) const { kill(pid_, number); }
  /// Waits for the end.
  ToolResult result();

 private:
  pid_t pid_ = -1;
  MemoryFile out_;
  MemoryFile err_;
};

/// Runs the tool to its end.
inline ToolResult rynctl(const Words& arguments) {
  return Tool(arguments).result();
}

/// Whether the tool has ended with this code, and has said why on standard error alone.
void expectEnd(const ToolResult& result, int exit_code, const std::string& reason);
inline void expectEnd(const Words& arguments, int exit_code, const std::string& reason) {
  expectEnd(rynctl(arguments), exit_code, reason);
}

/// A process of either side that reports its logging. A browser's GetValue hangs, its GetKeyLabel throws.
struct Host : ChildProcess {
  /// @param side     "browser" or "plugin"
  /// @param modules  listed for full output
  explicit Host(const std::string& side, const std::string& modules = "");
  int levelOf(const std::string& module);
  /// As the tool names it.
  std::string text() const { return "rynctl_test (" + std::to_string(pid()) + ")"; }
};

Json::Value parsed(const std::string& json);

inline bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// Under an emulator its name is all that the kernel knows of a process.
inline const bool kEmulated = std::getenv("HBBTV_RYN_EMULATOR") != nullptr;

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_RYNCTL_TOOL_H
