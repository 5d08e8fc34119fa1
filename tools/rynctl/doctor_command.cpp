/// @file
/// `rynctl doctor`: what is wrong, on one page.

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "hbbtv_ryn/ipc.h"
#include "log/control_protocol.h"
#include "log_control.h"
#include "queue_state.h"
#include "socket_owner.h"
#include "terminal.h"
#include "tools/catalogue/catalogue_text.h"
#include "trace/datagram.h"

namespace hbbtv_ryn::rynctl {

namespace {

struct Finding {
  enum class Verdict { kGood, kNote, kProblem };
  Verdict verdict;
  std::string text;
  std::string mend;  // a command, or what to do
};

struct Section {
  const char* title;
  std::vector<Finding> findings;

  void good(const std::string& text) { findings.push_back({Finding::Verdict::kGood, text, ""}); }
  void note(const std::string& text, const std::string& mend = "") {
    findings.push_back({Finding::Verdict::kNote, text, mend});
  }
  void problem(const std::string& text, const std::string& mend) {
    findings.push_back({Finding::Verdict::kProblem, text, mend});
  }
};

std::string number(unsigned long value) {
  return std::to_string(value);
}

// --- Kernel --------------------------------------------------------------------------------------------

constexpr unsigned long kRecordBytes = ipc_record_bytes(IPC_CHUNK_SIZE) - sizeof(long);
constexpr unsigned long kRecords = (IPC_MAX_MESSAGE + IPC_CHUNK_SIZE) / (IPC_CHUNK_SIZE + 1);
constexpr unsigned long kLargestMessage = kRecords * kRecordBytes;
// Twice the largest message, rounded up: what the packages set.
constexpr unsigned long kAdvisedCapacity = 65536;
// Two request queues and the notifications, and the queues and semaphores that go with them.
constexpr int kQueuesNeeded = 5;
constexpr int kSemaphoreSetsNeeded = 3;
constexpr int kSemaphoresPerSet = 2;

std::string recordsText(unsigned long capacity) {
  return "holds " + number(capacity / kRecordBytes) + " records; the largest message has " +
         number(kRecords) + ", and waits 100 ms at a full queue";
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
  if (largest_record < kRecordBytes) {
    section.problem("kernel.msgmax is " + number(largest_record) + "; a record has " +
                        number(kRecordBytes) + " bytes, so nothing can be sent",
                    "sysctl -w kernel.msgmax=8192");
  } else {
    section.good("kernel.msgmax is " + number(largest_record) + ", a record has " + number(kRecordBytes));
  }
  if (capacity < kLargestMessage) {
    section.problem("kernel.msgmnb is " + number(capacity) + ": a new queue " + recordsText(capacity),
                    "sysctl -w kernel.msgmnb=" + number(kAdvisedCapacity));
  } else {
    section.good("kernel.msgmnb is " + number(capacity) + ", the largest message needs " +
                 number(kLargestMessage));
  }
  if (messages.msgmni < kQueuesNeeded) {
    section.problem("kernel.msgmni is " + std::to_string(messages.msgmni) + "; five queues are needed",
                    "sysctl -w kernel.msgmni=32000");
  } else {
    section.good("kernel.msgmni is " + std::to_string(messages.msgmni) + ", five queues are needed");
  }
  seminfo semaphores{};
  if (semctl(0, 0, IPC_INFO, &semaphores) == -1 || semaphores.semmni < kSemaphoreSetsNeeded ||
      semaphores.semmsl < kSemaphoresPerSet) {
    section.problem(
        "kernel.sem leaves no room for three sets of two semaphores, so a dead peer is not "
        "noticed",
        "sysctl -w kernel.sem='250 32000 100 128'");
  } else {
    section.good("kernel.sem allows " + std::to_string(semaphores.semmni) +
                 " semaphore sets, three are needed");
  }
  return section;
}

// --- Queues --------------------------------------------------------------------------------------------

void checkServer(const QueueState& state, Section* section) {
  const std::string queue = "'" + std::string(state.name->name) + "'";
  if (!state.server.known()) {
    section->note(queue + ": no server has shown its life; one of an older version may serve it");
  } else if (state.server.count > 1) {
    section->problem(queue + ": " + std::to_string(state.server.count) +
                         " servers share it and take each other's messages; the last that started is " +
                         state.server.process.text(),
                     "end all but one; 'ps -C " + state.server.process.name + "' shows its likes");
  } else if (state.server.alive()) {
    section->good(queue + ": served by " + state.server.process.text());
  } else {
    section->note(queue + ": no " + nameOf(state.name->reader) + " process serves it now");
  }
}

void checkWaiting(const JudgedQueue& queue, Section* section) {
  const QueueState& state = queue.state;
  const std::string waiting = "'" + std::string(state.name->name) + "': " + number(state.messages) +
                              (state.messages == 1 ? " message waits" : " messages wait");
  switch (queue.judgement) {
    case Judgement::kIdle:
      return;
    case Judgement::kBusy:
      return section->good(waiting + " and are being read");
    case Judgement::kStuck: {
      const Process reader = readerOf(state);
      return section->problem(waiting + ", and " + reader.text() +
                                  " lives and does not read; it last read " + ageText(state.read),
                              "look where it hangs: gdb -p " + std::to_string(reader.pid) +
                                  " -batch -ex 'thread apply all backtrace'");
    }
    case Judgement::kOrphaned:
      if (state.writer.alive && !state.name->carriesReplies()) {
        return section->problem(
            waiting + " for a " + nameOf(state.name->reader) + " process, sent by " + state.writer.text(),
            "start the " + std::string(nameOf(state.name->reader)) +
                " process; or 'rynctl reset --all' drops them");
      }
      return section->problem(waiting + ", left by a process that is gone", "rynctl reset --stale");
  }
}

void checkCapacities(const std::vector<JudgedQueue>& judged, Section* section) {
  std::vector<std::string> names;
  std::string command = "ipcrm";
  unsigned long smallest = kLargestMessage;
  for (const JudgedQueue& queue : judged) {
    const QueueState& state = queue.state;
    if (state.limit >= kLargestMessage) continue;
    names.emplace_back(state.name->name);
    command += " -Q " + keyText(state.name->key);
    smallest = std::min(smallest, state.limit);
  }
  if (names.empty()) return;
  section->problem(
      joined(names, ", ") + ": made with " + number(smallest) + " bytes, which " + recordsText(smallest),
      "raise kernel.msgmnb, stop both processes, then " + command);
}

Section queuesAndPeers() {
  Section section{"Queues", {}};
  const auto judged = judgeQueues();
  if (judged.empty()) {
    section.note("none exists: neither process has run since the system started",
                 "start them; 'rynctl serve browser' or 'rynctl serve plugin' stands in for one");
  }
  for (const JudgedQueue& queue : judged) {
    if (!queue.state.name->carriesReplies()) checkServer(queue.state, &section);
    checkWaiting(queue, &section);
  }
  checkCapacities(judged, &section);
  return section;
}

// --- Logging -------------------------------------------------------------------------------------------

void checkPort(std::uint16_t port, const char* purpose, Section* section) {
  const auto owner = findUdpSocketOwner(port);
  const std::string where = "UDP port " + std::to_string(port) + ", for " + purpose + ", ";
  if (!owner) return section->good(where + "is free");
  const std::string text =
      where + "is held by " + printable(owner->name) + " (" + std::to_string(owner->pid) + ")";
  if (owner->name == "rynctl") return section->note(text);
  section->problem(text, "kill " + std::to_string(owner->pid));
}

void checkReports(Section* section) {
  LogControl control;
  unsigned processes = 0;
  std::vector<std::uint16_t> tracing;
  hearEach(control, std::nullopt, [&](const LogReport& report) {
    ++processes;
    for (const std::string& module : report.modules) {
      if (module == trace::kModule) tracing.push_back(report.port);
    }
  });
  if (processes == 0) {
    section->note("no process reports its log modules, so 'rynctl log' and 'rynctl monitor' see none",
                  "call zunt_log_initialize(1) in both hosts");
  } else {
    section->good(std::to_string(processes) + (processes == 1 ? " process reports" : " processes report") +
                  " its log modules");
  }
  const auto monitor = findUdpSocketOwner(trace::kPort);
  if (!tracing.empty() && !monitor) {
    section->problem("messages are traced, and nobody watches",
                     std::string("rynctl log off ") + trace::kModule);
  }
}

Section logging() {
  Section section{"Logging", {}};
  checkPort(kLogReportPort, "log reports", &section);
  checkPort(trace::kPort, "traces", &section);
  if (!findUdpSocketOwner(kLogReportPort)) {
    try {
      checkReports(&section);
    } catch (const Failure& failure) {
      section.note(failure.what());
    }
  }
  return section;
}

// -------------------------------------------------------------------------------------------------------

const char* wordOf(Finding::Verdict verdict) {
  switch (verdict) {
    case Finding::Verdict::kGood:
      return "ok";
    case Finding::Verdict::kNote:
      return "note";
    case Finding::Verdict::kProblem:
      return "WRONG";
  }
  return "";
}

void print(const Section& section, bool colour) {
  std::cout << styled(Style::Heading, section.title, colour) << '\n';
  for (const Finding& finding : section.findings) {
    std::string word = wordOf(finding.verdict);
    word.resize(7, ' ');
    if (finding.verdict == Finding::Verdict::kProblem) word = styled(Style::Problem, word, colour);
    if (finding.verdict == Finding::Verdict::kGood) word = styled(Style::Good, word, colour);
    std::cout << "  " << word << finding.text << '\n';
    if (!finding.mend.empty()) std::cout << "         -> " << finding.mend << '\n';
  }
  std::cout << std::flush;
}

void printJson(const Section& section) {
  for (const Finding& finding : section.findings) {
    Json::Value value(Json::objectValue);
    value["section"] = section.title;
    value["verdict"] = wordOf(finding.verdict);
    value["text"] = finding.text;
    if (!finding.mend.empty()) value["mend"] = finding.mend;
    std::cout << oneLine(value) << '\n';
  }
}

ExitCode doctor(bool json) {
  unsigned problems = 0;
  for (const auto& examine : {&kernelLimits, &queuesAndPeers, &logging}) {
    const Section section = examine();
    if (json) {
      printJson(section);
    } else {
      print(section, hasColour(STDOUT_FILENO));
    }
    for (const Finding& finding : section.findings) {
      if (finding.verdict == Finding::Verdict::kProblem) ++problems;
    }
  }
  if (!json && problems == 0) std::cout << "Nothing is wrong.\n";
  if (!json && problems > 0) {
    std::cout << (problems == 1 ? "One thing is wrong.\n"
                                : std::to_string(problems) + " things are wrong.\n");
  }
  return problems == 0 ? ExitCode::Done : ExitCode::Refused;
}

}  // namespace

void addDoctorCommand(CLI::App& app, Action& action) {
  const auto json = std::make_shared<bool>(false);
  CLI::App* const command = app.add_subcommand("doctor", "Say what is wrong, and what mends it");
  command->add_flag("--json", *json, "Print each finding as a line of JSON");
  command->footer(
      "Listens for log reports, which takes one to three seconds. Ends with 1 when something is wrong.");
  command->callback([json, &action] { action = [json] { return doctor(*json); }; });
}

}  // namespace hbbtv_ryn::rynctl
