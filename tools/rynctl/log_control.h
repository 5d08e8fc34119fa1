/// @file
/// The tool's end of the log control channel: hears the reports of every process on the machine and
/// answers them with commands.
///
/// A process reports once a second and takes at most one command after each report, so a command shows in
/// the report after the one it answers. A report lists names without their values: that a listed module
/// has changed its value cannot be seen, only that it is listed.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_LOG_CONTROL_H
#define HBBTV_RYN_TOOLS_RYNCTL_LOG_CONTROL_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace hbbtv_ryn::rynctl {

using Clock = std::chrono::steady_clock;

/// How long a process may stay silent before it counts as absent: three of its cycles.
inline constexpr std::chrono::seconds kReportPatience{3};

struct LogReport {
  std::uint16_t port;                // of the process's control thread: its name on this channel
  std::vector<std::string> modules;  // in the process's order
};

/// What a process is told to do with its module list.
class LogCommand {
 public:
  /// @param value  kModuleFull, kModuleErrorsOnly or kModuleRemoved.
  static LogCommand set(std::vector<std::string> modules, std::uint8_t value);
  static LogCommand clear();

  /// @return why the module cannot be named in a command; empty when it can.
  static std::string whyNotAName(const std::string& module);

  /// @return the bytes to send.
  std::string datagram() const;
  /// @return whether a list that has obeyed may look like this.
  bool shownBy(const std::vector<std::string>& modules) const;
  /// @return the modules that a process with this list will not take because the list is full.
  std::vector<std::string> refusedBy(std::vector<std::string> modules) const;

 private:
  LogCommand(std::vector<std::string> modules, std::uint8_t value, bool clears);

  std::vector<std::string> modules_;
  std::uint8_t value_;
  bool clears_;
};

/// Holds the report port. Only one tool on a machine can.
class LogControl {
 public:
  /// Throws Failure with ExitCode::NoPeer when another tool holds the port.
  LogControl();
  ~LogControl();
  LogControl(const LogControl&) = delete;
  LogControl& operator=(const LogControl&) = delete;

  /// Waits for the next report.
  /// @param wake  a descriptor that ends the wait when it becomes readable, or -1.
  /// @return nothing at the deadline or when woken.
  std::optional<LogReport> next(Clock::time_point deadline, int wake = -1);

  /// Best done in answer to a report: a command that finds another one waiting is taken a cycle later.
  void send(std::uint16_t port, const LogCommand& command) const;

 private:
  int socket_;
};

/// What became of a command in one process.
struct LogOutcome {
  enum class Effect {
    Shown,     // a later report shows it
    Refused,   // the list was full for LogOutcome::refused
    NotShown,  // reports go on and do not show it
    Silent,    // the process took the command or not, but has not reported since
  };

  std::uint16_t port;
  std::vector<std::string> before;  // the list that the command met
  Effect effect;
  std::vector<std::string> refused;
};

/// Answers the next report of each process, or only of the one at `port`, with the command, and waits for
/// the report that shows the effect. Takes about two seconds, and at most kReportPatience when no process
/// reports or one falls silent.
/// @param wake  ends the wait early, as for LogControl::next(); commands not yet confirmed are Silent then.
/// @return one entry for each process, in the order of their reports; none when no process reported.
std::vector<LogOutcome> applyToEach(LogControl& control, const LogCommand& command,
                                    std::optional<std::uint16_t> port, int wake = -1);

/// Hears each process once: returns when the processes that were alive at the first report have had time
/// for theirs, or after kReportPatience when there is none.
/// @param port     listens to this process only.
/// @param onFirst  told of the first report of each.
void hearEach(LogControl& control, std::optional<std::uint16_t> port,
              const std::function<void(const LogReport&)>& onFirst);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_LOG_CONTROL_H
