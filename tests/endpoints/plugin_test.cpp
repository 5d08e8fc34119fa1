// What the plug-in endpoint alone does, before a raw browser process.
#include "hbbtv_ryn/plugin.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <list>
#include <utility>

#include "endpoints/any_function.h"
#include "endpoints/messages.h"
#include "hbbtv_ryn/browser.h"
#include "support/output_capture.h"
#include "tools/support/child_process.h"
#include "tools/support/deadline.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

class PluginTest : public testing::Test {
 protected:
  PluginTest() { EXPECT_EQ(0, kPlugin.start()); }
  ~PluginTest() override {
    EXPECT_EQ(0, kPlugin.stop());
    kPlugin.forget();
  }
  // The calls for a notification, with the marker behind it.
  Calls callsFor(const std::string& notification) {
    notifications_.sendMessage(IPC_KIND_ONEWAY, notification);
    notifications_.sendMessage(IPC_KIND_ONEWAY, kPlugin.marker.text);
    return g_calls.takeUntil(kPlugin.marker.noted);
  }

  OutputCapture output_{stdout};
  RawPeer browser_{kRequestKey};
  RawQueue notifications_{kNotificationKey};
};

TEST_F(PluginTest, BadArgumentsAreRefusedBeforeAnythingIsSent) {
  int number = kOld;
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetOwnerApp(nullptr, &number));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetOwnerApp(&number, nullptr));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetCurrentApp(nullptr, &number));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetCurrentApp(&number, nullptr));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_CreateApp(1, 2, nullptr, false, false, &number, &number));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_CreateApp(1, 2, "", false, false, nullptr, &number));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_CreateApp(1, 2, "", false, false, &number, nullptr));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetChildApps(-1, -1, &number, &number, &number));
  const std::vector<int> too_many_keys(2000, -2147483647);
  EXPECT_EQ(-1, Zunt_RYN_Plugin_SetValue(1, 2, 3, too_many_keys.data(), 2000));
  EXPECT_EQ(kOld, number);
  EXPECT_EQ(0U, browser_.requests.depth());
}

TEST_F(PluginTest, OfAListOnlyWholeEntriesAreRead) {
  struct {
    int code;
    const char* reply;
    std::string outcome;
  } const rows[] = {
      {207, R"({"appNum":0,"appidArray":"               1"})", "0: 0"},
      {207, R"({"appNum":-2,"appidArray":"               1"})", "0: -2"},
      // A count without fields, fields cut off, fields that hold no number, and two numbers in one field.
      {207, R"({"appNum":2147483647})", "0: 2147483647"},
      {207, R"({"appNum":3,"appidArray":"               1               2      3","orgidArray":"1"})",
       "0: 1 2 3"},
      {207, R"({"appNum":1,"orgidArray":"             abc"})", "0: 1"},
      {207, R"({"appNum":2,"appidArray":"               12               ","orgidArray":""})", "0: 1 2 2"},
      {224, R"({"num":2147483647})", "0: 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 20"},
      {224, R"({"num":-3,"k0":1})", "0: -3"},
      {224, R"({"num":2,"k0":5})", "0: 5 0 2"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.outcome, exchange(messageOf(row.code), row.reply)) << row.reply;
  }

  int count = kOld;
  Concurrently call([&] { return Zunt_RYN_Plugin_GetOtherKeys(1, 2, nullptr, &count); });
  browser_.nextRequest();
  browser_.reply(R"({"num":25})");
  EXPECT_EQ(-1, call.result());
  EXPECT_EQ(25, count);
}

TEST_F(PluginTest, NoMoreChildrenAreStoredThanCallersMakeRoomFor) {
  std::array<int, ZUNT_RYN_MAX_CHILD_APPS + 1> ids{};
  int count = 0;
  Concurrently call([&] { return Zunt_RYN_Plugin_GetChildApps(1, 2, ids.data(), ids.data(), &count); });
  browser_.nextRequest();
  browser_.reply(R"({"appNum":1000,"orgidArray":"","appidArray":")" + repeated(1000, "               7") +
                 "\"}");
  EXPECT_EQ(0, call.result());
  EXPECT_EQ(1000, count);
  EXPECT_EQ(7, ids[ZUNT_RYN_MAX_CHILD_APPS - 1]);
  EXPECT_EQ(0, ids[ZUNT_RYN_MAX_CHILD_APPS]);
}

TEST_F(PluginTest, SetValueWritesItsRequestToStandardOutputAndSendsItThoughThatFails) {
  const char* const expected = R"({"t":234,"appid":1,"orgid":2,"value":3,"keynum":2})";
  EXPECT_EQ(0, Zunt_RYN_Plugin_SetValue(1, 2, 3, nullptr, 2));
  EXPECT_TRUE(sameJson(expected, browser_.nextRequest().text));
  const std::string heading = "otherKeys is null ptr\nZunt_RYN_Plugin_SetValue: ";
  const std::string written = output_.text();
  ASSERT_EQ(heading, written.substr(0, heading.size()));
  EXPECT_EQ('\n', written.back());
  EXPECT_TRUE(sameJson(expected, written.substr(heading.size())));

  const OutputCapture restores_standard_output(stdout);
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_LE(0, dup2(full, STDOUT_FILENO));
  close(full);
  EXPECT_EQ(0, Zunt_RYN_Plugin_SetValue(1, 2, 3, nullptr, 2));
  EXPECT_TRUE(sameJson(expected, browser_.nextRequest().text));
}

TEST_F(PluginTest, StateAndContextChangesAreTracedWhenSomebodyListens) {
  kPlugin.marker.receive();
  for (const bool listening : {false, true}) {
    for (const int code : {275, 276}) {
      const Message& change = messageOf(code);
      if (listening) change.receive();
      EXPECT_EQ(listening ? Calls{change.noted} : Calls{}, callsFor(change.text));
    }
  }
  const std::string line =
      "\033[0;32;31m @mervo,ipc/ryn_plugin/ryn_plugin,Zunt_RYN_Plugin_Server_Callback,";
  EXPECT_EQ(line + "283\n" + line + "298\n", output_.text());
}

TEST_F(PluginTest, TheFirstRegistrationStaysUntilItIsRemovedANullOneToo) {
  kPlugin.marker.receive();
  ZuntRynEventCallback first;
  ZuntRynEventCallback second;
  noteCalls<98>(first.onApp);
  noteCalls<99>(second.onApp);
  constexpr auto kEvent = ZUNT_RYN_EVENT_APP_UNLOADED;
  for (const auto& [callback, calls] : {std::pair{first, Calls{"98 1 2 null"}}, {{}, Calls{}}}) {
    EXPECT_EQ(0, Zunt_RYN_Plugin_RegisterRynEventCallback(kEvent, callback));
    EXPECT_EQ(0, Zunt_RYN_Plugin_RegisterRynEventCallback(kEvent, second));
    EXPECT_EQ(calls, callsFor(messageOf(241).text));
    EXPECT_EQ(0, Zunt_RYN_Plugin_UnRegisterRynEventCallback(kEvent));
  }
  EXPECT_EQ(0, Zunt_RYN_Plugin_RegisterRynEventCallback(kEvent, second));
  EXPECT_EQ(Calls{"99 1 2 null"}, callsFor(messageOf(241).text));
}

TEST_F(PluginTest, QueriesThatNobodyAnswersAreDenied) {
  EXPECT_EQ("{\n   \"blocked\" : 0,\n   \"t\" : 246\n}\n", ask(kQueryKey, R"({"t":245})"));
  EXPECT_TRUE(sameJson(R"({"t":246,"supported":0})", ask(kQueryKey, R"({"t":247})")));
  // Byte for byte, as it leaves.
  EXPECT_EQ(0, Zunt_RYN_Plugin_ActivateInput(1, -2, false));
  EXPECT_EQ("{\n   \"appid\" : 1,\n   \"focus\" : false,\n   \"orgid\" : -2,\n   \"t\" : 214\n}\n",
            browser_.nextRequest().text);
}

TEST_F(PluginTest, StoppingDuringACallbackThatMakesRequestsEndsBoth) {
  static std::atomic<bool> entered{false};
  ZuntRynEventCallback callback;
  callback.onNotify = [] {
    entered = true;
    while (Zunt_RYN_Plugin_ShowApp(1, 2) != -3) RawQueue(kRequestKey).discardAll();
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_GET_CONFIGURATION, callback);
  notifications_.sendMessage(IPC_KIND_ONEWAY, R"({"t":270})");
  waitUntil("the callback ran", [] { return entered.load(); });
  Concurrently stop(&Zunt_RYN_Plugin_Finalize);
  EXPECT_EQ(0, stop.result());
}

TEST_F(PluginTest, WhatACallbackStartsWhileTheEndpointStopsIsNotStarted) {
  static std::atomic<bool> entered{false};
  static std::atomic<int> started{-1};
  ZuntRynEventCallback callback;
  callback.onNotify = [] {
    entered = true;
    waitUntil("the endpoint stops", [] { return Zunt_RYN_Plugin_ShowApp(1, 2) == -3; });
    started = Zunt_RYN_Plugin_Initialize();
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_GET_CONFIGURATION, callback);
  notifications_.sendMessage(IPC_KIND_ONEWAY, R"({"t":270})");
  waitUntil("the callback ran", [] { return entered.load(); });
  EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize());
  EXPECT_EQ(0, started);
  EXPECT_EQ(-3, Zunt_RYN_Plugin_ShowApp(1, 2));
  EXPECT_EQ(0, rawLife(kNotificationKey));
}

// What a host does when it is about to be gone.

constexpr int kWrong = 3;

void askOrFail() {
  bool may_uninstall = false;
  if (Zunt_RYN_Plugin_OpApp_Uninstall_Judge(&may_uninstall) != 0 || !may_uninstall) std::_Exit(kWrong);
  // Blocks as jsoncpp takes them: an allocator that was written to behind its back notices here.
  std::list<std::string>(100, std::string(512, 'x'));
}

bool g_armed = false;
const struct AsksWhenDestroyed {
  ~AsksWhenDestroyed() {
    if (g_armed) askOrFail();
  }
} g_asks_when_destroyed;

const ChildRole kAsksAtExit("asks at exit", [](Parent&) {
  if (Zunt_RYN_Plugin_Initialize() != 0) return kWrong;
  askOrFail();
  g_armed = true;
  return std::atexit(&askOrFail);
});

TEST(ExitTest, AHostMayAskFromItsExitHandlersAndStaticDestructors) {
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  EXPECT_EQ(0, ChildProcess(kAsksAtExit).wait());
  EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
}

}  // namespace
}  // namespace hbbtv_ryn::test
