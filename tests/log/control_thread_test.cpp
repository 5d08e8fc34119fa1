#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <chrono>
#include <csignal>
#include <iterator>
#include <string>

#include "hbbtv_ryn/log.h"
#include "log/loopback_socket.h"

namespace hbbtv_ryn::test {
namespace {

std::string socketOptions(std::uint16_t port) {
  for (int fd = 3; fd < 64; ++fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) continue;
    if (address.sin_family != AF_INET || ntohs(address.sin_port) != port) continue;
    // By index, because an emulator hands on no option that is text.
    unsigned device = 0;
    length = sizeof device;
    getsockopt(fd, SOL_SOCKET, SO_BINDTOIFINDEX, &device, &length);
    return std::string(device == if_nametoindex("lo") ? "lo" : "any device") +
           (fcntl(fd, F_GETFD) & FD_CLOEXEC ? ", closes on exec" : ", is inherited");
  }
  return "no such socket";
}

/// A thread that does not block the signal, as its caller does, would take it and end the process.
void blockAndRaise(int signal) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  kill(getpid(), signal);
  sigwait(&set, &signal);
}

/// A whole command: the text, zeros up to byte 1023, and the value.
std::string command(std::string text, int value) {
  text.resize(1024);
  return text + static_cast<char>(value);
}

// One test, because a control thread cannot be stopped. It asserts no upper bound on time: what is answered
// in time shows in a later report.
TEST(ControlThreadTest, ReportsTheListAndTakesAnyDatagramOneACycle) {
  std::string longest = std::string(30, 'x') + "10";
  for (int i = 11; i < 30; ++i) longest += '|' + std::string(30, 'x') + std::to_string(i);
  const std::string unended = "a|" + std::string(1022, 'u') + '\1';
  const struct {
    std::string datagram;
    std::string reported;
  } steps[] = {
      {command("__CLIEAR_LOG_MODULES__", 1), ""},
      {command("net|ui", 1), "net|ui"},
      {command("__CLIEAR_LOG_MODULES__x", 2), "__CLIEAR_LOG_MODULES__x|net|ui"},
      {command("a|" + std::string(33, 'x') + "|net", 255), "__CLIEAR_LOG_MODULES__x|a|net|ui"},
      {std::string("net\0", 4), "__CLIEAR_LOG_MODULES__x|a|ui"},  // a missing value is 0
      {std::string(60000, '|'), "__CLIEAR_LOG_MODULES__x|a|ui"},
      {"", "__CLIEAR_LOG_MODULES__x|a|ui"},
      {unended, "__CLIEAR_LOG_MODULES__x|a|ui"},
  };
  LoopbackSocket tool(kReportPort);
  insert_modules_list(longest.c_str(), 1);
  for (const int unknown : {-1, 2}) {
    EXPECT_EQ(-1, zunt_log_initialize(unknown));
    EXPECT_EQ(-1, zunt_log_finalize(unknown));
  }
  EXPECT_EQ(0, zunt_log_initialize(0));  // starts nothing: every report below is of one port
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(0, zunt_log_initialize(1));
  EXPECT_EQ(0, zunt_log_finalize(1));
  auto report = tool.next();
  const auto port = report.port;
  EXPECT_EQ(longest, report.bytes);
  EXPECT_EQ("lo, closes on exec", socketOptions(port));
  blockAndRaise(SIGUSR1);

  for (const auto& step : steps) tool.send(port, step.datagram);
  // A cycle may have passed meanwhile.
  waitUntil("the first command is taken", [&] { return (report = tool.next()).bytes != longest; });
  for (const auto& step : steps) {
    EXPECT_EQ(step.reported, report.bytes);
    EXPECT_EQ(port, report.port);
    report = tool.next();
  }
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(std::size(steps)));
  // A text without an end is kept, but not obeyed. The look-up takes the lock held after it was written.
  EXPECT_EQ(LOG_LEVEL_INFO, zunt_log_getLevel("ui"));
  EXPECT_EQ(LOG_LEVEL_ERROR, zunt_log_getLevel("a"));
  EXPECT_EQ(unended, std::string(g_modules_info, sizeof g_modules_info));
  clear_modules_list();
}

}  // namespace
}  // namespace hbbtv_ryn::test
