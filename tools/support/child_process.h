/// @file
/// Second processes for ryn_torture and the tests. A role is code of the program that runs in a process of
/// its own:
///
///     const ChildRole kEcho("echo", [](Parent& parent) { parent.say(parent.hear()); return 0; });
///
///     TEST(...) { ChildProcess child(kEcho); child.say("x"); EXPECT_EQ("x", child.hear()); }
///
/// The program is executed anew (through HBBTV_RYN_EMULATOR, a command prefix, if that is set), so a child
/// can be started at any time, also while other threads run. It shares the namespaces of the thread that
/// started it. Parent and child exchange texts that are not empty, over a socket of their own.
#ifndef HBBTV_RYN_TOOLS_SUPPORT_CHILD_PROCESS_H
#define HBBTV_RYN_TOOLS_SUPPORT_CHILD_PROCESS_H

#include <sys/types.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

namespace hbbtv_ryn::test {

/// What a child sees of the test that started it.
class Parent {
 public:
  Parent(int socket, std::vector<std::string> arguments)
      : socket_(socket), arguments_(std::move(arguments)) {}
  const std::string& argument(std::size_t index) const { return arguments_.at(index); }
  std::size_t argumentCount() const { return arguments_.size(); }
  void say(const std::string& text) const;
  /// Waits without a limit; throws when the test has closed its end.
  std::string hear() const;

 private:
  int socket_;
  std::vector<std::string> arguments_;
};

/// To be defined at namespace scope. The result of the body is the child's exit code.
class ChildRole {
 public:
  using Body = int (*)(Parent& parent);
  ChildRole(const char* name, Body body);
  const char* name() const { return name_; }

 private:
  const char* name_;
};

class ChildProcess {
 public:
  /// The child is also killed when the thread that runs this constructor ends.
  /// @param error_output  descriptor that the child has as its standard error; stays the caller's.
  explicit ChildProcess(const ChildRole& role, const std::vector<std::string>& arguments = {},
                        int error_output = STDERR_FILENO);
  /// SIGKILL, unless it has ended and been waited for.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void say(const std::string& text) const;
  /// The child's next text. Throws at the deadline and when the child has ended.
  std::string hear() const;
  /// Lets the child end by itself: its exit code, or minus the signal that ended it. Throws at the
  /// deadline.
  int wait();
  /// False once the child has ended, by itself or by a signal; wait() then says how.
  bool lives() const;
  /// Sends a signal that ends the child, and returns when the child is gone: what wait() returns.
  int kill(int signal = SIGKILL) {
    this->signal(signal);
    return wait();
  }
  /// Halts every thread of the child, and returns when they stand still; goOn() lets them run again.
  void halt() const;
  void goOn() const { signal(SIGCONT); }
  /// Sends a signal and returns at once.
  void signal(int signal) const;
  pid_t pid() const { return pid_; }

 private:
  int socket_ = -1;
  pid_t pid_ = -1;
};

/// For main(): runs the role that the command line names. Nothing when this is no child.
std::optional<int> runAsChild(int argc, char** argv);

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_SUPPORT_CHILD_PROCESS_H
