#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <optional>
#include <regex>
#include <string>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "support/output_capture.h"
#include "tool.h"
#include "tools/support/deadline.h"
#include "tools/support/raw_peer.h"
#include "tools/support/sanitizers.h"

namespace hbbtv_ryn::test {
namespace {

const Words kGetVisible = {"call", "GetVisible", "appid=1", "orgid=10"};
const Words kShowApp = {"send", "ShowApp", "appid=1", "orgid=10"};

Words with(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

TEST(RynctlTest, WhatIsWrongWithTheCommandLineIsSaidAndNothingIsSent) {
  RawPeer browser(kRequestKey);
  Words modules = {"log", "on"};
  for (int i = 0; i < 21; ++i) modules.push_back(std::to_string(i));
  const struct {
    Words arguments;
    int exit_code;
    const char* reason;
  } refusals[] = {
      {{}, 2, "Usage: rynctl"},
      {{"bogus"}, 2, "bogus"},
      {{"list", "Nothing*"}, 1, "no message matches Nothing*"},
      {{"describe", "Visible"},
       2,
       "no message is called Visible; did you mean GetVisible? 'rynctl list' shows"},
      {{"describe", "Zz"}, 2, "no message is called Zz; 'rynctl list' shows them all"},
      {{"peek", "request"}, 2, "request"},
      {{"reset", "--all", "--stale"}, 2, "--stale"},
      {{"serve", "middle"}, 2, "middle"},
      {{"listen", "GetVisible"}, 2, "goes to the browser"},
      {{"call", "ShowApp", "appid=1", "orgid=2"}, 2, "use 'rynctl send ShowApp'"},
      {{"call", "GetVisible", "appid"}, 2, "key=value is expected, not appid"},
      {{"call", "GetVisible", "appid=1"}, 6, "still needed: orgid=int"},
      {{"call", "GetVisible", "appid=1", "orgid=2147483648"}, 6, "orgid takes an integer of 32 bits"},
      {{"call", "GetVisible", "appid=1", "orgid=2", "k0=3"}, 6, "no member is called k0; it has appid"},
      {{"call", "GetVisible", "--json", R"({"appid":"1","orgid":2})"}, 6, "appid takes an integer"},
      {{"call", "GetVisible", "--json", R"({"t":217,"appid":1,"orgid":2})"}, 6, "its code is 216, not 217"},
      {{"call", "OpApp_SetStatus", "status=" + std::string(17000, 's')}, 5, "16384 are the most"},
      {{"send", "ActivateInput", "appid=1", "orgid=2", "focus=yes"}, 6, "focus takes 0 or 1"},
      {{"send", "SetValue", "appid=1", "orgid=2", "value=3"}, 6, "still needed: keynum"},
      {{"log", "on", "a|b"}, 2, "cannot hold '|'"},
      {{"log", "off", std::string(33, 'x')}, 2, "1 to 32 bytes"},
      {{"log", "errors", "__CLIEAR_LOG_MODULES__"}, 2, "reserved"},
      {{"log", "--port", "65536"}, 2, "--port"},
      {modules, 2, "20 modules"},
  };
  for (const auto& refusal : refusals) expectEnd(refusal.arguments, refusal.exit_code, refusal.reason);
  EXPECT_EQ(0U, browser.requests.depth());
}

TEST(RynctlTest, WhatTheSystemRefusesIsNoMissingPeer) {
  if (kEmulated || !kFewDescriptorsSuffice) GTEST_SKIP() << "more descriptors are needed";
  expectEnd(Tool({"listen"}, "exec 3>&- 4>&- 5>&- 6>&-; ulimit -n 4;").result(), 7,
            "cannot wait for signals");
}

TEST(RynctlListTest, MessagesAreFoundByPatternAndDescribedAsTheyAreSent) {
  EXPECT_EQ(
      "CODE  NAME         TO       DELIVERY     KEYS              REPLY KEYS\n"
      "235   GetKeyIcon   browser  synchronous  appid orgid code  pointer\n"
      "237   GetKeyLabel  browser  synchronous  appid orgid code  label\n",
      rynctl({"list", "getkey*"}).out);
  EXPECT_TRUE(holds(rynctl({"describe", "234"}).out,
                    "rynctl send SetValue appid=1 orgid=10 value=31 keynum=2 k0=403 k1=404\n"));
}

TEST(RynctlCallTest, TheAnswerIsPrintedOnOneLineAndTheTimeBesideIt) {
  const Host browser("browser");
  const ToolResult result =
      rynctl({"call", "getvisible", "--json", R"({"t":216,"appid":9,"orgid":10})", "appid=0x1"});
  EXPECT_EQ("{\"t\":217,\"visible\":1}\n", result.out);
  EXPECT_EQ(0, result.err.find("answered in ")) << result.err;
  EXPECT_EQ(0, result.exit_code);
  expectEnd({"call", "GetKeyLabel", "appid=1", "orgid=2", "code=3"}, 1, "has no answer to GetKeyLabel");
}

TEST(RynctlCallTest, ThePluginIsAskedAsByTheBrowser) {
  RawPeer plugin(kQueryKey);
  const auto answered = [&](const std::string& answer) {
    Tool tool({"call", "IsObjectSupported", "mtype=video/mp4 \"x\""});
    EXPECT_EQ("video/mp4 \"x\"", parsed(plugin.nextRequest().text)["mtype"].asString());
    plugin.reply(answer);
    return tool.result();
  };
  EXPECT_EQ("{\"supported\":1}\n", answered("{\"supported\":1}").out);
  expectEnd(answered("oo\033ps"), 6, "no JSON object: oo\\x1bps");
}

TEST(RynctlCallTest, PeersThatAreMissingDieOrHangAreToldApart) {
  const Words hanging = {"call", "GetValue", "appid=1", "orgid=2", "--timeout"};
  expectEnd(kGetVisible, 3, "no browser process: none has run");
  expectEnd({"send", "Get_Configuration"}, 3, "'rynctl serve plugin'");
  {
    const Host browser("browser");
    Tool tool(with(hanging, {"0"}));
    waitUntil("the request is taken", [] { return RawQueue(kRequestKey).hasBeenReceivedFrom(); });
    browser.signal(SIGKILL);
    expectEnd(tool.result(), 3, "went away before it answered");
  }
  expectEnd(kGetVisible, 3, "the last one is gone");
  expectEnd(kShowApp, 3, "the last one is gone");
  const Host next("browser");
  expectEnd(with(hanging, {"0.1"}), 4, "lives, but has not answered");
}

TEST(RynctlSendTest, MessagesWaitForALaterPeerUntilTheQueueIsFull) {
  RawQueue requests(kRequestKey);
  const Words set_value = {"send", "SetValue", "appid=1", "orgid=2", "value=16", "k0=403", "k1=404"};
  expectEnd(with(set_value, {"--repeat", "3", "--force"}), 0, "sent 3 messages\n");
  EXPECT_EQ(3U, requests.depth());
  const Json::Value sent = parsed(requests.takeMessage().text);
  EXPECT_EQ(2, sent["keynum"].asInt());
  EXPECT_EQ(404, sent["k1"].asInt());

  Tool slow(with(set_value, {"--repeat", "2", "--every", "3600000", "--force"}));
  waitUntil("the first is sent", [&] { return requests.depth() > 2; });
  slow.signal(SIGINT);
  expectEnd(slow.result(), 0, "sent 1 message\n");
  while (requests.trySend(rawRecord(IPC_KIND_ONEWAY, "x"))) continue;
  expectEnd(with(kShowApp, {"--force"}), 5, "the queue 'requests' is full: ");
}

TEST(RynctlPlaceTest, ALivingProcessKeepsItsPlaceUnlessForced) {
  if (kEmulated) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  const Host browser("browser");
  {
    const Host plugin("plugin");
    for (const Words& command : {kGetVisible, kShowApp, Words{"listen"}, Words{"serve", "plugin"}}) {
      expectEnd(command, 3, "is held by " + plugin.text());
    }
    EXPECT_EQ(0, rynctl(with(kGetVisible, {"--force"})).exit_code);
  }
  expectEnd({"serve", "browser"}, 3, "is held by " + browser.text());
  const Tool listener({"listen"});
  waitUntil("it listens", [&] { return holds(listener.err(), "listening"); });
  EXPECT_EQ(0, rynctl(kGetVisible).exit_code);
  expectEnd({"listen"}, 3, "is held by rynctl (");
  // Who has sent last holds the client's place while it lives: now this process.
  RawQueue(kRequestKey).sendMessage(IPC_KIND_ONEWAY, R"({"t":212,"appid":1,"orgid":2})");
  expectEnd(kGetVisible, 3, "the plug-in's place on the queue 'requests' is held by rynctl_test");
}

/// The tool is one side, the test process is the other.
class RynctlServeTest : public testing::Test {
 protected:
  ~RynctlServeTest() override {
    Zunt_RYN_Plugin_Finalize();
    Zunt_RYN_Browser_Finalize();
    std::remove(script_.c_str());
  }

  void start(const Words& command) {
    tool.emplace(command);
    waitUntil("it serves", [this] { return holds(tool->err(), "Ctrl-C ends it"); });
  }
  const std::string& script(const char* text) {
    std::ofstream(script_) << text;
    return script_;
  }
  /// The lines without their times, as soon as there are so many.
  std::string await(int lines) {
    waitUntil("the lines are printed", [&] { return occurrences(tool->out(), "\n") >= lines; });
    return std::regex_replace(tool->out(), std::regex("[0-9:]{8}[.][0-9]{6}  "), "");
  }

  std::optional<Tool> tool;

 private:
  const std::string script_ = "rynctl_script_" + std::to_string(getpid()) + ".json";
};

TEST_F(RynctlServeTest, AListenerPrintsWhatTheBrowserTellsAndAnswersWhatItAsks) {
  RawQueue notifications(kNotificationKey);
  notifications.sendMessage(IPC_KIND_ONEWAY, R"({"t":270})");  // nobody reads it yet
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  start({"listen", "-n", "4", "--supported"});
  bool blocked = true;
  bool supported = false;
  await(1);
  EXPECT_EQ(0, Zunt_RYN_Browser_IsParentalRatingBlocked(1, 10, &blocked));
  EXPECT_EQ(0, Zunt_RYN_Browser_IsObjectSupported("a\033b", &supported));
  EXPECT_FALSE(blocked);
  EXPECT_TRUE(supported);
  notifications.sendMessage(IPC_KIND_ONEWAY, "no\x07thing");
  EXPECT_EQ(
      "Get_Configuration\n"
      "IsParentalRatingBlocked appid=1 orgid=10  -> blocked=0\n"
      "IsObjectSupported mtype=a\\x1bb  -> supported=1\n"
      "?  no\\x07thing\n",
      await(4));
  EXPECT_EQ(0, tool->result().exit_code);

  Zunt_RYN_Browser_Get_Configuration();
  notifications.sendMessage(IPC_KIND_ONEWAY, "nothing");
  Zunt_RYN_Browser_Handle_BroadcastService(true);
  start({"listen", "handle_broadcastservice", "-n", "1"});
  EXPECT_EQ("Handle_BroadcastService bValue=1\n", await(1));
  EXPECT_EQ(0, tool->result().exit_code);
}

TEST_F(RynctlServeTest, TheBrowserKeepsApplicationsAndReportsThem) {
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  start({"serve", "browser"});
  int appid = 0;
  int orgid = 0;
  ASSERT_EQ(0, Zunt_RYN_Plugin_CreateApp(0, 0, "http://a.example/?org=10", false, false, &appid, &orgid));
  await(3);
  bool visible = false;
  EXPECT_EQ(0, Zunt_RYN_Plugin_ShowApp(appid, orgid));
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(appid, orgid, &visible));
  EXPECT_TRUE(visible);
  EXPECT_EQ(0, Zunt_RYN_Plugin_DestroyApp(appid, orgid));
  EXPECT_EQ(
      "CreateApp appid=0 orgid=0 url=\"http://a.example/?org=10\" child=0 opapp=0  -> appid=1 orgid=10\n"
      "sends SendAppLoaded appid=1 orgid=10\nsends SendTopMost appid=1 orgid=10 topmost=true\n"
      "ShowApp appid=1 orgid=10\nGetVisible appid=1 orgid=10  -> visible=1\n"
      "DestroyApp appid=1 orgid=10\n"
      "sends SendTopMost appid=1 orgid=10 topmost=false\nsends SendAppUnloaded appid=1 orgid=10\n",
      await(8));
}

TEST_F(RynctlServeTest, AScriptSaysWhatIsAnsweredWhenAndWhatIsSent) {
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  start({"serve", "browser", "--script", script(R"({
    "messages": {
      "GetVisible": [{"failure": true}, {"reply": {"visible": 1}, "delay_ms": 150}],
      "GetCurrentApp": {"reply": {"orgid": 5},
                        "then": [{"send": "IsObjectSupported", "members": {"mtype": "x"}}]},
      "GetValue": {"silence": true}
    },
    "events": [{"send": "Get_Configuration", "every_ms": 1, "times": 2}]})")});
  await(2);
  bool visible = false;
  EXPECT_EQ(-1, Zunt_RYN_Plugin_GetVisible(1, 5, &visible));
  for (int i = 0; i < 2; ++i) {  // the last answer stays
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(1, 5, &visible));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
  }
  int appid = 3;
  int orgid = 3;
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetCurrentApp(&appid, &orgid));
  const std::string expected =
      "sends Get_Configuration\nsends Get_Configuration\n"
      "GetVisible appid=1 orgid=5  -> no answer\n"
      "GetVisible appid=1 orgid=5  -> visible=1\nGetVisible appid=1 orgid=5  -> visible=1\n"
      "GetCurrentApp  -> appid=0 orgid=5\n"  // the first is not in the script
      "sends IsObjectSupported mtype=x  -> supported=0  (";
  EXPECT_EQ(expected, await(7).substr(0, expected.size()));

  int value = 0;
  Concurrently asking([&] { return Zunt_RYN_Plugin_GetValue(1, 5, &value); });
  await(8);
  EXPECT_FALSE(asking.returned());
  tool->signal(SIGINT);
  EXPECT_EQ(0, tool->result().exit_code);
  EXPECT_EQ(-1, asking.result());
}

TEST_F(RynctlServeTest, AWrongScriptIsRefusedWithThePlaceAndTheExampleIsNot) {
  const struct {
    const char* text;
    const char* reason;
  } scripts[] = {
      {R"({)", "no JSON object"},
      {R"({"message": {}})", "nothing is called message here; there are events, messages"},
      {R"({"messages": {"SendKey": {}}})", "messages.SendKey: not received by the browser"},
      {R"({"messages": {"GetVisible": []}})", "messages.GetVisible: at least one response"},
      {R"({"messages": {"GetVisible": [{}, {"reply": {"visible": 2}}]}})", "GetVisible[1]: visible takes"},
      {R"({"messages": {"GetVisible": {"failure": true, "silence": true}}})", "only one of"},
      {R"({"messages": {"ShowApp": {"delay_ms": -1}}})", "delay_ms takes a number"},
      {R"({"events": [{"send": "ShowApp"}]})", "events[0]: ShowApp is not sent by the browser"},
      {R"({"events": [{"send": "SendKey", "members": {}}]})", "SendKey: still needed: appid=int"},
      {R"({"events": [{"send": "Get_Configuration", "times": 2}]})", "times needs every_ms"},
  };
  for (const auto& each : scripts) {
    expectEnd({"serve", "browser", "--script", script(each.text)}, 6, each.reason);
  }
  expectEnd({"serve", "plugin", "--script", "no such file"}, 3, "cannot be read");
  start({"serve", "browser", "--script", EXAMPLE_SCRIPT});
}

}  // namespace
}  // namespace hbbtv_ryn::test
