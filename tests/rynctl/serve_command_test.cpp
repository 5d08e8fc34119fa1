#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "support/deadline.h"
#include "support/raw_peer.h"
#include "tool.h"

namespace hbbtv_ryn::test {
namespace {

bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// The lines without their times.
std::vector<std::string> deeds(const std::string& out) {
  std::vector<std::string> result;
  std::size_t start = 0;
  for (auto end = out.find('\n'); end != std::string::npos; end = out.find('\n', start)) {
    constexpr std::size_t kTime = 17;  // "14:02:11.123456  "
    const std::string line = out.substr(start, end - start);
    EXPECT_EQ(':', line[2]) << line;
    result.push_back(line.substr(kTime));
    start = end + 1;
  }
  return result;
}

class ScriptFile {
 public:
  explicit ScriptFile(const std::string& text)
      : m_name("rynctl_script_" + std::to_string(getpid()) + ".json") {
    std::ofstream(m_name) << text;
  }
  ~ScriptFile() { std::remove(m_name.c_str()); }
  ScriptFile(const ScriptFile&) = delete;
  ScriptFile& operator=(const ScriptFile&) = delete;
  const std::string& name() const { return m_name; }

 private:
  std::string m_name;
};

/// The tool as one side; the test process is the other.
class Served {
 public:
  explicit Served(const std::vector<std::string>& command) : m_tool(command) {
    waitUntil("it serves", [this] { return holds(m_tool.err(), "Ctrl-C ends it"); });
  }
  ~Served() {
    Zunt_RYN_Plugin_Finalize();
    Zunt_RYN_Browser_Finalize();
  }
  Served(const Served&) = delete;
  Served& operator=(const Served&) = delete;

  std::vector<std::string> await(std::size_t lines) {
    std::vector<std::string> result;
    waitUntil("the lines are printed", [&] { return (result = deeds(m_tool.out())).size() >= lines; });
    return result;
  }
  Tool& tool() { return m_tool; }

 private:
  Tool m_tool;
};

TEST(RynctlListenTest, PrintsWhatTheBrowserTellsAndAnswersWhatItAsks) {
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  Served listener({"listen", "-n", "4", "--supported"});
  Zunt_RYN_Browser_SendKey(1, 10, ZuntKey{403}, ZuntKeyEventType{1});
  listener.await(1);
  bool blocked = true;
  bool supported = false;
  EXPECT_EQ(0, Zunt_RYN_Browser_IsParentalRatingBlocked(1, 10, &blocked));
  EXPECT_EQ(0, Zunt_RYN_Browser_IsObjectSupported("a\033b", &supported));
  EXPECT_FALSE(blocked);
  EXPECT_TRUE(supported);
  RawQueue(static_cast<key_t>(0x92101091U)).sendMessage(kRawOneWay, "no\x07thing");
  const ToolResult result = listener.tool().result();
  EXPECT_EQ(0, result.exit_code) << result.err;
  EXPECT_EQ(
      (std::vector<std::string>{"SendKey appid=1 orgid=10 key=403 keytype=1",
                                "IsParentalRatingBlocked appid=1 orgid=10  -> blocked=0",
                                "IsObjectSupported mtype=a\\x1bb  -> supported=1", "?  no\\x07thing"}),
      deeds(result.out));
}

TEST(RynctlListenTest, WhatWaitedBeforeIsPrintedToo) {
  RawQueue(static_cast<key_t>(0x92101091U)).sendMessage(kRawOneWay, R"({"t":270})");
  EXPECT_EQ(std::vector<std::string>{"Get_Configuration"}, deeds(rynctl({"listen", "-n", "1"}).out));
}

TEST(RynctlListenTest, NamesChooseWhatIsPrinted) {
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  Served listener({"listen", "SendAppLoaded", "-n", "1"});
  Zunt_RYN_Browser_SendAppUnloaded(1, 1);
  Zunt_RYN_Browser_SendAppLoaded(2, 2);
  EXPECT_EQ(std::vector<std::string>{"SendAppLoaded appid=2 orgid=2"}, deeds(listener.tool().result().out));
  EXPECT_EQ(2, rynctl({"listen", "GetVisible"}).exit_code);
}

TEST(RynctlServeTest, TheBrowserKeepsApplicationsAndReportsThem) {
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  Served browser({"serve", "browser"});
  int appid = 0;
  int orgid = 0;
  ASSERT_EQ(0, Zunt_RYN_Plugin_CreateApp(0, 0, "http://a.example/?org=10", false, false, &appid, &orgid));
  EXPECT_EQ(10, orgid);
  int child = 0;
  ASSERT_EQ(0, Zunt_RYN_Plugin_CreateApp(appid, orgid, "x", true, false, &child, &orgid));
  browser.await(6);  // two requests, four events

  bool visible = true;
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(appid, orgid, &visible));
  EXPECT_FALSE(visible);
  EXPECT_EQ(0, Zunt_RYN_Plugin_ShowApp(appid, orgid));
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(appid, orgid, &visible));
  EXPECT_TRUE(visible);
  const int keys[] = {403, 404};
  EXPECT_EQ(0, Zunt_RYN_Plugin_SetValue(appid, orgid, 31, keys, 2));
  int other[20] = {};
  int count = 0;
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetOtherKeys(appid, orgid, other, &count));
  EXPECT_EQ(2, count);
  EXPECT_EQ(404, other[1]);
  int ids[512] = {};
  int orgids[512] = {};
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetChildApps(appid, orgid, ids, orgids, &count));
  EXPECT_EQ(1, count);
  EXPECT_EQ(child, ids[0]);
  EXPECT_EQ(0, Zunt_RYN_Plugin_OpApp_RequestForeground());
  std::string status;
  EXPECT_EQ(0, Zunt_RYN_Plugin_OpApp_GetStatus(status));
  EXPECT_EQ("foreground", status);

  EXPECT_EQ(0, Zunt_RYN_Plugin_DestroyApp(appid, orgid));
  const auto lines = browser.await(19);
  EXPECT_EQ(
      "CreateApp appid=0 orgid=0 url=\"http://a.example/?org=10\" child=0 opapp=0  -> appid=1 orgid=10",
      lines[0]);
  EXPECT_EQ("sends SendAppUnloaded appid=1 orgid=10", lines.back());
  browser.tool().signal(SIGTERM);
  EXPECT_EQ(0, browser.tool().result().exit_code);
}

TEST(RynctlServeTest, AScriptSaysWhatIsAnsweredWhenAndWhatIsSent) {
  const ScriptFile script(R"({
    "messages": {
      "GetVisible": [{"reply": {"visible": 1}}, {"failure": true}, {"reply": {"visible": 1}, "delay_ms": 150}],
      "GetCurrentApp": {"reply": {"orgid": 5},
                        "then": [{"send": "SendAppLoaded", "members": {"appid": 1, "orgid": 5}},
                                 {"send": "IsObjectSupported", "members": {"mtype": "x"}}]},
      "GetValue": {"silence": true}
    },
    "events": [{"send": "Get_Configuration", "every_ms": 1, "times": 2}]})");
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  Served browser({"serve", "browser", "--script", script.name()});
  browser.await(2);
  bool visible = false;
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(1, 5, &visible));
  EXPECT_TRUE(visible);
  EXPECT_EQ(-1, Zunt_RYN_Plugin_GetVisible(1, 5, &visible));
  for (int i = 0; i < 2; ++i) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(1, 5, &visible));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
  }
  int appid = 3;
  int orgid = 3;
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetCurrentApp(&appid, &orgid));
  EXPECT_EQ(0, appid);  // not in the script
  EXPECT_EQ(5, orgid);
  const auto lines = browser.await(9);
  EXPECT_EQ((std::vector<std::string>{
                "sends Get_Configuration", "sends Get_Configuration",
                "GetVisible appid=1 orgid=5  -> visible=1", "GetVisible appid=1 orgid=5  -> no answer",
                "GetVisible appid=1 orgid=5  -> visible=1", "GetVisible appid=1 orgid=5  -> visible=1",
                "GetCurrentApp  -> appid=0 orgid=5", "sends SendAppLoaded appid=1 orgid=5"}),
            std::vector<std::string>(lines.begin(), lines.begin() + 8));
  EXPECT_EQ(0, lines[8].find("sends IsObjectSupported mtype=x  -> supported=0  (")) << lines[8];

  int value = 0;
  Concurrently asking([&] { return Zunt_RYN_Plugin_GetValue(1, 5, &value); });
  browser.await(10);
  EXPECT_FALSE(asking.returned());
  browser.tool().signal(SIGINT);
  EXPECT_EQ(0, browser.tool().result().exit_code);
  EXPECT_EQ(-1, asking.result());
}

TEST(RynctlServeTest, AWrongScriptIsRefusedWithThePlace) {
  const std::vector<std::pair<std::string, std::string>> wrong = {
      {"{", "no JSON object"},
      {"{\"message\": {}}", "nothing is called message here; there are events, messages"},
      {"{\"messages\": {\"Get\": {}}}", "messages.Get: no message is called Get"},
      {"{\"messages\": {\"SendKey\": {}}}", "messages.SendKey: not received by the browser"},
      {"{\"messages\": {\"GetVisible\": []}}", "messages.GetVisible: at least one response"},
      {"{\"messages\": {\"GetVisible\": [{}, {\"reply\": {\"visible\": 2}}]}}",
       "messages.GetVisible[1]: visible takes 0 or 1"},
      {"{\"messages\": {\"GetVisible\": {\"failure\": true, \"silence\": true}}}", "only one of"},
      {"{\"messages\": {\"ShowApp\": {\"reply\": {}}}}", "a one-way message has no reply"},
      {"{\"messages\": {\"ShowApp\": {\"delay_ms\": -1}}}", "delay_ms takes a number"},
      {"{\"events\": [{\"send\": \"ShowApp\"}]}", "events[0]: ShowApp is not sent by the browser"},
      {"{\"events\": [{\"send\": \"SendKey\", \"members\": {}}]}", "SendKey: still needed: appid=int"},
      {"{\"events\": [{\"send\": \"Get_Configuration\", \"times\": 2}]}", "times needs every_ms"},
  };
  for (const auto& [text, reason] : wrong) {
    const ScriptFile script(text);
    const ToolResult result = rynctl({"serve", "browser", "--script", script.name()});
    EXPECT_EQ(6, result.exit_code) << text;
    EXPECT_TRUE(holds(result.err, reason)) << result.err;
  }
  EXPECT_EQ(3, rynctl({"serve", "plugin", "--script", "no such file"}).exit_code);
  EXPECT_EQ(2, rynctl({"serve", "middle"}).exit_code);
}

TEST(RynctlServeTest, TheExampleScriptIsServed) {
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  Served browser({"serve", "browser", "--script", EXAMPLE_SCRIPT});
  EXPECT_EQ(-5, Zunt_RYN_Plugin_OpApp_RequestForeground());
}

}  // namespace
}  // namespace hbbtv_ryn::test
