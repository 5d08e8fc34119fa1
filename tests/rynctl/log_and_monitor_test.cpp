#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "log/loopback_socket.h"
#include "support/output_capture.h"
#include "tool.h"
#include "tools/support/deadline.h"

namespace hbbtv_ryn::test {
namespace {

void waitUntilTaken(std::uint16_t port) {
  std::ostringstream entry;
  entry << std::hex << std::uppercase << ':' << port << ' ';
  waitUntil("the tool listens", [&] {
    std::ifstream sockets("/proc/net/udp");
    return holds(std::string(std::istreambuf_iterator<char>(sockets), {}), entry.str());
  });
}

TEST(RynctlLogTest, CommandsReachEveryProcessOrTheOneThatIsNamed) {
  Host browser("browser");
  const std::string port = std::to_string(LoopbackSocket(kReportPort).next().port);
  Host plugin("plugin", "a\033[2Jb");
  EXPECT_EQ("net, ui: on (2 processes)\n", rynctl({"log", "on", "net", "ui", "net"}).out);
  EXPECT_EQ("net: errors only (1 process)\n", rynctl({"log", "errors", "--port", port, "net"}).out);
  EXPECT_EQ(LOG_LEVEL_ERROR, browser.levelOf("net"));
  EXPECT_EQ(LOG_LEVEL_INFO, plugin.levelOf("net"));
  EXPECT_EQ("net: off (2 processes)\n", rynctl({"log", "off", "net"}).out);
  const std::string table = rynctl({"log"}).out;
  EXPECT_TRUE(holds(table, "  ui\n")) << table;
  EXPECT_TRUE(holds(table, "  a\\x1b[2Jb, ui\n")) << table;
  EXPECT_EQ("all modules: off (2 processes)\n", rynctl({"log", "clear"}).out);
  EXPECT_EQ("", LoopbackSocket(kReportPort).next().bytes);
  expectEnd({"log", "clear", "--port", "1"}, 3, "no process on port 1 has reported");
}

TEST(RynctlLogTest, WatchingGoesOnWithTheProcessesThatCome) {
  const Host browser("browser", "net");
  Tool watch({"log", "--watch"});
  waitUntil("the first is shown", [&] { return holds(watch.out(), "net"); });
  const Host plugin("plugin", "ui");
  waitUntil("the second is shown", [&] { return holds(watch.out(), "ui"); });
  watch.signal(SIGINT);
  EXPECT_EQ(0, watch.result().exit_code);
}

TEST(RynctlLogTest, AProcessThatIsMissingOrDoesNotObeyIsSaid) {
  expectEnd({"log"}, 3, "no process has reported within 3 seconds");
  const auto answered = [](const Words& command, const std::string& datagram, int reports) {
    LoopbackSocket process;
    Tool tool(command);
    waitUntilTaken(kReportPort);
    process.send(kReportPort, "net|ui");
    EXPECT_EQ(datagram, process.next().bytes);
    for (int i = 0; i < reports; ++i) process.send(kReportPort, "net|ui");
    return tool.result();
  };
  expectEnd(answered({"log", "on", "net", "x"}, "net|x" + std::string(1019, '\0') + '\1', 0), 4,
            "has not reported since");
  expectEnd(answered({"log", "clear"}, "__CLIEAR_LOG_MODULES__" + std::string(1003, '\0'), 3), 1,
            "do not show the change");
  const Host full("browser", "0|1|2|3|4|5|6|7|8|9|a|b|c|d|e|f|g|h|i|j");
  expectEnd({"log", "errors", "0"}, 1, "not taken, the list of 20 modules is full: 0");
  const LoopbackSocket other_tool(kReportPort);
  expectEnd({"log", "clear"}, 3, "(" + std::to_string(getpid()) + "); only one at a time");
}

TEST(RynctlMonitorTest, TrafficOfBothProcessesIsShownOncePerMessage) {
  if (kEmulated) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  Host browser("browser");
  const auto awaitLevel = [&](int level) {
    waitUntil("the trace is switched", [&] { return browser.levelOf("ryn_trace") == level; });
  };
  Tool monitor({"monitor"});
  awaitLevel(LOG_LEVEL_INFO);
  expectEnd({"monitor"}, 3, "UDP port 54322 is taken by rynctl (");
  insert_modules_list("ryn_trace", 1);
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  bool visible = false;
  std::string label;
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(1, 10, &visible));
  EXPECT_EQ(0, Zunt_RYN_Plugin_ShowApp(1, 10));
  EXPECT_EQ(-1, Zunt_RYN_Plugin_GetKeyLabel(1, 10, 403, label));
  waitUntil("all is shown", [&] { return holds(monitor.out(), "NO ANSWER"); });
  monitor.signal(SIGINT);
  const ToolResult result = monitor.result();
  clear_modules_list();
  Zunt_RYN_Plugin_Finalize();

  EXPECT_EQ(0, result.exit_code);
  EXPECT_TRUE(holds(result.err, "5 messages, 0 lost\n")) << result.err;
  EXPECT_EQ(6, occurrences(result.out, "\n")) << result.out;
  for (const char* expected : {"-> browser  GetVisible                      appid=1 orgid=10\n",
                               "-> plug-in  GetVisible answer               visible=1  (in flight ",
                               "-> browser  ShowApp  ", "DROPPED: threw by rynctl_test ("}) {
    EXPECT_EQ(1, occurrences(result.out, expected)) << expected << "\n" << result.out;
  }
  EXPECT_EQ(2, occurrences(result.out, ", in the handler ")) << result.out;
  awaitLevel(LOG_LEVEL_ERROR);
}

/// Traces of a process that does not exist.
class ForgedTracesTest : public testing::Test {
 protected:
  void trace(int sequence, const std::string& fields, const std::string& text = "{}") {
    traced.send(kTracePort, "ryn-trace 1 pid=999999 tid=1 seq=" + std::to_string(sequence) +
                                " time=1700000000.000001 queue=0x92101081 length=" +
                                std::to_string(text.size()) + ' ' + fields + '\n' + text);
  }

  /// What the monitor prints of the traces.
  template <typename Send>
  ToolResult shown(const Words& arguments, Send send) {
    Tool monitor(arguments);
    waitUntilTaken(kTracePort);
    send();
    trace(90, "way=out kind=oneway code=216 drop=not-sent", "end");
    waitUntil("the last trace is shown", [&] { return holds(monitor.out(), "end"); });
    monitor.signal(SIGTERM);
    return monitor.result();
  }

  LoopbackSocket traced;
};

TEST_F(ForgedTracesTest, GapsAreCountedAsLostAndGarbageIsPassedOver) {
  const ToolResult result = shown({"monitor"}, [&] {
    trace(80, "way=out kind=oneway code=212");
    trace(83, "way=out kind=request code=216", "{\"appid\":1}");
    trace(82, "way=in kind=request code=216", "{\"appid\":1}");  // passed by another thread's
    traced.send(kTracePort, "garbage");
    traced.send(kTracePort, "ryn-trace 1 pid=x seq=84\n{}");
    trace(84, "way=out kind=oneway code=214 time=9223372036854775807.0", "later than can be counted");
    trace(84, "way=out kind=oneway code=214 unknown=field", "\033[2Jnot json");
    trace(85, "way=in kind=reply code=777", "{\"deep\":[1]}");
    // Its arrival is not traced.
    trace(86, "way=out kind=reply code=216 handling=17", "{\"visible\":1}");
  });
  EXPECT_TRUE(holds(result.err, "5 messages, 4 lost\n")) << result.err;  // 81 and 87 to 89
  EXPECT_EQ(6, occurrences(result.out, "\n")) << result.out;
  for (const char* expected : {"ActivateInput                   \\x1b[2Jnot json\n", "code 777",
                               "visible=1  (in the handler 17 us)"}) {
    EXPECT_TRUE(holds(result.out, expected)) << expected << "\n" << result.out;
  }
}

TEST_F(ForgedTracesTest, FiltersChooseByTimeAndError) {
  const std::string own = std::to_string(getpid());
  const std::string out = shown({"monitor", "--slow", "2.5", "--errors"}, [&] {
                            trace(1, "way=in kind=reply code=216 waited=900");
                            trace(2, "way=in kind=reply code=218 waited=3000");
                            trace(3, "way=out kind=reply code=222 handling=4000");
                            trace(4, "way=in kind=failure code=220 result=-1");
                            trace(5, "way=in kind=failure code=220 result=-2 pid=" + own);
                          }).out;
  EXPECT_TRUE(holds(out, "NO ANSWER, result -1 by pid 999999, gone")) << out;
  // This process has that id now, and had not yet at the time of the trace.
  EXPECT_TRUE(holds(out, "result -2 by pid " + own + ", gone")) << out;
  EXPECT_EQ(4 + 1, occurrences(out, "\n")) << out;
}

TEST_F(ForgedTracesTest, ThePatternChoosesWhatIsShownAndEverythingIsSaved) {
  const std::string file = "rynctl_traces_" + std::to_string(getpid()) + ".json";
  const std::string out =
      shown({"monitor", "getv*", "--save", file}, [&] {
        trace(1, "way=out kind=oneway code=212 drop=no-memory", "{\"appid\":7}");
        trace(2, "way=in kind=reply code=216 waited=900 time=4e9 pid=" + std::to_string(getpid()),
              "{\"visible\":1}");
      }).out;
  EXPECT_EQ(0, occurrences(out, "ShowApp")) << out;
  EXPECT_EQ(1, occurrences(out, "visible=1")) << out;
  std::ifstream saved(file);
  std::string line;
  std::getline(saved, line);
  const Json::Value trace = parsed(line);
  EXPECT_EQ("ShowApp", trace["name"].asString());
  EXPECT_EQ("no-memory", trace["drop"].asString());
  EXPECT_EQ(1700000000.000001, trace["time"].asDouble());
  EXPECT_EQ("{\"appid\":7}", trace["text"].asString());
  EXPECT_FALSE(trace.isMember("process"));
  std::getline(saved, line);
  if (!kEmulated) {
    EXPECT_EQ("rynctl_test", parsed(line)["process"].asString());
  }
  std::remove(file.c_str());
}

}  // namespace
}  // namespace hbbtv_ryn::test
