/// @file
/// `rynctl monitor`: the traffic of the running processes.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <system_error>

#include "command.h"
#include "interrupt.h"
#include "log/control_protocol.h"
#include "log_control.h"
#include "message_text.h"
#include "process.h"
#include "queue_state.h"
#include "socket_owner.h"
#include "terminal.h"
#include "tools/catalogue/catalogue_text.h"
#include "trace_view.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Options {
  std::string glob = "*";
  std::optional<double> slow;
  bool errors = false;
  std::string file;
};

[[noreturn]] void failErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// The port that traced processes send to. Only one tool on a machine can hold it.
class TracePort {
 public:
  TracePort() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (socket_ == -1) failErrno("cannot listen for traces");
    // A burst must wait here while lines are printed. Root may exceed the system's limit.
    constexpr int kBuffer = 4 << 20;
    if (setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &kBuffer, sizeof kBuffer) == -1) {
      (void)setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &kBuffer, sizeof kBuffer);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(trace::kPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
    close(socket_);
    const auto owner = findUdpSocketOwner(trace::kPort);
    const std::string holder =
        owner ? printable(owner->name) + " (" + std::to_string(owner->pid) + ")" : "another tool";
    throw Failure(ExitCode::NoPeer, "UDP port " + std::to_string(trace::kPort) + " is taken by " + holder +
                                        "; only one monitor at a time can watch: end it and try again");
  }
  ~TracePort() { close(socket_); }
  TracePort(const TracePort&) = delete;
  TracePort& operator=(const TracePort&) = delete;

  int descriptor() const { return socket_; }

  /// The next datagram that is there; false when there is none.
  bool take(std::string* datagram) const {
    std::array<char, trace::kMaxDatagram + 1> bytes{};
    const ssize_t length = recv(socket_, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (length < 0) return false;
    datagram->assign(bytes.data(), static_cast<std::size_t>(length));
    return true;
  }

 private:
  int socket_;
};

/// One descriptor that is readable when either of two is.
class Either {
 public:
  Either(int one, int other) : descriptor_(epoll_create1(EPOLL_CLOEXEC)) {
    if (descriptor_ == -1) failErrno("cannot wait");
    for (const int each : {one, other}) {
      epoll_event wanted{};
      wanted.events = EPOLLIN;
      if (epoll_ctl(descriptor_, EPOLL_CTL_ADD, each, &wanted) == -1) failErrno("cannot wait");
    }
  }
  ~Either() { close(descriptor_); }
  Either(const Either&) = delete;
  Either& operator=(const Either&) = delete;

  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

/// Keeps the trace switched on in every process that reports, and switches it off at the end.
class TraceSwitch {
 public:
  explicit TraceSwitch(LogControl& control) : control_(control) {}
  /// Also when the command ends by an exception.
  ~TraceSwitch() {
    const LogCommand off = LogCommand::set({trace::kModule}, kModuleRemoved);
    for (const auto& [port, process] : processes_) {
      try {
        control_.send(port, off);
      } catch (const std::exception& error) {
        std::cerr << "rynctl: port " << port << ": the trace stays on: " << error.what() << '\n';
      }
    }
  }
  TraceSwitch(const TraceSwitch&) = delete;
  TraceSwitch& operator=(const TraceSwitch&) = delete;

  void take(const LogReport& report) {
    Process& process = processes_[report.port];
    const bool listed =
        std::find(report.modules.begin(), report.modules.end(), trace::kModule) != report.modules.end();
    // Once for a module that is listed already: it may be listed for errors only.
    if (listed && process.commands > 0) {
      if (!process.told) tell(report.port, ": watching");
      process.told = true;
      return;
    }
    if (report.modules.size() >= kMaxModules && !listed) {
      if (!process.told) tell(report.port, ": cannot be watched, its list of modules is full");
      process.told = true;
      return;
    }
    control_.send(report.port, LogCommand::set({trace::kModule}, kModuleFull));
    ++process.commands;
  }

  bool sees() const { return !processes_.empty(); }

 private:
  struct Process {
    unsigned commands = 0;
    bool told = false;
  };

  static void tell(std::uint16_t port, const char* what) {
    const auto owner = findUdpSocketOwner(port);
    const std::string name = owner ? printable(owner->name) + " (" + std::to_string(owner->pid) + ")"
                                   : "port " + std::to_string(port);
    std::cerr << name << what << std::endl;
  }

  LogControl& control_;
  std::map<std::uint16_t, Process> processes_;
};

std::string jsonLine(const TraceEvent& event) {
  Json::Value value(Json::objectValue);
  value["pid"] = event.pid;
  value["tid"] = static_cast<Json::Int64>(event.thread);
  value["seq"] = static_cast<Json::UInt64>(event.sequence);
  value["time"] = event.time;
  value["queue"] = keyText(event.queue);
  value["way"] = trace::kWayNames[static_cast<std::size_t>(event.way)];
  value["kind"] = trace::kKindNames[static_cast<std::size_t>(event.kind)];
  value["code"] = event.code;
  if (const Message* const message = findMessage(event.code)) value["name"] = std::string(message->name);
  value["length"] = static_cast<Json::UInt64>(event.length);
  if (event.waited) value["waited"] = static_cast<Json::Int64>(*event.waited);
  if (event.handling) value["handling"] = static_cast<Json::Int64>(*event.handling);
  if (event.drop != trace::Drop::kNone) {
    value["drop"] = trace::kDropNames[static_cast<std::size_t>(event.drop)];
  }
  if (event.result != 0) value["result"] = event.result;
  value["text"] = event.text;
  return oneLine(value);
}

void print(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) std::cout << line << '\n';
}

std::ofstream openFile(const std::string& name) {
  std::ofstream file(name);
  if (!file) throw Failure(ExitCode::Usage, printable(name) + " cannot be written");
  return file;
}

ExitCode monitor(const Options& options) {
  constexpr std::chrono::seconds kLook{1};
  constexpr double kMicroseconds = 1000;
  TraceView::Filter filter;
  filter.glob = options.glob;
  filter.errors = options.errors;
  if (options.slow) filter.slow = std::chrono::microseconds(std::lround(*options.slow * kMicroseconds));
  std::ofstream file;
  if (!options.file.empty()) file = openFile(options.file);

  const Interrupt interrupt;
  const TracePort port;
  LogControl control;
  TraceView view(filter, hasColour(STDOUT_FILENO));
  {
    const Either wake(interrupt.descriptor(), port.descriptor());
    TraceSwitch traces(control);
    const auto started = Clock::now();
    bool told = false;
    while (!interrupt.raised() && std::cout) {
      const auto report = control.next(Clock::now() + kLook, wake.descriptor());
      if (report) traces.take(*report);
      if (!told && !traces.sees() && Clock::now() - started > kReportPatience) {
        told = true;
        std::cerr << "no process reports yet; one does after zunt_log_initialize(1)" << std::endl;
      }
      for (std::string datagram; port.take(&datagram);) {
        const auto event = parseTrace(datagram);
        if (!event) continue;
        if (file.is_open()) file << jsonLine(*event) << '\n';
        print(view.take(*event));
      }
      print(view.left(TraceView::Which::kOverdue));
      std::cout.flush();
    }
  }
  print(view.left(TraceView::Which::kAll));
  std::cout.flush();
  std::cerr << view.messages() << (view.messages() == 1 ? " message, " : " messages, ") << view.lost()
            << " lost\n";
  if (file.is_open() && !file.flush()) {
    throw Failure(ExitCode::Refused, printable(options.file) + " cannot be written");
  }
  return ExitCode::Done;
}

}  // namespace

void addMonitorCommand(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("monitor", "Show the messages of the running processes as they go");
  command->add_option("GLOB", options->glob, "Only messages whose name matches");
  command->add_option("--slow", options->slow, "Only answers that took MS milliseconds or more")
      ->type_name("MS")
      ->check(CLI::NonNegativeNumber);
  command->add_flag("--errors", options->errors, "Only what was dropped, failed or was not answered");
  command
      ->add_option("--save", options->file, "Write everything to FILE too, a line of JSON for each trace")
      ->type_name("FILE");
  command->footer(
      "Switches the module ryn_trace on in every process that reports its logging, and off at the end,\n"
      "which is Ctrl-C. Ends with the number of messages and of traces that were lost.");
  command->callback([options, &action] { action = [options] { return monitor(*options); }; });
}

}  // namespace hbbtv_ryn::rynctl
