#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <string>

#include "hbbtv_ryn/log.h"
#include "log/report_port.h"
#include "support/child_process.h"
#include "support/output_capture.h"
#include "tool.h"

namespace hbbtv_ryn::test {
namespace {

/// Reports; tells the level of each module it is asked for.
const ChildRole kHost("host", [](Parent& parent) {
  if (parent.argumentCount() > 0) insert_modules_list(parent.argument(0).c_str(), 1);
  zunt_log_initialize(1);
  for (;;) parent.say(std::to_string(zunt_log_getLevel(parent.hear().c_str())));
  return 0;
});

int levelIn(ChildProcess& host, const std::string& module) {
  host.say(module);
  return std::stoi(host.hear());
}

/// The port of the only process that reports.
std::string portOfOnlyHost() {
  return std::to_string(ReportPort().next().port);
}

/// What the kernel calls this program and its children: under an emulator, the emulator.
std::string programName() {
  std::string name;
  std::getline(std::ifstream("/proc/self/comm"), name);
  return name;
}

std::string pidText(const ChildProcess& host) {
  return std::to_string(host.pid());
}

std::string twentyModules() {
  std::string names = "m10";
  for (int i = 11; i < 30; ++i) names += "|m" + std::to_string(i);
  return names;
}

/// A control thread without a process around it, and without its clock.
class FakeProcess {
 public:
  FakeProcess() : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const timeval pause{0, 20000};
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &pause, sizeof pause);
  }
  ~FakeProcess() { close(m_socket); }
  FakeProcess(const FakeProcess&) = delete;
  FakeProcess& operator=(const FakeProcess&) = delete;

  void report(const std::string& names) const {
    const sockaddr_in tool = ReportPort::loopback(54321);
    sendto(m_socket, names.data(), names.size(), 0, reinterpret_cast<const sockaddr*>(&tool), sizeof tool);
  }

  std::string reportUntilCommanded(const std::string& names) const {
    std::string command(2000, '#');
    ssize_t length = -1;
    waitUntil("the tool sends a command", [&] {
      report(names);
      return (length = recv(m_socket, command.data(), command.size(), 0)) >= 0;
    });
    return command.substr(0, static_cast<std::size_t>(length));
  }

 private:
  int m_socket;
};

Json::Value parsed(const std::string& line) {
  Json::Value value;
  EXPECT_TRUE(Json::Reader().parse(line, value)) << line;
  return value;
}

TEST(RynctlTest, UsageErrorsEndWithTwoAndSayWhatIsWrong) {
  const std::string long_name(33, 'x');
  const std::vector<std::pair<std::vector<std::string>, std::string>> lines = {
      {{}, "Usage: rynctl"},
      {{"bogus"}, "bogus"},
      {{"log", "bogus"}, "bogus"},
      {{"log", "on"}, "MODULE"},
      {{"log", "on", "a|b"}, "cannot hold '|'"},
      {{"log", "on", ""}, "1 to 32 bytes"},
      {{"log", "off", long_name}, long_name},
      {{"log", "errors", "__CLIEAR_LOG_MODULES__"}, "reserved"},
      {{"log", "clear", "net"}, "net"},
      {{"log", "--watch", "on", "net"}, "--watch"},
      {{"log", "--json", "clear"}, "--json"},
      {{"log", "--port", "0"}, "--port"},
      {{"log", "on", "--port", "65536", "net"}, "--port"},
      {{"log", "on", "1",  "2",  "3",  "4",  "5",  "6",  "7",  "8",  "9", "10",
        "11",  "12", "13", "14", "15", "16", "17", "18", "19", "20", "21"},
       "20 modules"},
  };
  for (const auto& [arguments, reason] : lines) {
    const auto result = rynctl(arguments);
    EXPECT_EQ(2, result.exit_code) << result.err;
    EXPECT_EQ("", result.out);
    EXPECT_NE(std::string::npos, result.err.find(reason)) << result.err;
  }
}

TEST(RynctlTest, HelpAndVersionArePrintedForEveryCommand) {
  EXPECT_EQ(0, rynctl({"--version"}).out.find("rynctl "));
  const std::vector<std::vector<std::string>> commands = {
      {}, {"log"}, {"log", "on"}, {"log", "errors"}, {"log", "off"}, {"log", "clear"}};
  for (auto command : commands) {
    command.emplace_back("--help");
    const auto result = rynctl(command);
    EXPECT_EQ(0, result.exit_code) << result.err;
    EXPECT_NE(std::string::npos, result.out.find("Usage: rynctl")) << result.out;
    EXPECT_EQ("", result.err);
  }
}

class RynctlWithoutPeerTest : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(RynctlWithoutPeerTest, EndsWithThree) {
  const auto result = rynctl(GetParam());
  EXPECT_EQ(3, result.exit_code);
  EXPECT_EQ("", result.out);
  EXPECT_NE(std::string::npos, result.err.find("no process has reported within 3 seconds")) << result.err;
}
INSTANTIATE_TEST_SUITE_P(Log, RynctlWithoutPeerTest,
                         testing::Values(std::vector<std::string>{"log"},
                                         std::vector<std::string>{"log", "on", "net"}));

TEST(RynctlLogTest, APortThatIsTakenIsRefused) {
  const ReportPort other_tool;
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"log"}, {"log", "-w"}, {"log", "clear"}}) {
    const auto result = rynctl(command);
    EXPECT_EQ(3, result.exit_code);
    EXPECT_NE(std::string::npos, result.err.find("UDP port 54321 is taken by " + programName() + " (pid " +
                                                 std::to_string(getpid()) + ")"))
        << result.err;
  }
}

TEST(RynctlLogTest, CommandsReachEveryProcessAndSayWhatTheyDid) {
  ChildProcess browser(kHost);
  ChildProcess plugin(kHost);
  auto result = rynctl({"log", "on", "net", "ui", "net"});
  EXPECT_EQ("net, ui: on (2 processes)\n", result.out);
  EXPECT_EQ("", result.err);
  EXPECT_EQ(0, result.exit_code);
  EXPECT_EQ(LOG_LEVEL_INFO, levelIn(browser, "net"));
  EXPECT_EQ(LOG_LEVEL_INFO, levelIn(plugin, "ui"));

  EXPECT_EQ("net, other: errors only (2 processes)\n", rynctl({"log", "errors", "net", "other"}).out);
  EXPECT_EQ(LOG_LEVEL_ERROR, levelIn(browser, "net"));
  EXPECT_EQ(LOG_LEVEL_INFO, levelIn(browser, "ui"));

  EXPECT_EQ("net: off (2 processes)\n", rynctl({"log", "off", "net"}).out);
  EXPECT_EQ("all modules: off (2 processes)\n", rynctl({"log", "clear"}).out);
  EXPECT_EQ(LOG_LEVEL_ERROR, levelIn(plugin, "ui"));
  EXPECT_EQ("", ReportPort().next().names);
}

TEST(RynctlLogTest, APortNamesOneProcess) {
  ChildProcess chosen(kHost);
  const std::string port = portOfOnlyHost();
  ChildProcess other(kHost);
  EXPECT_EQ("net: on (1 process)\n", rynctl({"log", "on", "--port", port, "net"}).out);
  EXPECT_EQ(LOG_LEVEL_INFO, levelIn(chosen, "net"));
  EXPECT_EQ(LOG_LEVEL_ERROR, levelIn(other, "net"));

  const auto shown = rynctl({"log", "--port", port});
  EXPECT_EQ(2, occurrences(shown.out, "\n")) << shown.out;
  EXPECT_NE(std::string::npos, shown.out.find(pidText(chosen)));

  const auto result = rynctl({"log", "clear", "--port", "1"});
  EXPECT_EQ(3, result.exit_code);
  EXPECT_NE(std::string::npos, result.err.find("port 1 has not reported")) << result.err;
}

TEST(RynctlLogTest, AFullListIsARefusalByThePeer) {
  const ChildProcess full(kHost, {twentyModules()});
  ChildProcess roomy(kHost);
  const auto result = rynctl({"log", "errors", "m10"});
  EXPECT_EQ(1, result.exit_code);
  EXPECT_EQ("m10: errors only (1 process)\n", result.out);
  EXPECT_NE(std::string::npos, result.err.find("(" + programName() + ", pid " + pidText(full) +
                                               "): not taken, the list of 20 modules is full: m10"))
      << result.err;
  EXPECT_EQ(0, rynctl({"log", "off", "m10"}).exit_code);
}

TEST(RynctlLogTest, AProcessThatFallsSilentDoesNotAnswer) {
  FakeProcess process;
  Tool tool({"log", "on", "net", "ui"});
  EXPECT_EQ("net|ui" + std::string(1018, '\0') + '\1', process.reportUntilCommanded(""));
  const auto result = tool.result();
  EXPECT_EQ(4, result.exit_code);
  EXPECT_EQ("", result.out);
  EXPECT_NE(std::string::npos, result.err.find("has not reported since")) << result.err;
}

TEST(RynctlLogTest, AProcessThatDoesNotObeyRefuses) {
  FakeProcess process;
  Tool tool({"log", "clear"});
  EXPECT_EQ("__CLIEAR_LOG_MODULES__" + std::string(1003, '\0'), process.reportUntilCommanded("net|ui"));
  for (int i = 0; i < 3; ++i) process.report("net|ui");
  const auto result = tool.result();
  EXPECT_EQ(1, result.exit_code);
  EXPECT_EQ("", result.out);
  EXPECT_NE(std::string::npos, result.err.find("do not show the change")) << result.err;
}

TEST(RynctlLogTest, ReportsAreShownAsATableOrAsJson) {
  const ChildProcess plain(kHost);
  const std::string plain_port = portOfOnlyHost();
  const ChildProcess hostile(kHost, {"a\033[2Jb|\xff\"|net"});

  const std::string table = rynctl({"log"}).out;
  EXPECT_EQ(0, table.find("PORT ")) << table;
  EXPECT_EQ(3, occurrences(table, "\n")) << table;
  EXPECT_NE(std::string::npos, table.find(plain_port)) << table;
  EXPECT_NE(std::string::npos, table.find(pidText(plain))) << table;
  EXPECT_NE(std::string::npos, table.find("a\\x1b[2Jb, net, \xff\"")) << table;
  EXPECT_EQ(std::string::npos, table.find('\033')) << table;

  const std::string lines = rynctl({"log", "--json"}).out;
  ASSERT_EQ(2, occurrences(lines, "\n")) << lines;
  auto one = parsed(lines.substr(0, lines.find('\n')));
  auto two = parsed(lines.substr(lines.find('\n') + 1));
  if (one["pid"] != plain.pid()) one.swap(two);
  EXPECT_EQ(plain.pid(), one["pid"].asInt());
  EXPECT_EQ(plain_port, std::to_string(one["port"].asInt()));
  EXPECT_EQ(programName(), one["process"].asString());
  EXPECT_EQ(0U, one["modules"].size());
  EXPECT_TRUE(one["time"].isDouble());
  EXPECT_EQ(hostile.pid(), two["pid"].asInt());
  EXPECT_EQ("a\033[2Jb", two["modules"][0].asString());
  EXPECT_EQ("net", two["modules"][1].asString());
}

TEST(RynctlLogTest, AWatchedTableFollowsTheProcessesUntilInterrupted) {
  auto first = std::make_unique<ChildProcess>(kHost, std::vector<std::string>{"net"});
  Tool tool({"log", "--watch"});
  const auto await = [&](const std::string& what, bool net, bool ui) {
    waitUntil(what.c_str(), [&] {
      const std::string& out = tool.out();
      const auto table = out.rfind("PORT ");
      return table != std::string::npos && (out.find("  net\n", table) != std::string::npos) == net &&
             (out.find("  ui\n", table) != std::string::npos) == ui;
    });
  };
  await("the first process is shown", true, false);
  const ChildProcess second(kHost, {"ui"});
  await("both are shown", true, true);
  first.reset();
  await("the one that has gone is dropped", false, true);
  tool.signal(SIGINT);
  EXPECT_EQ(0, tool.result().exit_code);
}

TEST(RynctlLogTest, WatchedJsonPrintsEveryReport) {
  const ChildProcess host(kHost, {"net"});
  Tool tool({"log", "--watch", "--json"});
  waitUntil("two reports are printed", [&] { return occurrences(tool.out(), "\n") >= 2; });
  tool.signal(SIGTERM);
  const auto result = tool.result();
  EXPECT_EQ(0, result.exit_code);
  EXPECT_EQ(host.pid(), parsed(result.out.substr(0, result.out.find('\n')))["pid"].asInt());
}

TEST(RynctlLogTest, ColourIsForTerminalsOnly) {
  const ChildProcess host(kHost, {"net"});
  // Listening to one port ends with its first report.
  const std::vector<std::string> command = {"log", "--port", portOfOnlyHost()};
  const auto heading = [&](const std::vector<std::string>& environment) {
    Tool tool(command, environment, Tool::Output::Terminal);
    const std::string text = tool.result().out;
    return text.substr(0, text.find("PORT"));
  };
  EXPECT_EQ("\033[1m", heading({"TERM=xterm"}));
  EXPECT_EQ("", heading({"TERM=xterm", "NO_COLOR=1"}));
  EXPECT_EQ("", heading({"TERM=dumb"}));
  EXPECT_EQ(0, rynctl(command, {"TERM=xterm"}).out.find("PORT"));
}

}  // namespace
}  // namespace hbbtv_ryn::test
