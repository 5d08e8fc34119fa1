// `rynctl monitor`: the traffic of the running processes.

#include <CLI/CLI.hpp>
#include <fstream>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/commands/command.h"
#include "tools/rynctl/commands/trace_view.h"
#include "tools/rynctl/system/log_control.h"
#include "tools/rynctl/system/process.h"
#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Options {
  std::string glob = "*";
  std::optional<double> slow;
  bool errors = false;
  std::string file;
};

/// Keeps the trace switched on in every process that reports, and switches it off at the end.
class TraceSwitch {
 public:
  explicit TraceSwitch(const LogControl& control) : control_(control) {}
  /// Also when the command ends by an exception.
  ~TraceSwitch() {
    for (const auto& [port, process] : processes_) {
      try {
        control_.send(port, {{trace::kModule}, kModuleRemoved});
      } catch (const std::exception& error) {
        complain(compose("port {}: the trace stays on: {}", port, error.what()));
      }
    }
  }
  TraceSwitch(const TraceSwitch&) = delete;
  TraceSwitch& operator=(const TraceSwitch&) = delete;

  void take(const LogReport& report) {
    Process& process = processes_[report.port];
    const bool listed = report.lists(trace::kModule);
    const bool full = report.modules.size() >= kMaxModules && !listed;
    // Once for a module that is listed already: it may be listed for errors only.
    if (full || (listed && process.commanded)) {
      if (process.told) return;
      const auto owner = findUdpPortOwner(report.port);
      remark("{}: {}", owner ? owner->text() : compose("port {}", report.port),
             full ? "cannot be watched, its list of modules is full" : "watching");
      process.told = true;
      return;
    }
    control_.send(report.port, {{trace::kModule}, kModuleFull});
    process.commanded = true;
  }

  bool sees() const { return !processes_.empty(); }

 private:
  struct Process {
    bool commanded = false;
    bool told = false;
  };

  const LogControl& control_;
  std::map<std::uint16_t, Process> processes_;
};

/// Writes each trace to a file, if one is named, with the name of its process while that can be seen.
class Recorder {
 public:
  explicit Recorder(std::string file) : name_(std::move(file)) {
    if (!name_.empty()) file_.open(name_);
    if (!file_) throw Failure(ExitCode::kUsage, "{} cannot be written", printable(name_));
  }
  void take(TraceEvent* event) {
    if (!file_.is_open()) return;
    auto [process, unknown] = processes_.try_emplace(event->pid);
    if (unknown) process->second = processAt(event->pid, std::time(nullptr)).name;
    if (!process->second.empty()) event->json["process"] = process->second;
    file_ << oneLine(event->json) << '\n';
  }
  void end() {
    if (!file_.flush()) throw Failure(ExitCode::kRefused, "{} cannot be written", printable(name_));
  }

 private:
  const std::string name_;
  std::ofstream file_;
  std::map<pid_t, std::string> processes_;
};

ExitCode monitor(const Options& options) {
  constexpr std::chrono::seconds kLook{1};
  Recorder recorder(options.file);
  const Interrupt interrupt;
  const UdpPort traces(trace::kPort, "watch");
  const LogControl control;
  TraceView view({options.glob, options.slow, options.errors});
  {
    TraceSwitch traced(control);
    const auto patient_until = Clock::now() + kReportPatience;
    bool told = false;
    bool ended = false;
    while (!ended && std::ferror(output()) == 0) {
      awaitInput({interrupt.descriptor(), traces.descriptor(), control.descriptor()}, Clock::now() + kLook);
      ended = interrupt.raised();  // what has been sent by then is taken
      if (const auto report = control.take()) traced.take(*report);
      if (!told && !traced.sees() && Clock::now() > patient_until) {
        told = true;
        remark("no process reports yet; one does after zunt_log_initialize(1)");
      }
      while (const auto datagram = traces.take(trace::kMaxDatagram + 1)) {
        auto event = parseTrace(datagram->bytes);
        if (!event) continue;
        recorder.take(&*event);
        view.take(*event);
      }
      view.showLeft(kLook);
    }
  }
  view.showLeft();
  remark("{}, {} lost", counted(static_cast<unsigned long>(view.messages()), "message"), view.lost());
  recorder.end();
  return ExitCode::kDone;
}

}  // namespace

void addMonitorCommand(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = addCommand(
      app, action, options, &monitor, "monitor", "Show the messages of the running processes as they go",
      R"(One line for each message; an answer with the time in flight and in the handler. Switches the module
ryn_trace on in every process that reports its logging, and off at the end, which is Ctrl-C. Ends with the
number of messages and of traces that were lost.)");
  command->add_option("GLOB", options->glob, "Only messages whose name matches");
  addValue(command, "--slow", options->slow, "MS", "Only answers that took MS milliseconds or more")
      ->check(CLI::NonNegativeNumber);
  command->add_flag("--errors", options->errors,
                    "Only what was dropped, failed or was not answered; with --slow either of both");
  addValue(command, "--save", options->file, "FILE",
           "Write everything to FILE too, whatever is shown: a line of JSON for each trace");
}

}  // namespace hbbtv_ryn::rynctl
