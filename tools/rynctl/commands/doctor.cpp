// `rynctl doctor`: what is wrong, on one page.

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>

#include "hbbtv_ryn/ipc.h"
#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/commands/commands.h"
#include "tools/rynctl/system/log_control.h"
#include "tools/rynctl/system/process.h"
#include "tools/rynctl/system/queue_state.h"
#include "tools/rynctl/text/output.h"
#include "tools/rynctl/text/table.h"
#include "trace/datagram.h"

namespace hbbtv_ryn::rynctl {

namespace {

/// Prints what is found.
class Findings {
 public:
  explicit Findings(const DoctorOptions& options) : json_(options.json) {}

  void begin(const char* section) {
    section_ = section;
    if (!json_) print("{}\n", styled(Style::kHeading, section));
  }
  void good(const std::string& text) { add("ok", Style::kGood, text, ""); }
  /// @param fix  a command, or what to do.
  void note(const std::string& text, const std::string& fix = "") { add("note", Style::kPlain, text, fix); }
  void problem(const std::string& text, const std::string& fix) {
    ++problems_;
    add("WRONG", Style::kProblem, text, fix);
  }
  /// A problem with what mends it, or good as it is.
  void judge(bool fine, const std::string& text, const std::string& fault, const char* fix) {
    fine ? good(text) : problem(text + fault, fix);
  }
  unsigned problems() const { return problems_; }

 private:
  void add(const char* verdict, Style style, const std::string& text, const std::string& fix) const {
    if (json_) {
      return print(
          "{}\n",
          oneLine(jsonObject(
              {{"section", section_}, {"verdict", verdict}, {"text", text}, {"fix", fix, !fix.empty()}})));
    }
    print("  {}{}\n", styled(style, compose("{:7}", verdict)), text);
    if (!fix.empty()) print("         -> {}\n", fix);
  }

  const bool json_;
  const char* section_ = "";
  unsigned problems_ = 0;
};

constexpr unsigned long kRecordBytes = recordPayloadBytes(IPC_CHUNK_SIZE);
constexpr unsigned long kRecords = recordsOf(IPC_MAX_MESSAGE);
constexpr unsigned long kLargestMessage = kRecords * kRecordBytes;
// Two request queues and the notifications, and the queues and semaphores that go with them.
constexpr int kQueuesNeeded = 5;
constexpr int kSemaphoreSetsNeeded = 3;
constexpr int kSemaphoresPerSet = 2;

std::string recordsText(unsigned long capacity) {
  return compose("holds {} records; the largest message has {}, and waits 100 ms at a full queue",
                 capacity / kRecordBytes, kRecords);
}

void checkKernelLimits(Findings* found) {
  found->begin("Kernel limits");
  msginfo messages{};
  if (msgctl(0, IPC_INFO, reinterpret_cast<msqid_ds*>(&messages)) == -1) {
    return found->problem("this kernel has no System V message queues", "build it with CONFIG_SYSVIPC");
  }
  const auto largest_record = static_cast<unsigned long>(messages.msgmax);
  const auto capacity = static_cast<unsigned long>(messages.msgmnb);
  found->judge(largest_record >= kRecordBytes,
               compose("kernel.msgmax is {}, a record has {}", largest_record, kRecordBytes),
               ", so nothing can be sent", "sysctl -w kernel.msgmax=8192");
  // Twice the largest message, rounded up: what the packages set.
  found->judge(capacity >= kLargestMessage,
               compose("kernel.msgmnb is {}, the largest message needs {}", capacity, kLargestMessage),
               ": a new queue " + recordsText(capacity), "sysctl -w kernel.msgmnb=65536");
  found->judge(messages.msgmni >= kQueuesNeeded,
               compose("kernel.msgmni is {}, {} queues are needed", messages.msgmni, kQueuesNeeded), "",
               "sysctl -w kernel.msgmni=32000");
  seminfo semaphores{};
  const bool known = semctl(0, 0, IPC_INFO, &semaphores) != -1;
  found->judge(known && semaphores.semmni >= kSemaphoreSetsNeeded && semaphores.semmsl >= kSemaphoresPerSet,
               compose("kernel.sem allows {} sets of up to {} semaphores; {} sets of {} are needed",
                       semaphores.semmni, semaphores.semmsl, kSemaphoreSetsNeeded, kSemaphoresPerSet),
               ", so a dead peer is not noticed", "sysctl -w kernel.sem='250 32000 100 128'");
}

void checkServer(const QueueState& state, Findings* found) {
  const Servers& servers = state.servers;
  const std::string queue = compose("'{}': ", state.name->name);
  const std::string latest = servers.latest.text();
  if (state.isServedPlainly()) {
    found->good(queue + "served by " + state.reader.text() + ", which shows no life");
  } else if (!servers.known()) {
    found->note(queue + "no server has shown its life; a plain one may serve it");
  } else if (servers.count > 1) {
    found->problem(
        compose("{}{} servers share it and take each other's messages; the last that started is {}", queue,
                servers.count, latest),
        compose("end all but one; 'ps -C {}' shows its likes", printable(servers.latest.name)));
  } else if (servers.alive()) {
    found->good(queue + "served by " + latest);
  } else {
    found->note(compose("{}no {} process serves it now", queue, nameOf(state.name->reader)));
  }
}

void checkWaiting(const QueueState& queue, Findings* found) {
  const std::string waiting = compose("'{}': {} {}", queue.name->name, counted(queue.messages, "message"),
                                      queue.messages == 1 ? "waits" : "wait");
  const char* const receiver = nameOf(queue.name->reader);
  const Process reader = queue.whoReads();
  if (queue.judgement == QueueState::kBusy) return found->good(waiting + " and are being read");
  if (queue.judgement == QueueState::kStuck) {
    found->problem(
        compose("{}, and {} lives and does not read; it last read {}", waiting, reader.text(),
                ageText(queue.read)),
        compose("look where it hangs: gdb -p {} -batch -ex 'thread apply all backtrace'", reader.pid));
  }
  if (queue.judgement != QueueState::kOrphaned) return;
  if (queue.writer.alive && !queue.name->carriesReplies()) {
    found->problem(compose("{} for a {} process, sent by {}", waiting, receiver, queue.writer.text()),
                   compose("start the {} process; or 'rynctl reset --all' drops them", receiver));
  } else {
    found->problem(waiting + ", left by a process that is gone", "rynctl reset --stale");
  }
}

void checkCapacities(const std::vector<QueueState>& queues, Findings* found) {
  std::vector<std::string> names;
  std::string command = "ipcrm";
  unsigned long smallest = kLargestMessage;
  for (const QueueState& queue : queues) {
    if (queue.limit >= kLargestMessage) continue;
    names.emplace_back(queue.name->name);
    command += " -Q " + keyText(queue.name->key);
    smallest = std::min(smallest, queue.limit);
  }
  if (names.empty()) return;
  found->problem(
      compose("{}: made with {} bytes, which {}", joined(names, ", "), smallest, recordsText(smallest)),
      "raise kernel.msgmnb, stop both processes, then " + command);
}

void checkQueues(Findings* found) {
  found->begin("Queues");
  const auto queues = judgeQueues();
  if (queues.empty()) {
    found->note("none exists: neither process has run since the system started",
                "start them; 'rynctl serve browser' or 'rynctl serve plugin' stands in for one");
  }
  for (const QueueState& queue : queues) {
    if (!queue.name->carriesReplies()) checkServer(queue, found);
    checkWaiting(queue, found);
  }
  checkCapacities(queues, found);
}

void checkPort(std::uint16_t port, const char* purpose, Findings* found) {
  const Process owner = findUdpPortOwner(port);
  const std::string text = compose("UDP port {}, for {}, is ", port, purpose);
  if (owner.pid == 0) return found->good(text + "free");
  const std::string held = text + "held by " + owner.text();
  if (owner.name == "rynctl") return found->note(held);
  found->problem(held, compose("kill {}", owner.pid));
}

void checkReports(Findings* found) {
  const auto processes = hearEach(LogControl(), std::nullopt);
  const bool traced = std::any_of(processes.begin(), processes.end(), [](const auto& process) {
    return process.second.report.lists(trace::kModule);
  });
  if (processes.empty()) {
    found->note("no process reports its log modules, so 'rynctl log' and 'rynctl monitor' see none",
                "call zunt_log_initialize(1) in both hosts");
  } else {
    found->good(counted(processes.size(), "process") + (processes.size() == 1 ? " reports" : " report") +
                " its log modules");
  }
  if (traced && findUdpPortOwner(trace::kPort).pid == 0) {
    found->problem("messages are traced, and nobody watches", compose("rynctl log off {}", trace::kModule));
  }
}

void checkLogging(Findings* found) {
  found->begin("Logging");
  checkPort(kLogReportPort, "log reports", found);
  checkPort(trace::kPort, "traces", found);
  if (findUdpPortOwner(kLogReportPort).pid != 0) return;
  try {
    checkReports(found);
  } catch (const Failure& failure) {
    found->note(failure.what());
  }
}

}  // namespace

ExitCode doctor(const DoctorOptions& options) {
  Findings found(options);
  checkKernelLimits(&found);
  checkQueues(&found);
  checkLogging(&found);
  const unsigned problems = found.problems();
  if (!options.json) {
    print("{} wrong.\n", problems == 0   ? "Nothing is"
                         : problems == 1 ? "One thing is"
                                         : compose("{} things are", problems));
  }
  return problems == 0 ? ExitCode::kDone : ExitCode::kRefused;
}

}  // namespace hbbtv_ryn::rynctl
