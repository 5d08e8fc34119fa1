// The tool's end of the log control channel: hears the reports of every process on the machine and
// answers them with commands.
//
// A process reports once a second and takes at most one command after each report, so a command shows in
// the report after the one it answers. A report lists names without their values: that a listed module
// has changed its value cannot be seen, only that it is listed.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_LOG_CONTROL_H
#define HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_LOG_CONTROL_H

#include <chrono>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "log/control_protocol.h"
#include "tools/rynctl/system/udp_port.h"
#include "tools/rynctl/system/wait.h"

namespace hbbtv_ryn::rynctl {

/// How long a process may stay silent before it counts as absent: three of its cycles.
inline constexpr std::chrono::seconds kReportPatience{3};

struct LogReport {
  std::uint16_t port;                // of the process's control thread: its name on this channel
  std::vector<std::string> modules;  // in the process's order
  std::time_t heard = 0;

  bool lists(const std::string& module) const;
};

/// What a process is told to do with its module list.
struct LogCommand {
  std::vector<std::string> modules;     // none: the list is emptied
  std::uint8_t value = kModuleRemoved;  // or kModuleFull, kModuleErrorsOnly

  /// The bytes to send. Throws Failure (Usage) when they are too many.
  std::string datagram() const;
  /// Whether a process that has obeyed may report this.
  bool shownBy(const LogReport& report) const;
  /// The modules that this process will not take because its list is full.
  std::vector<std::string> refusedBy(LogReport report) const;
};

/// Why the module cannot be named in a command; empty when it can.
std::string whyNotAModuleName(const std::string& module);

/// Holds the report port.
class LogControl {
 public:
  /// To be waited for as input.
  int descriptor() const { return port_.descriptor(); }
  /// The next report that is there. Does not wait.
  std::optional<LogReport> take() const;
  /// Best done in answer to a report: a command that finds another one waiting is taken a cycle later.
  void send(std::uint16_t port, const LogCommand& command) const { port_.send(port, command.datagram()); }

 private:
  UdpPort port_{kLogReportPort, "hear the reports"};
};

/// A process that reports, and what became of a command there.
struct LogOutcome {
  enum class Effect {
    kSilent,    // the process took the command or not, but has not reported since
    kShown,     // a later report shows it
    kRefused,   // the list was full for `refused`
    kNotShown,  // reports go on and do not show it
  };
  LogReport report;  // the first
  Effect effect = Effect::kSilent;
  std::vector<std::string> refused;
  int reports = 0;          // since the command
  Clock::time_point until;  // when the next is given up; the past when the outcome is settled
};

/// Hears the next report of each process, or only of the one at `port`. A command answers it, and the
/// report that shows the effect is waited for too. Takes at most two and a quarter seconds, or
/// kReportPatience when no process reports; with a command, about as much more for one that falls silent
/// or does not obey.
/// @param command  null: none.
/// @return one entry for each process, by its port; none when no process reported.
std::map<std::uint16_t, LogOutcome> hearEach(const LogControl& control, std::optional<std::uint16_t> port,
                                             const LogCommand* command = nullptr);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_SYSTEM_LOG_CONTROL_H
