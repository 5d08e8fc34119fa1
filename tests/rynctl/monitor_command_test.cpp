#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "log/report_port.h"
#include "support/child_process.h"
#include "support/deadline.h"
#include "support/output_capture.h"
#include "tool.h"

namespace hbbtv_ryn::test {
namespace {

bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// A browser that reports; says what the level of the trace is whenever it is asked.
const ChildRole kTracedBrowser("traced browser", [](Parent& parent) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetVisible = [](int, int, bool* visible) { *visible = true; };
  handlers.GetValue = [](int, int, int*) { throw 1; };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  zunt_log_initialize(1);
  Zunt_RYN_Browser_Initialize();
  parent.say("ready");
  for (;;) {
    parent.hear();
    parent.say(std::to_string(zunt_log_getLevel("ryn_trace")));
  }
  return 0;
});

int levelIn(ChildProcess& host) {
  host.say("level");
  return std::stoi(host.hear());
}

void awaitLevel(ChildProcess& host, int level) {
  waitUntil("the trace is switched", [&] { return levelIn(host) == level; });
}

TEST(RynctlMonitorTest, TrafficOfBothProcessesIsShownOncePerMessage) {
  if (isEmulated()) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  ChildProcess browser(kTracedBrowser);
  browser.hear();
  const std::string file = "rynctl_monitor_" + std::to_string(getpid()) + ".json";
  Tool monitor({"monitor", "--save", file});
  awaitLevel(browser, LOG_LEVEL_INFO);
  insert_modules_list("ryn_trace", 1);
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  bool visible = false;
  int value = 0;
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(1, 10, &visible));
  EXPECT_EQ(0, Zunt_RYN_Plugin_ShowApp(1, 10));
  EXPECT_EQ(-1, Zunt_RYN_Plugin_GetValue(1, 10, &value));
  waitUntil("all is shown", [&] { return holds(monitor.out(), "NO ANSWER"); });
  monitor.signal(SIGINT);
  const ToolResult result = monitor.result();
  clear_modules_list();
  Zunt_RYN_Plugin_Finalize();

  EXPECT_EQ(0, result.exit_code);
  EXPECT_TRUE(holds(result.err, "5 messages, 0 lost\n")) << result.err;
  EXPECT_EQ(6, occurrences(result.out, "\n")) << result.out;
  EXPECT_EQ(1, occurrences(result.out, "-> browser  GetVisible                      appid=1 orgid=10\n"))
      << result.out;
  EXPECT_EQ(1,
            occurrences(result.out, "-> plug-in  GetVisible answer               visible=1  (in flight "))
      << result.out;
  EXPECT_EQ(1, occurrences(result.out, ", in the handler ")) << result.out;
  EXPECT_EQ(1, occurrences(result.out, "-> browser  ShowApp                         appid=1 orgid=10\n"))
      << result.out;
  EXPECT_TRUE(holds(result.out, "DROPPED: threw by rynctl_test (" + std::to_string(browser.pid()) + ")"))
      << result.out;

  std::ifstream saved(file);
  int lines = 0;
  for (std::string line; std::getline(saved, line); ++lines) {
    Json::Value event;
    ASSERT_TRUE(Json::Reader().parse(line, event)) << line;
    EXPECT_EQ("0x92101081", event["queue"].asString());
  }
  EXPECT_EQ(4 + 2 + 4, lines);
  std::remove(file.c_str());

  awaitLevel(browser, LOG_LEVEL_ERROR);
}

/// Traces of a process that does not exist.
class ForgedTraces {
 public:
  ForgedTraces() : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~ForgedTraces() { close(m_socket); }
  ForgedTraces(const ForgedTraces&) = delete;
  ForgedTraces& operator=(const ForgedTraces&) = delete;

  void send(const std::string& bytes) const {
    const sockaddr_in port = ReportPort::loopback(54322);
    ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
              sendto(m_socket, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&port),
                     sizeof port));
  }
  void trace(int sequence, const std::string& fields, const std::string& text = "{}") const {
    send("ryn-trace 1 pid=999999 tid=1 seq=" + std::to_string(sequence) +
         " time=1700000000.000001 queue=0x92101081 length=" + std::to_string(text.size()) + ' ' + fields +
         '\n' + text);
  }

 private:
  int m_socket;
};

/// Whether both ports of a monitor are taken, by whomever.
bool isListening() {
  std::ifstream table("/proc/net/udp");
  const std::string sockets(std::istreambuf_iterator<char>(table), {});
  return holds(sockets, ":D431 ") && holds(sockets, ":D432 ");
}

class ForgedTest : public testing::Test {
 protected:
  /// Runs the monitor over the traces and returns what it printed.
  template <typename Send>
  ToolResult shown(std::vector<std::string> options, Send send) {
    options.insert(options.begin(), "monitor");
    Tool monitor(options);
    waitUntil("the monitor listens", &isListening);
    send();
    traces.trace(90, "way=out kind=oneway code=0 drop=not-sent", "end");
    waitUntil("the last trace is shown", [&] { return holds(monitor.out(), "end"); });
    monitor.signal(SIGTERM);
    return monitor.result();
  }

  ForgedTraces traces;
};

TEST_F(ForgedTest, GapsAreCountedAsLostAndGarbageIsPassedOver) {
  const ToolResult result = shown({}, [&] {
    traces.trace(80, "way=out kind=oneway code=212");
    traces.trace(83, "way=out kind=oneway code=213");
    traces.trace(82, "way=out kind=oneway code=211");  // passed by another thread's
    traces.send("garbage");
    traces.send("ryn-trace 1 pid=x seq=84\n{}");
    traces.trace(84, "way=out kind=oneway code=214 unknown=field", "\033[2Jnot json");
    traces.trace(85, "way=in kind=reply code=777", "{\"deep\":[1]}");
  });
  EXPECT_TRUE(holds(result.err, "5 messages, 5 lost\n")) << result.err;  // 81 and 86 to 89
  EXPECT_TRUE(holds(result.out, "ActivateInput                   \\x1b[2Jnot json\n")) << result.out;
  EXPECT_TRUE(holds(result.out, "code 777")) << result.out;
  EXPECT_EQ(6, occurrences(result.out, "\n")) << result.out;
}

TEST_F(ForgedTest, FiltersChooseByTimeErrorAndName) {
  const auto send = [&] {
    traces.trace(1, "way=in kind=reply code=216 waited=900");
    traces.trace(2, "way=in kind=reply code=218 waited=3000");
    traces.trace(3, "way=out kind=reply code=222 handling=4000");
    traces.trace(4, "way=in kind=failure code=220 result=-1");
  };
  EXPECT_EQ(3 + 1, occurrences(shown({"--slow", "2.5", "--errors"}, send).out, "\n"));
  const std::string errors = shown({"--errors"}, send).out;
  EXPECT_TRUE(holds(errors, "NO ANSWER, result -1 by pid 999999, gone")) << errors;
  EXPECT_EQ(1 + 1, occurrences(errors, "\n")) << errors;
}

TEST_F(ForgedTest, AnAnswerWhoseArrivalIsNotTracedIsShownAlone) {
  const std::string out = shown({}, [&] {
                            traces.trace(1, "way=out kind=request code=216", "{\"appid\":1}");
                            traces.trace(2, "way=in kind=request code=216", "{\"appid\":1}");
                            traces.trace(3, "way=out kind=reply code=216 handling=17", "{\"visible\":1}");
                          }).out;
  EXPECT_TRUE(holds(out, "visible=1  (in the handler 17 us)")) << out;
  EXPECT_EQ(3, occurrences(out, "\n")) << out;
}

TEST(RynctlMonitorRefusalTest, OneMonitorAtATime) {
  if (isEmulated()) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  const Tool first({"monitor"});
  waitUntil("it listens", &isListening);
  const ToolResult second = rynctl({"monitor"});
  EXPECT_EQ(3, second.exit_code);
  EXPECT_TRUE(holds(second.err, "UDP port 54322 is taken by rynctl (")) << second.err;
}

}  // namespace
}  // namespace hbbtv_ryn::test
