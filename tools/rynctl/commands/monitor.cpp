// `rynctl monitor`: the traffic of the running processes.

#include <fstream>

#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/system/log_control.h"
#include "tools/rynctl/system/process.h"
#include "tools/rynctl/text/output.h"
#include "tools/rynctl/trace/trace_view.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// Keeps the trace switched on in every process that reports, and switches it off at the end.
class TraceSwitch {
 public:
  explicit TraceSwitch(const LogControl& control) : control_(control) {}
  /// Also when the command ends by an exception.
  ~TraceSwitch() {
    for (const auto& [port, told] : told_) {
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
    const auto [told, first] = told_.try_emplace(report.port, false);
    const bool listed = report.lists(trace::kModule);
    const bool full = report.modules.size() >= kMaxModules && !listed;
    // Also when the module is listed already: it may be listed for errors only.
    if (!full && (first || !listed)) return control_.send(report.port, {{trace::kModule}, kModuleFull});
    if (std::exchange(told->second, true)) return;
    const Process owner = findUdpPortOwner(report.port);
    remark("{}: {}", owner.pid != 0 ? owner.text() : compose("port {}", report.port),
           full ? "cannot be watched, its list of modules is full" : "watching");
  }

  bool sees() const { return !told_.empty(); }

 private:
  const LogControl& control_;
  std::map<std::uint16_t, bool> told_;  // by the ports of those that report: whether it has been said
};

}  // namespace

ExitCode monitor(const MonitorOptions& options) {
  constexpr std::chrono::seconds kLook{1};
  constexpr std::int64_t kPerSecond = 1000000;
  std::ofstream file;
  if (!options.file.empty()) file.open(options.file);
  if (!file) throw Failure(ExitCode::kUsage, "{} cannot be written", printable(options.file));
  std::map<pid_t, std::string> names;  // of the processes, while they can be seen
  const Interrupt interrupt;
  const UdpPort traces(trace::kPort, "watch");
  const LogControl control;
  TraceView view(options.filter);
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
        const auto [pid, seconds] = std::pair(event->at.pid, event->at.time / kPerSecond);
        const auto [name, added] = names.try_emplace(pid);
        if (added) name->second = processAt(pid, static_cast<std::time_t>(seconds)).name;
        event->process = name->second;
        if (!event->process.empty()) event->json["process"] = event->process;
        if (file.is_open()) file << oneLine(event->json) << '\n';
        view.take(*event);
      }
      view.showLeft(kLook);
    }
  }
  view.showLeft();
  remark("{}, {} lost", counted(static_cast<unsigned long>(view.messages()), "message"), view.lost());
  if (!file.flush()) throw Failure(ExitCode::kRefused, "{} cannot be written", printable(options.file));
  return ExitCode::kDone;
}

}  // namespace hbbtv_ryn::rynctl
