#include "tools/rynctl/system/process.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <system_error>

#include "tools/rynctl/text/output.h"

namespace hbbtv_ryn::rynctl {

namespace {

namespace fs = std::filesystem;

constexpr auto kWholeLine = std::numeric_limits<std::streamsize>::max();

/// The number behind the word that begins a line; 0 when there is none.
long numberAfter(const char* wanted, const std::string& file) {
  std::ifstream lines(file);
  long number = 0;
  for (std::string word; lines >> word; lines.ignore(kWholeLine, '\n')) {
    if (word == wanted && lines >> number) break;
  }
  return number;
}

/// What /proc/PID/fd/N links to for this port's socket: "socket:[12345]"; empty when there is none.
std::string socketLink(std::uint16_t port) {
  std::ifstream table("/proc/net/udp");
  table.ignore(kWholeLine, '\n');  // headings
  // "slot: address:port remote state queues timer retransmits uid timeout inode ..."
  constexpr int kColumnsBetweenLocalAndInode = 7;
  const std::string wanted = compose(":{:04X}", port);
  for (std::string line; std::getline(table, line);) {
    std::istringstream columns(line);
    std::string slot;
    std::string local;
    std::string inode;
    columns >> slot >> local;
    for (int i = 0; i <= kColumnsBetweenLocalAndInode; ++i) columns >> inode;
    if (columns && local.substr(std::min(local.find(':'), local.size())) == wanted) {
      return compose("socket:[{}]", inode);
    }
  }
  return {};
}

}  // namespace

Process processAt(pid_t pid, std::time_t seen) {
  // The kernel rounds both times down, each from a clock of its own.
  constexpr std::time_t kRounding = 2;
  constexpr int kFieldsBetweenStateAndStart = 18;
  Process process;
  process.pid = pid;
  std::ifstream file(compose("/proc/{}/stat", pid));
  std::string line;
  std::getline(file, line);
  // "pid (name) state ...": the name may hold anything, brackets included.
  const auto open = line.find('(');
  const auto close = line.rfind(')');
  if (pid <= 0 || close == std::string::npos) return process;
  std::istringstream rest(line.substr(close + 1));
  char state = 0;
  rest >> state;
  std::string field;
  for (int i = 0; i <= kFieldsBetweenStateAndStart; ++i) rest >> field;
  const long ticks = std::strtol(field.c_str(), nullptr, 10);
  if (numberAfter("btime", "/proc/stat") + ticks / sysconf(_SC_CLK_TCK) > seen + kRounding) {
    return process;
  }
  // The kernel notes the thread, not the process, when a message meets a waiting reader.
  const long group = numberAfter("Tgid:", compose("/proc/{}/status", pid));
  if (group != 0) process.pid = static_cast<pid_t>(group);
  process.name = line.substr(open + 1, close - open - 1);
  process.alive = state != 'Z' && state != 'X';
  return process;
}

std::string Process::text() const {
  if (pid <= 0) return "-";
  if (!alive) return compose("pid {}, gone", pid);
  return compose("{} ({})", printable(name), pid);
}

Process findUdpPortOwner(std::uint16_t port) {
  const std::string link = socketLink(port);
  if (link.empty()) return {};
  std::error_code unreadable;
  for (fs::directory_iterator entry("/proc", unreadable), end; entry != end; entry.increment(unreadable)) {
    pid_t pid = 0;
    if (!readNumber(entry->path().filename().native(), &pid)) continue;
    for (const auto& descriptor : fs::directory_iterator(entry->path() / "fd", unreadable)) {
      if (fs::read_symlink(descriptor.path(), unreadable) == link)
        return processAt(pid, std::time(nullptr));
    }
  }
  return {};
}

}  // namespace hbbtv_ryn::rynctl
