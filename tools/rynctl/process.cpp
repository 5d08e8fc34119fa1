#include "process.h"

#include <unistd.h>

#include <fstream>
#include <limits>
#include <optional>
#include <sstream>

#include "terminal.h"

namespace hbbtv_ryn::rynctl {

namespace {

std::optional<std::time_t> bootTime() {
  std::ifstream facts("/proc/stat");
  std::string word;
  while (facts >> word) {
    std::time_t seconds = 0;
    if (word == "btime" && facts >> seconds) return seconds;
    facts.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return std::nullopt;
}

struct Status {
  std::string name;
  char state = 0;
  std::time_t started = 0;
};

std::optional<Status> statusOf(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  // "pid (name) state ...": the name may hold anything, brackets included.
  const auto open = line.find('(');
  const auto close = line.rfind(')');
  if (open == std::string::npos || close == std::string::npos) return std::nullopt;
  Status status;
  status.name = line.substr(open + 1, close - open - 1);
  std::istringstream rest(line.substr(close + 1));
  rest >> status.state;
  constexpr int kFieldsBetweenStateAndStart = 18;
  std::string skipped;
  for (int i = 0; i < kFieldsBetweenStateAndStart; ++i) rest >> skipped;
  long long ticks = 0;
  rest >> ticks;
  const auto boot = bootTime();
  if (rest && boot) status.started = *boot + static_cast<std::time_t>(ticks / sysconf(_SC_CLK_TCK));
  return status;
}

/// The kernel notes the thread, not the process, when a message meets a waiting reader.
pid_t processOf(pid_t thread) {
  std::ifstream file("/proc/" + std::to_string(thread) + "/status");
  std::string word;
  while (file >> word) {
    pid_t process = 0;
    if (word == "Tgid:" && file >> process) return process;
    file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return thread;
}

}  // namespace

Process processAt(pid_t pid, std::time_t seen) {
  // The kernel rounds both times down, each from a clock of its own.
  constexpr std::time_t kRounding = 2;
  Process process;
  process.pid = pid;
  if (pid <= 0) return process;
  const auto status = statusOf(pid);
  if (!status || status->started > seen + kRounding) return process;
  process.pid = processOf(pid);
  process.name = status->name;
  process.alive = status->state != 'Z' && status->state != 'X';
  return process;
}

std::string Process::text() const {
  if (pid <= 0) return "-";
  if (!alive) return "pid " + std::to_string(pid) + ", gone";
  return printable(name) + " (" + std::to_string(pid) + ')';
}

}  // namespace hbbtv_ryn::rynctl
