#include "socket_owner.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <system_error>

namespace hbbtv_ryn::rynctl {

namespace {

namespace fs = std::filesystem;

/// @return what /proc/PID/fd/N links to for this port's socket, "socket:[12345]".
std::optional<std::string> socketLink(std::uint16_t port) {
  std::ifstream table("/proc/net/udp");
  table.ignore(std::numeric_limits<std::streamsize>::max(), '\n');  // headings
  // "slot: address:port remote state queues timer retransmits uid timeout inode ..."
  constexpr int kColumnsBetweenLocalAndInode = 7;
  for (std::string line; std::getline(table, line);) {
    std::istringstream columns(line);
    std::string slot;
    std::string local;
    columns >> slot >> local;
    std::string inode;
    for (int i = 0; i <= kColumnsBetweenLocalAndInode; ++i) columns >> inode;
    unsigned number = 0;
    const auto colon = local.find(':');
    if (!columns || colon == std::string::npos) continue;
    std::from_chars(local.data() + colon + 1, local.data() + local.size(), number, 16);
    if (number == port) return "socket:[" + inode + "]";
  }
  return std::nullopt;
}

bool holds(const fs::path& process, const std::string& link) {
  std::error_code unreadable;
  const fs::directory_iterator descriptors(process / "fd", unreadable);
  return std::any_of(begin(descriptors), end(descriptors), [&](const fs::directory_entry& descriptor) {
    return fs::read_symlink(descriptor.path(), unreadable) == link;
  });
}

}  // namespace

std::optional<SocketOwner> findUdpSocketOwner(std::uint16_t port) {
  const auto link = socketLink(port);
  if (!link) return std::nullopt;
  std::error_code unreadable;
  for (fs::directory_iterator entry("/proc", unreadable), end; entry != end; entry.increment(unreadable)) {
    const std::string name = entry->path().filename();
    pid_t pid = 0;
    const auto parsed = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (parsed.ec != std::errc() || !holds(entry->path(), *link)) continue;
    SocketOwner owner{pid, ""};
    std::ifstream command(entry->path() / "comm");
    std::getline(command, owner.name);
    return owner;
  }
  return std::nullopt;
}

}  // namespace hbbtv_ryn::rynctl
