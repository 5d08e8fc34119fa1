// `rynctl doctor`: what is wrong, on one page.

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "hbbtv_ryn/ipc.h"
#include "tools/catalogue/catalogue_text.h"
#include "tools/rynctl/commands/command.h"
#include "tools/rynctl/system/log_control.h"
#include "tools/rynctl/system/process.h"
#include "tools/rynctl/system/queue_state.h"
#include "tools/rynctl/text/output.h"
#include "trace/datagram.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Finding {
  enum Verdict { kGood, kNote, kProblem };
  Verdict verdict;
  std::string text;
  std::string fix;  // a command, or what to do
};

struct Section {
  const char* title;
  std::vector<Finding> findings;

  void good(std::string text) { findings.push_back({Finding::kGood, std::move(text), ""}); }
  void note(std::string text, std::string fix = "") {
    findings.push_back({Finding::kNote, std::move(text), std::move(fix)});
  }
  void problem(std::string text, std::string fix) {
    findings.push_back({Finding::kProblem, std::move(text), std::move(fix)});
  }
  /// A problem with what mends it, or good as it is.
  void judge(bool fine, const std::string& text, const std::string& fault, const char* fix) {
    if (fine) return good(text);
    problem(text + fault, fix);
  }
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

Section kernelLimits() {
  Section section{"Kernel limits", {}};
  msginfo messages{};
  if (msgctl(0, IPC_INFO, reinterpret_cast<msqid_ds*>(&messages)) == -1) {
    section.problem("this kernel has no System V message queues", "build it with CONFIG_SYSVIPC");
    return section;
  }
  const auto largest_record = static_cast<unsigned long>(messages.msgmax);
  const auto capacity = static_cast<unsigned long>(messages.msgmnb);
  section.judge(largest_record >= kRecordBytes,
                compose("kernel.msgmax is {}, a record has {}", largest_record, kRecordBytes),
                ", so nothing can be sent", "sysctl -w kernel.msgmax=8192");
  // Twice the largest message, rounded up: what the packages set.
  section.judge(capacity >= kLargestMessage,
                compose("kernel.msgmnb is {}, the largest message needs {}", capacity, kLargestMessage),
                ": a new queue " + recordsText(capacity), "sysctl -w kernel.msgmnb=65536");
  section.judge(messages.msgmni >= kQueuesNeeded,
                compose("kernel.msgmni is {}, {} queues are needed", messages.msgmni, kQueuesNeeded), "",
                "sysctl -w kernel.msgmni=32000");
  seminfo semaphores{};
  const bool known = semctl(0, 0, IPC_INFO, &semaphores) != -1;
  section.judge(
      known && semaphores.semmni >= kSemaphoreSetsNeeded && semaphores.semmsl >= kSemaphoresPerSet,
      compose("kernel.sem allows {} semaphore sets of {}, {} of {} are needed", semaphores.semmni,
              semaphores.semmsl, kSemaphoreSetsNeeded, kSemaphoresPerSet),
      ", so a dead peer is not noticed", "sysctl -w kernel.sem='250 32000 100 128'");
  return section;
}

void checkServer(const QueueState& state, Section* section) {
  const Servers& servers = state.servers;
  const std::string queue = compose("'{}': ", state.name->name);
  const std::string latest = servers.latest.text();
  if (state.isServedPlainly()) {
    section->good(queue + "served by " + state.reader.text() + ", which shows no life");
  } else if (!servers.known()) {
    section->note(queue + "no server has shown its life; a plain one may serve it");
  } else if (servers.count > 1) {
    section->problem(
        compose("{}{} servers share it and take each other's messages; the last that started is {}", queue,
                servers.count, latest),
        compose("end all but one; 'ps -C {}' shows its likes", printable(servers.latest.name)));
  } else if (servers.alive()) {
    section->good(queue + "served by " + latest);
  } else {
    section->note(compose("{}no {} process serves it now", queue, nameOf(state.name->reader)));
  }
}

void checkWaiting(const JudgedQueue& queue, Section* section) {
  const std::string waiting = compose("'{}': {} {}", queue.name->name, counted(queue.messages, "message"),
                                      queue.messages == 1 ? "waits" : "wait");
  const char* const receiver = nameOf(queue.name->reader);
  const Process reader = queue.whoReads();
  if (queue.judgement == JudgedQueue::kBusy) return section->good(waiting + " and are being read");
  if (queue.judgement == JudgedQueue::kStuck) {
    section->problem(
        compose("{}, and {} lives and does not read; it last read {}", waiting, reader.text(),
                ageText(queue.read)),
        compose("look where it hangs: gdb -p {} -batch -ex 'thread apply all backtrace'", reader.pid));
  }
  if (queue.judgement != JudgedQueue::kOrphaned) return;
  if (queue.writer.alive && !queue.name->carriesReplies()) {
    section->problem(compose("{} for a {} process, sent by {}", waiting, receiver, queue.writer.text()),
                     compose("start the {} process; or 'rynctl reset --all' drops them", receiver));
  } else {
    section->problem(waiting + ", left by a process that is gone", "rynctl reset --stale");
  }
}

void checkCapacities(const std::vector<JudgedQueue>& queues, Section* section) {
  std::vector<std::string> names;
  std::string command = "ipcrm";
  unsigned long smallest = kLargestMessage;
  for (const JudgedQueue& queue : queues) {
    if (queue.limit >= kLargestMessage) continue;
    names.emplace_back(queue.name->name);
    command += " -Q " + keyText(queue.name->key);
    smallest = std::min(smallest, queue.limit);
  }
  if (names.empty()) return;
  section->problem(
      compose("{}: made with {} bytes, which {}", joined(names, ", "), smallest, recordsText(smallest)),
      "raise kernel.msgmnb, stop both processes, then " + command);
}

Section queuesAndPeers() {
  Section section{"Queues", {}};
  const auto queues = judgeQueues();
  if (queues.empty()) {
    section.note("none exists: neither process has run since the system started",
                 "start them; 'rynctl serve browser' or 'rynctl serve plugin' stands in for one");
  }
  for (const JudgedQueue& queue : queues) {
    if (!queue.name->carriesReplies()) checkServer(queue, &section);
    checkWaiting(queue, &section);
  }
  checkCapacities(queues, &section);
  return section;
}

void checkPort(std::uint16_t port, const char* purpose, Section* section) {
  const auto owner = findUdpPortOwner(port);
  const std::string text =
      compose("UDP port {}, for {}, is {}", port, purpose, owner ? "held by " + owner->text() : "free");
  if (!owner) return section->good(text);
  if (owner->name == "rynctl") return section->note(text);
  section->problem(text, compose("kill {}", owner->pid));
}

void checkReports(Section* section) {
  unsigned processes = 0;
  bool traced = false;
  hearEach(LogControl(), std::nullopt, [&](const LogReport& report) {
    ++processes;
    traced = traced || report.lists(trace::kModule);
  });
  if (processes == 0) {
    section->note("no process reports its log modules, so 'rynctl log' and 'rynctl monitor' see none",
                  "call zunt_log_initialize(1) in both hosts");
  } else {
    section->good(counted(processes, "process") + (processes == 1 ? " reports" : " report") +
                  " its log modules");
  }
  if (traced && !findUdpPortOwner(trace::kPort)) {
    section->problem("messages are traced, and nobody watches",
                     compose("rynctl log off {}", trace::kModule));
  }
}

Section logging() {
  Section section{"Logging", {}};
  checkPort(kLogReportPort, "log reports", &section);
  checkPort(trace::kPort, "traces", &section);
  if (findUdpPortOwner(kLogReportPort)) return section;
  try {
    checkReports(&section);
  } catch (const Failure& failure) {
    section.note(failure.what());
  }
  return section;
}

constexpr const char* kVerdicts[] = {"ok", "note", "WRONG"};

void show(const Section& section) {
  print("{}\n", styled(Style::kHeading, section.title));
  for (const Finding& finding : section.findings) {
    std::string word = compose("{:7}", kVerdicts[finding.verdict]);
    if (finding.verdict == Finding::kProblem) word = styled(Style::kProblem, word);
    if (finding.verdict == Finding::kGood) word = styled(Style::kGood, word);
    print("  {}{}\n", word, finding.text);
    if (!finding.fix.empty()) print("         -> {}\n", finding.fix);
  }
}

void printJson(const Section& section) {
  for (const Finding& finding : section.findings) {
    Json::Value value(Json::objectValue);
    value["section"] = section.title;
    value["verdict"] = kVerdicts[finding.verdict];
    value["text"] = finding.text;
    if (!finding.fix.empty()) value["fix"] = finding.fix;
    print("{}\n", oneLine(value));
  }
}

struct Options {
  bool json = false;
};

ExitCode doctor(const Options& options) {
  long problems = 0;
  for (const auto& examine : {&kernelLimits, &queuesAndPeers, &logging}) {
    const Section section = examine();
    options.json ? printJson(section) : show(section);
    problems += std::count_if(section.findings.begin(), section.findings.end(),
                              [](const Finding& finding) { return finding.verdict == Finding::kProblem; });
  }
  if (!options.json) {
    print("{} wrong.\n", problems == 0   ? "Nothing is"
                         : problems == 1 ? "One thing is"
                                         : compose("{} things are", problems));
  }
  return problems == 0 ? ExitCode::kDone : ExitCode::kRefused;
}

}  // namespace

void addDoctorCommand(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();
  addCommand(
      app, action, options, &doctor, "doctor", "Say what is wrong, and what mends it",
      R"(Looks at kernel limits, servers and readers of the queues, messages that nobody reads, a second server
and the logging ports. Listens for log reports, which takes one to three seconds. Ends with 1 when
something is wrong.)")
      ->add_flag("--json", options->json, "Print each finding as a line of JSON");
}

}  // namespace hbbtv_ryn::rynctl
