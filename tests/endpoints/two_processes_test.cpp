// Both endpoints at once, each in a process of its own: this one and a child. Texts make the whole way and
// come back unchanged, which neither endpoint alone can show.
#include <gtest/gtest.h>

#include <vector>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "support/child_process.h"
#include "support/output_capture.h"

namespace hbbtv_ryn::test {
namespace {

const std::string kTexts[] = {"plain", "", "quote \" backslash \\ newline \n tab \t end",
                              "\u00e9 \u20ac \U0001f4fa \u0001", std::string(15000, 'x')};

std::string g_text;  // the last text that came in

const ChildRole kBrowser("browser", [](Parent& parent) {
  ZuntRynBrowserEventCallback h{};
  h.GetCurrentApp = [](int* a, int* o, void*) { *a = 2147483647, *o = -2147483647; };
  h.GetChildApps = [](int, int, int* appids, int* orgids, int* count) {
    *count = 300;
    for (int i = 0; i < *count; ++i) appids[i] = i, orgids[i] = -i;
  };
  h.CreateApp = [](int, int, const char* url, bool, bool, int* appid, int*) { g_text = url, *appid = 21; };
  h.GetKeyLabel = [](int, int, int, std::string& label) { label = g_text; };
  h.SetValue = [](int, int, int, const int* keys, int count) {
    g_text = std::to_string(count) + ' ' + std::to_string(keys[19]);
  };
  h.OpApp_SetStatus = [](std::string status) { return g_text = status, 3; };
  h.OpApp_GetStatus = [](std::string& status) { return status = g_text, 2; };
  Zunt_RYN_Browser_RegisterCallback(h, nullptr);
  if (Zunt_RYN_Browser_Initialize() != 0) return 1;
  parent.say("up");
  parent.hear();
  return Zunt_RYN_Browser_Finalize();
});

Parent* g_parent;

// What comes in is told to the test, behind a letter, because no empty text can be told.
const ChildRole kPlugin("plugin", [](Parent& parent) {
  g_parent = &parent;
  ZuntRynEventCallback callback;
  callback.onOpAppChange = [](int, int, std::string a, std::string b, std::string reason) {
    g_parent->say("c" + a + b + reason);
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OPAPP_STATE_CHANGE, callback);
  callback.onOpAppUpdate = [](int, int, std::string event) { g_parent->say("u" + event); };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OPAPP_UPDATE, callback);
  callback.onObjectSupported = [](const std::string& mtype, bool* supported) {
    g_parent->say("o" + mtype);
    *supported = true;
  };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_OBJECT_SUPPORTED_QUERY, callback);
  if (Zunt_RYN_Plugin_Initialize() != 0) return 1;
  parent.say("up");
  parent.hear();
  return Zunt_RYN_Plugin_Finalize();
});

TEST(TwoProcessesTest, RequestsReachTheBrowserAndAnswersComeBack) {
  const OutputCapture output(stdout);
  ChildProcess browser(kBrowser);
  ASSERT_EQ("up", browser.hear());
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  int appid = 0;
  int orgid = 0;
  std::string back;
  for (const auto& text : kTexts) {
    EXPECT_EQ(3, Zunt_RYN_Plugin_OpApp_SetStatus(text));
    EXPECT_EQ(2, Zunt_RYN_Plugin_OpApp_GetStatus(back));
    EXPECT_EQ(text, back);
    EXPECT_EQ(0, Zunt_RYN_Plugin_CreateApp(1, 2, ("http://" + text).c_str(), true, false, &appid, &orgid));
    EXPECT_EQ(21, appid);
    EXPECT_EQ(0, Zunt_RYN_Plugin_GetKeyLabel(1, 2, 415, back));
    EXPECT_EQ("http://" + text, back);
  }
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetCurrentApp(&appid, &orgid));
  EXPECT_EQ(2147483647, appid);
  EXPECT_EQ(-2147483647, orgid);
  std::vector<int> appids(512);
  std::vector<int> orgids(512);
  int count = 0;
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetChildApps(1, 2, appids.data(), orgids.data(), &count));
  EXPECT_EQ(300, count);
  EXPECT_EQ(299, appids[299]);
  EXPECT_EQ(-299, orgids[299]);
  const std::vector<int> keys(100, 37);
  EXPECT_EQ(0, Zunt_RYN_Plugin_SetValue(1, 2, 31, keys.data(), 100));
  EXPECT_EQ(2, Zunt_RYN_Plugin_OpApp_GetStatus(back));
  EXPECT_EQ("20 37", back);
  browser.say("end");
  EXPECT_EQ(0, browser.wait());
  EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize());
}

TEST(TwoProcessesTest, NotificationsAndQueriesReachThePlugin) {
  ChildProcess plugin(kPlugin);
  ASSERT_EQ("up", plugin.hear());
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  for (const auto& text : kTexts) {
    EXPECT_EQ(0, Zunt_RYN_Browser_OpApp_StateChange(1, 2, "old", text, "reason"));
    EXPECT_EQ("cold" + text + "reason", plugin.hear());
    EXPECT_EQ(0, Zunt_RYN_Browser_OpApp_Update(1, 2, text));
    EXPECT_EQ("u" + text, plugin.hear());
    bool supported = false;
    EXPECT_EQ(0, Zunt_RYN_Browser_IsObjectSupported(text, &supported));
    EXPECT_TRUE(supported);
    EXPECT_EQ("o" + text, plugin.hear());
  }
  plugin.say("end");
  EXPECT_EQ(0, plugin.wait());
  EXPECT_EQ(0, Zunt_RYN_Browser_Finalize());
}

}  // namespace
}  // namespace hbbtv_ryn::test
