// Each test speaks over real datagrams with a host in a process of its own: a control thread cannot be
// stopped. A test asserts no upper bound on time; what is answered "in time" shows in a later report.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "hbbtv_ryn/log.h"
#include "log/report_port.h"
#include "support/child_process.h"

namespace hbbtv_ryn::test {
namespace {

std::string socketOptions(const std::string& port) {
  for (int fd = 3; fd < 64; ++fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) continue;
    if (address.sin_family != AF_INET || std::to_string(ntohs(address.sin_port)) != port) continue;
    // By index, because an emulator hands on no option that is text.
    int index = 0;
    length = sizeof index;
    getsockopt(fd, SOL_SOCKET, SO_BINDTOIFINDEX, &index, &length);
    char device[IF_NAMESIZE] = {};
    if_indextoname(static_cast<unsigned>(index), device);
    return std::string(device) + (fcntl(fd, F_GETFD) & FD_CLOEXEC ? " closes on exec" : " is inherited");
  }
  return "no such socket";
}

/// A host whose calls are made on demand: "call argument" in, the result out.
const ChildRole kHost("host", [](Parent& parent) {
  const std::map<std::string, std::function<std::string(const std::string&)>> calls = {
      {"initialize", [](auto& mode) { return std::to_string(zunt_log_initialize(std::stoi(mode))); }},
      {"finalize", [](auto& mode) { return std::to_string(zunt_log_finalize(std::stoi(mode))); }},
      {"level", [](auto& module) { return std::to_string(zunt_log_getLevel(module.c_str())); }},
      {"full", [](auto& names) { return std::to_string(insert_modules_list(names.c_str(), 1)); }},
      {"socket", [](auto& port) { return socketOptions(port); }},
      {"last-command",
       [](auto&) {
         zunt_log_getLevel("");  // takes the lock that the thread has held since it wrote
         return std::string(g_modules_info, sizeof g_modules_info);
       }},
      {"block-and-raise",
       [](auto& signal) {
         sigset_t set;
         sigemptyset(&set);
         sigaddset(&set, std::stoi(signal));
         pthread_sigmask(SIG_BLOCK, &set, nullptr);
         // Blocked here; a thread that does not block it would take it and end the process.
         kill(getpid(), std::stoi(signal));
         int taken = 0;
         sigwait(&set, &taken);
         return std::to_string(taken);
       }},
  };
  for (;;) {
    const std::string line = parent.hear();
    const auto space = line.find(' ');
    parent.say(calls.at(line.substr(0, space))(line.substr(space + 1)));
  }
  return 0;
});

class ControlThreadTest : public testing::Test {
 protected:
  std::string host(const std::string& call, const std::string& argument) {
    m_host.say(call + " " + argument);
    return m_host.hear();
  }

  /// Starts the control thread.
  /// @return the port of its first report.
  std::uint16_t start() {
    EXPECT_EQ("0", host("initialize", "1"));
    return tool.next().port;
  }

  ReportPort tool;

 private:
  ChildProcess m_host{kHost};
};

TEST_F(ControlThreadTest, CommandsAreTakenOneACycleAndEachShowsInAReport) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ("0", host("initialize", "1"));
  const auto first = tool.next();
  EXPECT_EQ("", first.names);
  tool.command(first.port, "ui|net", 1);
  tool.command(first.port, "net", 255);
  tool.command(first.port, "ui", 0);
  tool.command(first.port, "__CLIEAR_LOG_MODULES__x", 2);
  tool.command(first.port, "__CLIEAR_LOG_MODULES__", 1);

  const std::vector<std::string> expected = {"", "net|ui", "net|ui", "net", "__CLIEAR_LOG_MODULES__x|net",
                                             ""};
  std::vector<std::string> seen = {""};
  int reports = 1;
  while (seen.size() < expected.size()) {
    const auto report = tool.next();
    ++reports;
    ASSERT_LT(reports, 30);
    EXPECT_EQ(first.port, report.port);
    // The first commands may have missed a cycle while this process was not running.
    if (seen.size() > 1 || !report.names.empty()) seen.push_back(report.names);
  }
  EXPECT_EQ(expected, seen);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(reports - 1));
}

TEST_F(ControlThreadTest, TheValueByteIsUnsignedAndMissingMeansZero) {
  const auto port = start();
  tool.command(port, "net|ui", 1);
  tool.awaitNames("net|ui");
  EXPECT_EQ("2", host("level", "net"));
  tool.command(port, "ui|x", 255);
  tool.awaitNames("net|ui|x");
  EXPECT_EQ("1", host("level", "ui"));
  tool.send(port, std::string("net|ui\0", 7));
  tool.awaitNames("x");
  EXPECT_EQ("1", host("level", "net"));
}

TEST_F(ControlThreadTest, AnyDatagramLeavesTheThreadServing) {
  const auto port = start();
  EXPECT_EQ("0", host("full", "net"));
  const std::string unended(1024, 'u');
  tool.send(port, "");
  tool.send(port, unended + '\1');
  tool.awaitNames("net");
  // Two commands on: the one without an end was taken.
  tool.send(port, std::string(60000, '|'));
  tool.send(port, std::string(1, '\0'));
  tool.command(port, std::string(33, 'x') + "|ui", 1);
  tool.awaitNames("net|ui");
  EXPECT_EQ(std::string(33, 'x') + "|ui" + std::string(1025 - 37, '\0') + '\1', host("last-command", ""));
}

TEST_F(ControlThreadTest, AnUnendedTextIsKeptButNotObeyed) {
  const auto port = start();
  EXPECT_EQ(std::string(1025, '\0'), host("last-command", ""));
  const std::string unended = "net|" + std::string(1020, 'u') + '\1';
  tool.send(port, unended);
  waitUntil("the command is taken", [&] {
    EXPECT_EQ("", tool.next().names);
    return host("last-command", "") == unended;
  });
  EXPECT_EQ("", tool.next().names);
}

TEST_F(ControlThreadTest, OnlyModeOneStartsAThreadAndNothingStopsIt) {
  EXPECT_EQ("-1", host("initialize", "2"));
  EXPECT_EQ("-1", host("initialize", "-1"));
  EXPECT_EQ("0", host("initialize", "0"));
  const auto port = start();
  EXPECT_EQ("0", host("finalize", "0"));
  EXPECT_EQ("0", host("finalize", "1"));
  EXPECT_EQ("-1", host("finalize", "2"));
  EXPECT_EQ("-1", host("finalize", "-1"));
  // One port only: the modes before had started nothing.
  EXPECT_EQ(port, tool.next().port);
  EXPECT_EQ(port, tool.next().port);

  // A second thread has a port of its own and the same list.
  EXPECT_EQ("0", host("initialize", "1"));
  std::uint16_t second = port;
  waitUntil("the second thread reports", [&] { return (second = tool.next().port) != port; });
  tool.command(second, "net", 1);
  waitUntil("the first thread reports what the second one was told", [&] {
    const auto report = tool.next();
    return report.port == port && report.names == "net";
  });
}

TEST_F(ControlThreadTest, TheThreadKeepsToLoopbackAndAwayFromTheHost) {
  const auto port = start();
  EXPECT_EQ("lo closes on exec", host("socket", std::to_string(port)));
  EXPECT_EQ(std::to_string(SIGUSR1), host("block-and-raise", std::to_string(SIGUSR1)));
}

TEST_F(ControlThreadTest, AReportHoldsTheLongestList) {
  std::string names;
  for (int i = 0; i < 20; ++i)
    names += (i == 0 ? "m" : "|m") + std::string(29, 'x') + std::to_string(10 + i);
  EXPECT_EQ("0", host("full", names));
  EXPECT_EQ("0", host("initialize", "1"));
  EXPECT_EQ(names, tool.next().names);
}

}  // namespace
}  // namespace hbbtv_ryn::test
