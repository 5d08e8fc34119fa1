#include "log_control.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <sstream>
#include <system_error>

#include "exit_code.h"
#include "log/control_protocol.h"
#include "socket_owner.h"
#include "terminal.h"

namespace hbbtv_ryn::rynctl {

namespace {

using std::chrono::milliseconds;

/// From the first report on, every living process reports within one cycle; the rest is for a loaded
/// machine.
constexpr milliseconds kWindow{1000 * kLogCycleSeconds + 250};

/// Reports after a command that may still not show it: one that was under way, and one more cycle for a
/// command of somebody else that stood before it.
constexpr int kReportsWithoutEffect = 3;

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, kModuleSeparator);) pieces.push_back(piece);
  return pieces;
}

bool contains(const std::vector<std::string>& modules, const std::string& module) {
  return std::find(modules.begin(), modules.end(), module) != modules.end();
}

[[noreturn]] void failToListen(int error) {
  const std::string port = std::to_string(kLogReportPort);
  if (error != EADDRINUSE) {
    throw Failure(ExitCode::NoPeer, "cannot listen on UDP port " + port +
                                        " of 127.0.0.1: " + std::generic_category().message(error));
  }
  const auto owner = findUdpSocketOwner(kLogReportPort);
  throw Failure(ExitCode::NoPeer,
                "UDP port " + port + " is taken by " +
                    (owner ? printable(owner->name) + " (pid " + std::to_string(owner->pid) + ")"
                           : std::string("another tool")) +
                    "; only one at a time can hear the reports: end it and try again");
}

}  // namespace

LogCommand::LogCommand(std::vector<std::string> modules, std::uint8_t value, bool clears)
    : modules_(std::move(modules)), value_(value), clears_(clears) {}

LogCommand LogCommand::set(std::vector<std::string> modules, std::uint8_t value) {
  return {std::move(modules), value, false};
}

LogCommand LogCommand::clear() {
  return {{}, kModuleRemoved, true};
}

std::string LogCommand::whyNotAName(const std::string& module) {
  if (module.empty() || module.size() > kMaxModuleName) {
    return "a module name has 1 to " + std::to_string(kMaxModuleName) + " bytes: " + module;
  }
  if (module.find(kModuleSeparator) != std::string::npos) {
    return std::string("a module name cannot hold '") + kModuleSeparator + "': " + module;
  }
  if (module == kLogClearCommand) return "this name is reserved: " + module;
  return "";
}

std::string LogCommand::datagram() const {
  std::string bytes = clears_ ? kLogClearCommand : joined(modules_, std::string(1, kModuleSeparator));
  if (bytes.size() >= kLogCommandTextBytes) {
    throw Failure(ExitCode::Usage, "the module names are too long for one command");
  }
  bytes.resize(kLogCommandTextBytes);
  return bytes + static_cast<char>(value_);
}

bool LogCommand::shownBy(const std::vector<std::string>& modules) const {
  if (clears_) return modules.empty();
  const bool listed = value_ != kModuleRemoved;
  return std::all_of(modules_.begin(), modules_.end(),
                     [&](const std::string& module) { return contains(modules, module) == listed; });
}

std::vector<std::string> LogCommand::refusedBy(std::vector<std::string> modules) const {
  if (value_ == kModuleRemoved) return {};
  for (auto module = modules_.begin(); module != modules_.end(); ++module) {
    // A full list ends the edit, also when the module is listed and would only change its value.
    if (modules.size() >= kMaxModules) return {module, modules_.end()};
    if (!contains(modules, *module)) modules.push_back(*module);
  }
  return {};
}

LogControl::LogControl() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in address = loopback(kLogReportPort);
  if (socket_ == -1) failToListen(errno);
  if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
    const int error = errno;
    close(socket_);
    failToListen(error);
  }
}

LogControl::~LogControl() {
  close(socket_);
}

std::optional<LogReport> LogControl::next(Clock::time_point deadline, int wake) {
  std::array<pollfd, 2> waits = {{{socket_, POLLIN, 0}, {wake, POLLIN, 0}}};
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    const int ready =
        poll(waits.data(), waits.size(), static_cast<int>(std::max(left, milliseconds::zero()).count()));
    if (ready == -1 && errno == EINTR) continue;
    if (ready == -1) throw std::system_error(errno, std::generic_category(), "cannot wait for reports");
    if (ready == 0 || waits[1].revents != 0) return std::nullopt;

    std::array<char, kLogCommandBytes> names{};
    sockaddr_in sender{};
    socklen_t sender_length = sizeof sender;
    const ssize_t length = recvfrom(socket_, names.data(), names.size(), MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&sender), &sender_length);
    if (length < 0) continue;
    return LogReport{ntohs(sender.sin_port), split({names.data(), static_cast<std::size_t>(length)})};
  }
}

void LogControl::send(std::uint16_t port, const LogCommand& command) const {
  const sockaddr_in address = loopback(port);
  const std::string bytes = command.datagram();
  if (sendto(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
             sizeof address) == -1) {
    throw std::system_error(errno, std::generic_category(),
                            "cannot send to UDP port " + std::to_string(port));
  }
}

namespace {

/// Follows one command through every process.
class Application {
 public:
  Application(LogControl& control, const LogCommand& command, std::optional<std::uint16_t> port)
      : control_(control), command_(command), port_(port), join_until_(Clock::now() + kReportPatience) {}

  /// @return when something is due although no report comes; nothing when all is settled.
  std::optional<Clock::time_point> due() const {
    std::optional<Clock::time_point> earliest;
    if (Clock::now() < join_until_) earliest = join_until_;
    for (const Process& process : processes_) {
      if (process.settled) continue;
      const auto silent = process.last_report + kReportPatience;
      if (!earliest || silent < *earliest) earliest = silent;
    }
    return earliest;
  }

  void take(const LogReport& report) {
    if (port_ && *port_ != report.port) return;
    const auto known = std::find_if(processes_.begin(), processes_.end(), [&](const Process& process) {
      return process.outcome.port == report.port;
    });
    if (known != processes_.end()) {
      judge(*known, report);
    } else if (Clock::now() < join_until_) {
      control_.send(report.port, command_);
      // No more can join than the one that was asked for.
      if (processes_.empty()) join_until_ = Clock::now() + (port_ ? milliseconds::zero() : kWindow);
      processes_.push_back(
          {{report.port, report.modules, LogOutcome::Effect::Silent, command_.refusedBy(report.modules)},
           Clock::now()});
    }
  }

  void giveUpSilentOnes() {
    for (Process& process : processes_) {
      if (process.last_report + kReportPatience <= Clock::now()) process.settled = true;
    }
  }

  std::vector<LogOutcome> outcomes() const {
    std::vector<LogOutcome> result;
    for (const Process& process : processes_) result.push_back(process.outcome);
    return result;
  }

 private:
  struct Process {
    LogOutcome outcome;
    Clock::time_point last_report;
    int reports = 0;  // since the command
    bool settled = false;
  };

  void judge(Process& process, const LogReport& report) {
    if (process.settled) return;
    process.last_report = Clock::now();
    ++process.reports;
    using Effect = LogOutcome::Effect;
    process.outcome.effect = !process.outcome.refused.empty()   ? Effect::Refused
                             : command_.shownBy(report.modules) ? Effect::Shown
                                                                : Effect::NotShown;
    process.settled =
        process.outcome.effect != Effect::NotShown || process.reports == kReportsWithoutEffect;
  }

  LogControl& control_;
  const LogCommand& command_;
  std::optional<std::uint16_t> port_;
  Clock::time_point join_until_;
  std::vector<Process> processes_;
};

}  // namespace

std::vector<LogOutcome> applyToEach(LogControl& control, const LogCommand& command,
                                    std::optional<std::uint16_t> port, int wake) {
  Application application(control, command, port);
  while (const auto due = application.due()) {
    if (const auto report = control.next(*due, wake)) {
      application.take(*report);
    } else if (Clock::now() < *due) {
      break;
    } else {
      application.giveUpSilentOnes();
    }
  }
  return application.outcomes();
}

void hearEach(LogControl& control, std::optional<std::uint16_t> port,
              const std::function<void(const LogReport&)>& onFirst) {
  std::set<std::uint16_t> heard;
  auto until = Clock::now() + kReportPatience;
  while (const auto report = control.next(until)) {
    if (port && *port != report->port) continue;
    if (heard.empty()) until = Clock::now() + kWindow;
    if (heard.insert(report->port).second) onFirst(*report);
    if (port) return;
  }
}

}  // namespace hbbtv_ryn::rynctl
