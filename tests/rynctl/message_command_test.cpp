#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "support/child_process.h"
#include "support/deadline.h"
#include "support/output_capture.h"
#include "support/raw_peer.h"
#include "tool.h"

namespace hbbtv_ryn::test {
namespace {

constexpr key_t kRequests = static_cast<key_t>(0x92101081U);
constexpr key_t kNotifications = static_cast<key_t>(0x92101091U);

bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// A process of either side that lives until it is told to end. A browser's GetValue never answers.
const ChildRole kHost("endpoint", [](Parent& parent) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetVisible = [](int, int, bool* visible) { *visible = true; };
  handlers.GetValue = [](int, int, int*) { pause(); };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  const bool browser = parent.argument(0) == "browser";
  const int result = browser ? Zunt_RYN_Browser_Initialize() : Zunt_RYN_Plugin_Initialize();
  parent.say("ready");
  parent.hear();
  return result;
});

struct Host : ChildProcess {
  explicit Host(const std::string& side) : ChildProcess(kHost, {side}) { hear(); }
};

/// The browser endpoint in the test process; what its handlers were told.
class Browser {
 public:
  Browser() {
    ZuntRynBrowserEventCallback handlers{};
    handlers.GetVisible = [](int appid, int orgid, bool* visible) { *visible = appid == 1 && orgid == 10; };
    handlers.GetValue = [](int, int, int*) { throw 1; };
    handlers.GetKeyLabel = [](int, int, int code, std::string& label) { label = std::to_string(code); };
    handlers.SetValue = [](int appid, int orgid, int value, const int* keys, int count) {
      std::string text = std::to_string(appid) + '/' + std::to_string(orgid) + ' ' + std::to_string(value);
      for (int i = 0; i < count; ++i) text += ' ' + std::to_string(keys[i]);
      const std::lock_guard<std::mutex> guard(lock);
      told.push_back(text);
    };
    told.clear();
    Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
    Zunt_RYN_Browser_Initialize();
  }
  ~Browser() { Zunt_RYN_Browser_Finalize(); }
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  static std::vector<std::string> waitForTold(std::size_t count) {
    std::vector<std::string> result;
    waitUntil("the browser was told", [&] {
      const std::lock_guard<std::mutex> guard(lock);
      result = told;
      return result.size() >= count;
    });
    return result;
  }

 private:
  static inline std::mutex lock;  // guards `told`
  static inline std::vector<std::string> told;
};

struct Refusal {
  std::vector<std::string> arguments;
  int exit_code;
  std::string reason;
};

void expectRefusal(const Refusal& refusal) {
  const ToolResult result = rynctl(refusal.arguments);
  EXPECT_EQ(refusal.exit_code, result.exit_code) << result.err;
  EXPECT_TRUE(holds(result.err, refusal.reason)) << result.err;
  EXPECT_EQ("", result.out);
}

TEST(RynctlCatalogueTest, MessagesAreListedAndDescribed) {
  const std::string all = rynctl({"list"}).out;
  EXPECT_EQ(0, all.find("CODE  NAME"));
  EXPECT_EQ(1 + 48, occurrences(all, "\n"));
  const std::string keys = rynctl({"list", "opapp_get*"}).out;
  EXPECT_EQ(1 + 2, occurrences(keys, "\n")) << keys;
  EXPECT_EQ(
      "{ \"code\" : 279, \"delivery\" : \"synchronous\", \"name\" : \"OpApp_GetStatus\", \"reply\" : [ { "
      "\"key\" : "
      "\"status\", \"type\" : \"string\" }, { \"key\" : \"ret\", \"type\" : \"int\" } ], \"request\" : [], "
      "\"to\" : "
      "\"browser\" }\n",
      rynctl({"list", "OpApp_GetStatus", "--json"}).out);

  const std::string described = rynctl({"describe", "setvalue"}).out;
  EXPECT_EQ(described, rynctl({"describe", "234"}).out);
  EXPECT_TRUE(holds(described, "rynctl send SetValue appid=1 orgid=10 value=31 keynum=2 k0=403 k1=404\n"));

  expectRefusal({{"list", "Nothing*"}, 1, "no message matches Nothing*"});
  expectRefusal({{"describe", "Visible"}, 2, "did you mean GetVisible?"});
  expectRefusal({{"describe", "217"}, 2, "no message is called 217"});
}

TEST(RynctlCallTest, PrintsTheAnswerOnOneLineAndTheTimeBesideIt) {
  const Browser browser;
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"call", "GetVisible", "appid=1", "orgid=0xa"},
        {"call", "216", "--json", R"({"t":216,"appid":1,"orgid":10})"},
        {"call", "getvisible", "--json", R"({"appid":9,"orgid":10})", "appid=1"}}) {
    const ToolResult result = rynctl(command);
    EXPECT_EQ("{ \"t\" : 217, \"visible\" : 1 }\n", result.out);
    EXPECT_EQ(0, result.err.find("answered in ")) << result.err;
    EXPECT_EQ(0, result.exit_code);
  }
}

TEST(RynctlCallTest, AsksThePluginAsTheBrowserWould) {
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  ZuntRynEventCallback callback;
  callback.onObjectSupported = [](const std::string& mtype, bool* supported) {
    *supported = mtype == "video/mp4 \"x\"";
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY, callback);
  EXPECT_EQ("{ \"supported\" : 1, \"t\" : 246 }\n",
            rynctl({"call", "IsObjectSupported", "mtype=video/mp4 \"x\""}).out);
  Zunt_RYN_Plugin_Finalize();
}

TEST(RynctlCallTest, WhatDoesNotFitTheCatalogueIsNeverSent) {
  RawPeer browser(kRequests);
  const std::vector<Refusal> refusals = {
      {{"call", "GetVisible", "appid=1"}, 6, "still needed: orgid=int"},
      {{"call", "GetVisible", "appid=1", "orgid=x"}, 6, "orgid takes an integer of 32 bits, not x"},
      {{"call", "GetVisible", "appid=1", "orgid=2147483648"}, 6, "orgid takes an integer"},
      {{"call", "GetVisible", "appid=1", "orgid=2", "tabid=3"},
       6,
       "no member is called tabid; it has appid"},
      {{"call", "GetVisible", "--json", R"({"appid":"1","orgid":2})"}, 6, "appid takes an integer"},
      {{"call", "GetVisible", "--json", R"({"t":217,"appid":1,"orgid":2})"}, 6, "its code is 216, not 217"},
      {{"call", "GetVisible", "--json", "{"}, 6, "no JSON object"},
      {{"call", "GetVisible", "--json", "[1]"}, 6, "an object is expected"},
      {{"call", "GetVisible", "appid"}, 2, "key=value is expected, not appid"},
      {{"call", "ShowApp", "appid=1", "orgid=2"}, 2, "use 'rynctl send ShowApp'"},
      {{"send", "GetVisible", "appid=1", "orgid=2"}, 2, "use 'rynctl call GetVisible'"},
      {{"send", "ActivateInput", "appid=1", "orgid=2", "focus=yes"},
       6,
       "focus takes 0 or 1, false or true"},
      {{"send", "SetValue", "appid=1", "orgid=2", "value=3"}, 6, "still needed: keynum"},
      {{"send", "ShowApp", "appid=1", "orgid=2", "k0=3"}, 6, "no member is called k0"},
      {{"call", "OpApp_SetStatus", "status=" + std::string(17000, 's')}, 5, "16384 are the most"},
      {{"call", "GetVisible", "appid=1", "orgid=2", "--timeout", "-1"}, 2, "--timeout"},
  };
  for (const Refusal& refusal : refusals) expectRefusal(refusal);
  EXPECT_EQ(0U, browser.requests.depth());
}

TEST(RynctlCallTest, AMissingPeerEndsWithThree) {
  expectRefusal({{"call", "GetCurrentApp"}, 3, "no browser process: none has run"});
  expectRefusal({{"send", "Get_Configuration"}, 3, "'rynctl serve plugin'"});
  Host("browser").kill();
  expectRefusal({{"call", "GetCurrentApp"}, 3, "the last one is gone"});
  expectRefusal({{"send", "ShowApp", "appid=1", "orgid=2"}, 3, "the last one is gone"});
  EXPECT_EQ(0, rynctl({"send", "ShowApp", "appid=1", "orgid=2", "--force"}).exit_code);
  EXPECT_EQ(1U, RawQueue(kRequests).depth());
}

TEST(RynctlCallTest, APeerThatLivesAndDoesNotAnswerEndsWithFour) {
  const Host browser("browser");
  expectRefusal(
      {{"call", "GetValue", "appid=1", "orgid=2", "--timeout", "0.1"}, 4, "lives, but has not answered"});
}

TEST(RynctlCallTest, APeerThatDiesWhileAskedEndsWithThree) {
  Host browser("browser");
  Tool tool({"call", "GetValue", "appid=1", "orgid=2", "--timeout", "0"});
  RawQueue requests(kRequests);
  // The client looks after its request before it can notice a death.
  waitUntil("the request is taken and looked after", [&] { return requests.depth() > 0; });
  browser.kill();
  const ToolResult result = tool.result();
  EXPECT_EQ(3, result.exit_code);
  EXPECT_TRUE(holds(result.err, "went away before it answered")) << result.err;
}

TEST(RynctlCallTest, AnAnswerThatIsNoneEndsWithOneOrSix) {
  {
    const Browser browser;
    expectRefusal({{"call", "GetValue", "appid=1", "orgid=2"}, 1, "has no answer to GetValue"});
  }
  RawPeer browser(kNotifications + 2);
  Tool tool({"call", "IsObjectSupported", "mtype=x"});
  browser.nextRequest();
  browser.reply("oo\033ps");
  const ToolResult result = tool.result();
  EXPECT_EQ(6, result.exit_code);
  EXPECT_TRUE(holds(result.err, "no JSON object: oo\\x1bps")) << result.err;
}

TEST(RynctlSendTest, MessagesArriveAsOftenAsTheyAreSent) {
  const Browser browser;
  const ToolResult result =
      rynctl({"send", "SetValue", "appid=1", "orgid=2", "value=16", "k0=403", "k1=404", "--repeat", "3"});
  EXPECT_EQ(0, result.exit_code) << result.err;
  EXPECT_EQ("sent 3 messages\n", result.err);
  EXPECT_EQ("", result.out);
  EXPECT_EQ(std::vector<std::string>(3, "1/2 16 403 404"), Browser::waitForTold(3));
  Tool endless(
      {"send", "SetValue", "appid=1", "orgid=2", "value=1", "keynum=0", "--repeat", "0", "--every", "1"});
  Browser::waitForTold(8);
  endless.signal(SIGINT);
  EXPECT_EQ(0, endless.result().exit_code);
}

TEST(RynctlSendTest, AFullQueueEndsWithFiveAndNoLineOfTheChannelOnStandardOutput) {
  RawQueue requests(kRequests);
  while (requests.trySend(rawRecord(kRawOneWay, "x"))) continue;
  expectRefusal({{"send", "ShowApp", "appid=1", "orgid=2", "--force"},
                 5,
                 "the queue 'requests' is full: 15 messages wait"});
}

TEST(RynctlPlaceTest, ALivingProcessKeepsItsPlaceUnlessForced) {
  if (isEmulated()) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  const Browser browser;
  {
    const Host plugin("plugin");
    const std::string holder = "is held by rynctl_test (" + std::to_string(plugin.pid()) + ")";
    expectRefusal({{"call", "GetVisible", "appid=1", "orgid=10"}, 3, holder});
    expectRefusal({{"send", "ShowApp", "appid=1", "orgid=10"}, 3, holder});
    expectRefusal({{"listen"}, 3, holder});
    expectRefusal({{"serve", "plugin"}, 3, holder});
    EXPECT_EQ(0, rynctl({"call", "GetVisible", "appid=1", "orgid=10", "--force"}).exit_code);
  }
  EXPECT_EQ(0, rynctl({"call", "GetVisible", "appid=1", "orgid=10"}).exit_code);
  expectRefusal({{"serve", "browser"}, 3, "is held by rynctl_test (" + std::to_string(getpid()) + ")"});
}

TEST(RynctlPlaceTest, WhoHasSentLastHoldsTheClientsPlaceWhileItLives) {
  if (isEmulated()) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  const Host browser("browser");
  RawQueue(kRequests).sendMessage(kRawOneWay, R"({"t":212,"appid":1,"orgid":2})");  // this process
  expectRefusal({{"call", "GetVisible", "appid=1", "orgid=10"},
                 3,
                 "the plug-in's place on the queue 'requests' is held by rynctl_test"});
}

TEST(RynctlPlaceTest, OneListensWhileAnotherCalls) {
  if (isEmulated()) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  const Browser browser;
  Tool listener({"listen"});
  waitUntil("it listens", [&] { return holds(listener.err(), "listening"); });
  EXPECT_EQ(0, rynctl({"call", "GetVisible", "appid=1", "orgid=10"}).exit_code);
  expectRefusal({{"listen"}, 3, "is held by rynctl ("});
}

}  // namespace
}  // namespace hbbtv_ryn::test
