// The plug-in endpoint's requests, seen by a raw browser process.
#include <gtest/gtest.h>
#include <json/writer.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "endpoints/api_call.h"
#include "endpoints/wire.h"
#include "hbbtv_ryn/plugin.h"
#include "support/deadline.h"
#include "support/output_capture.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

// The result, the counts and the first, some more and the last of what is stored in an array.
template <int (*Ask)(int, int, int*, int*)>
std::string callForKeys() {
  std::vector<int> keys(20, kOld);
  int count = kOld;
  std::ostringstream text;
  text << Ask(1, 2, keys.data(), &count) << ": " << count;
  for (const int at : {0, 1, 2, 19}) text << ' ' << keys[static_cast<std::size_t>(at)];
  return text.str();
}

std::string callForChildren(int appid, int orgid) {
  int appids[] = {kOld, kOld, kOld};
  int orgids[] = {kOld, kOld, kOld};
  int count = kOld;
  std::ostringstream text;
  text << Zunt_RYN_Plugin_GetChildApps(appid, orgid, appids, orgids, &count) << ": " << count;
  for (int i = 0; i < 3; ++i) text << ' ' << appids[i] << ' ' << orgids[i];
  return text.str();
}

template <int Count>
std::string callSetValue() {
  const int keys[] = {37, 38, -3};
  return std::to_string(Zunt_RYN_Plugin_SetValue(1, 2, 31, keys, Count)) + ':';
}

struct Request {
  std::string (*call)();
  const char* message;
  const char* reply;      // null for a command
  const char* outcome;    // with that reply
  const char* untouched;  // the out-parameters of a call that fails; f stands for the old flag
};

constexpr const char* kNoReply = nullptr;

const Request kRequests[] = {
    {call<&Zunt_RYN_Plugin_GetOwnerApp>, R"({"t":201,"appid":77})", R"({"appid":7,"orgid":9})", "0: 7 9",
     " 77 77"},
    {call<&Zunt_RYN_Plugin_GetCurrentApp>, R"({"t":203})", R"({"t":204,"appid":-1,"orgid":2147483647})",
     "0: -1 2147483647", " 77 77"},
    {[] { return callForChildren(-1, 0); }, R"({"t":207,"appid":-1,"orgid":0})",
     R"({"t":208,"appNum":2,"appidArray":"               1              22",)"
     R"("orgidArray":"               3             -44"})",
     "0: 2 1 3 22 -44 77 77", " 77 77 77 77 77 77 77"},
    {call<&Zunt_RYN_Plugin_CreateApp>,
     R"({"t":209,"appid":1,"orgid":2,"url":"3a\"b\\\n\u00e9","child":0,"opapp":1})",
     R"({"t":210,"appid":3,"orgid":4})", "0: 3 4", " 77 77"},
    {call<&Zunt_RYN_Plugin_DestroyApp>, R"({"t":211,"appid":1,"orgid":2})", kNoReply, "0:", ""},
    {call<&Zunt_RYN_Plugin_ShowApp>, R"({"t":212,"appid":1,"orgid":2})", kNoReply, "0:", ""},
    {call<&Zunt_RYN_Plugin_HideApp>, R"({"t":213,"appid":1,"orgid":2})", kNoReply, "0:", ""},
    {call<&Zunt_RYN_Plugin_ActivateInput>, R"({"t":214,"appid":1,"orgid":2,"focus":true})", kNoReply,
     "0:", ""},
    {call<&Zunt_RYN_Plugin_DeactivateInput>, R"({"t":215,"appid":1,"orgid":2})", kNoReply, "0:", ""},
    {call<&Zunt_RYN_Plugin_GetVisible>, R"({"t":216,"appid":1,"orgid":2})", R"({"visible":5})", "0: 1",
     " f"},
    {call<&Zunt_RYN_Plugin_GetActive>, R"({"t":218,"appid":1,"orgid":2})", R"({"active":true})", "0: 1",
     " f"},
    {call<&Zunt_RYN_Plugin_GetPrimaryReceiver>, R"({"t":220,"appid":1,"orgid":2})", R"({"primary":-1})",
     "0: 1", " f"},
    {call<&Zunt_RYN_Plugin_GetValue>, R"({"t":222,"appid":1,"orgid":2})", R"({"value":-31})", "0: -31",
     " 77"},
    {callForKeys<&Zunt_RYN_Plugin_GetOtherKeys>, R"({"t":224,"appid":1,"orgid":2})",
     R"({"num":2,"k0":415,"k1":-1,"k2":9})", "0: 2 415 -1 77 77", " 77 77 77 77 77"},
    {call<&Zunt_RYN_Plugin_GetMaxiMumValue>, R"({"t":226,"appid":1,"orgid":2})", R"({"maxvalue":1023})",
     "0: 1023", " 77"},
    {callForKeys<&Zunt_RYN_Plugin_GetMaxiMumOtherKeys>, R"({"t":228,"appid":1,"orgid":2})",
     R"({"num":25,"k0":1,"k1":2,"k2":3,"k19":20,"k24":25})", "0: 20 1 2 3 20", " 77 77 77 77 77"},
    {call<&Zunt_RYN_Plugin_SetSupportsPointer>, R"({"t":230,"appid":1,"orgid":2,"pointer":1})", kNoReply,
     "0:", ""},
    {call<&Zunt_RYN_Plugin_GetSupportsPointer>, R"({"t":232,"appid":1,"orgid":2})", R"({"pointer":1})",
     "0: 1", " f"},
    {callSetValue<3>, R"({"t":234,"appid":1,"orgid":2,"value":31,"keynum":3,"k0":37,"k1":38,"k2":-3})",
     kNoReply, "0:", ""},
    {callSetValue<0>, R"({"t":234,"appid":1,"orgid":2,"value":31,"keynum":0})", kNoReply, "0:", ""},
    {call<&Zunt_RYN_Plugin_GetKeyIcon>, R"({"t":235,"appid":1,"orgid":2,"code":3})",
     "{\"pointer\":\"i \\\"\\u00e9\"}", "0: i \"\u00e9", " old"},
    {call<&Zunt_RYN_Plugin_GetKeyLabel>, R"({"t":237,"appid":1,"orgid":2,"code":3})", R"({"label":"new"})",
     "0: new", " old"},
    {call<&Zunt_RYN_Plugin_Get_VB_Resouce_Allowed>, R"({"t":256,"tabid":1})", R"({"allowed":1})", "0: 1",
     " f"},
    {call<&Zunt_RYN_Plugin_SetBRAppToBI>, R"({"t":258,"tabid":1})", kNoReply, "0:", ""},
    {call<&Zunt_RYN_Plugin_Get_APP_TYPE>, R"({"t":265,"tabid":1})", R"({"appType":3})", "0: 3", " 77"},
    {call<&Zunt_RYN_Plugin_SetBIAppToBR>, R"({"t":267,"tabid":1})", kNoReply, "0:", ""},
    {call<&Zunt_RYN_Plugin_KeyConsumedByBrowser>, R"({"t":268,"tabid":1,"keyCode":2})", R"({"consumed":1})",
     "0: 1", " f"},
    {call<&Zunt_RYN_Plugin_OpApp_Uninstall_Judge>, R"({"t":278})", R"({"flag":true})", "0: 1", " f"},
    {call<&Zunt_RYN_Plugin_OpApp_GetStatus>, R"({"t":279})", R"({"status":"running","ret":2})",
     "2: running", " old"},
    {call<&Zunt_RYN_Plugin_OpApp_SetStatus>, R"({"t":280,"status":"1a\"b\\\n\u00e9"})", R"({"ret":-4})",
     "-4:", ""},
    {call<&Zunt_RYN_Plugin_OpApp_RequestTransient>, R"({"t":281})", R"({"ret":4})", "4:", ""},
    {call<&Zunt_RYN_Plugin_OpApp_RequestForeground>, R"({"t":282})", R"({"ret":2})", "2:", ""},
    {call<&Zunt_RYN_Plugin_OpApp_RequestBackground>, R"({"t":283})", R"({"ret":0})", "0:", ""},
    {call<&Zunt_RYN_Plugin_OpApp_GetUpdateStatus>, R"({"t":284})", R"({"status":3,"ret":7})", "7: 3",
     " 77"},
    {call<&Zunt_RYN_Plugin_OpApp_RequestUpdate>, R"({"t":285})", R"({"ret":1})", "1:", ""},
};

// The reply with each of the members that are read in turn given a type or a value that no reader takes.
std::vector<std::string> repliesThatDoNotConvert(const char* reply) {
  const Json::Value whole = parsed(reply);
  std::vector<std::string> replies;
  for (const char* member :
       {"appid",   "orgid",   "appNum",  "appidArray", "orgidArray", "visible",  "active",
        "primary", "value",   "num",     "k0",         "k1",         "maxvalue", "pointer",
        "label",   "allowed", "appType", "consumed",   "flag",       "status",   "ret"}) {
    if (!whole.isMember(member)) continue;
    std::vector<const char*> values = {"[]", "{}", "[1]"};
    if (!whole[member].isString()) values.insert(values.end(), {"\"1\"", "2147483648", "-1e10"});
    for (const char* value : values) {
      Json::Value spoilt = whole;
      spoilt[member] = parsed(value);
      replies.push_back(Json::writeString(Json::StreamWriterBuilder(), spoilt));
    }
  }
  return replies;
}

class PluginRequestsTest : public testing::Test {
 protected:
  PluginRequestsTest() { EXPECT_EQ(0, Zunt_RYN_Plugin_Initialize()); }
  ~PluginRequestsTest() override { EXPECT_EQ(0, Zunt_RYN_Plugin_Finalize()); }

  // One exchange, in which the browser process gives this reply, or else the failure reply.
  template <typename Call>
  auto exchange(Call ask, const char* expected_request, const std::string* reply) {
    Concurrently call(ask);
    const RawMessage request = m_browser.nextRequest();
    EXPECT_EQ(kRawRequest, request.kind);
    if (expected_request != nullptr) {
      EXPECT_TRUE(sameJson(expected_request, request.text));
    }
    reply == nullptr ? m_browser.fail() : m_browser.reply(*reply);
    return call.result();
  }
  std::string exchange(const Request& request, const std::string& reply) {
    return exchange(request.call, request.message, &reply);
  }

  OutputCapture m_output{stdout};
  RawPeer m_browser{kRequestKey};
};

TEST_F(PluginRequestsTest, EachRequestHasItsMembersAndStoresItsAnswer) {
  for (const auto& request : kRequests) {
    if (request.reply == kNoReply) {
      EXPECT_EQ(request.outcome, request.call()) << request.message;
      const RawMessage message = m_browser.nextRequest();
      EXPECT_EQ(kRawOneWay, message.kind);
      EXPECT_TRUE(sameJson(request.message, message.text));
    } else {
      EXPECT_EQ(request.outcome, exchange(request, request.reply)) << request.message;
    }
  }
  Zunt_RYN_Plugin_ActivateInput(1, -2, false);
  EXPECT_EQ("{\n   \"appid\" : 1,\n   \"focus\" : false,\n   \"orgid\" : -2,\n   \"t\" : 214\n}\n",
            m_browser.nextRequest().text);
}

TEST_F(PluginRequestsTest, AnUnusableAnswerLeavesEverythingAsItWasAndTheNextIsTaken) {
  for (const auto& request : kRequests) {
    if (request.reply == kNoReply) continue;
    std::vector<std::string> unusable = repliesThatDoNotConvert(request.reply);
    unusable.insert(unusable.end(), std::begin(kNoObjects), std::end(kNoObjects));
    unusable.emplace_back();
    for (const bool old_flag : {true, false}) {
      g_old_flag = old_flag;
      std::string failed = std::string("-1:") + request.untouched;
      std::replace(failed.begin(), failed.end(), 'f', old_flag ? '1' : '0');
      for (const auto& reply : unusable) {
        EXPECT_EQ(failed, exchange(request, reply)) << request.message << reply.substr(0, 80);
      }
      EXPECT_EQ(failed, exchange(request.call, request.message, nullptr)) << request.message;
    }
    EXPECT_EQ(request.outcome, exchange(request, request.reply));
  }
}

TEST_F(PluginRequestsTest, AMemberThatIsMissingReadsAsZero) {
  g_old_flag = true;
  for (const auto& request : kRequests) {
    if (request.reply == kNoReply) continue;
    const std::string answered = exchange(request, "{}");
    EXPECT_EQ("0:", answered.substr(0, 2)) << request.message;
    EXPECT_TRUE(answered == "0:" || answered[3] == '0' || answered == "0: ") << request.message << answered;
  }
}

TEST_F(PluginRequestsTest, BadArgumentsAreRefusedBeforeAnythingIsSent) {
  int number = kOld;
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetOwnerApp(nullptr, &number));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetOwnerApp(&number, nullptr));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetCurrentApp(nullptr, &number));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetCurrentApp(&number, nullptr));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_CreateApp(1, 2, nullptr, false, false, &number, &number));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_CreateApp(1, 2, "", false, false, nullptr, &number));
  EXPECT_EQ(-3, Zunt_RYN_Plugin_CreateApp(1, 2, "", false, false, &number, nullptr));
  EXPECT_EQ("-3: 77 77 77 77 77 77 77", callForChildren(-1, -1));
  EXPECT_EQ(kOld, number);
  EXPECT_EQ(0U, m_browser.requests.depth());
}

TEST_F(PluginRequestsTest, ARequestLongerThanTheChannelTakesIsRefused) {
  const std::string too_long(16384, 'x');
  int number = kOld;
  EXPECT_EQ(-1, Zunt_RYN_Plugin_OpApp_SetStatus(too_long));
  EXPECT_EQ(-1, Zunt_RYN_Plugin_CreateApp(1, 2, too_long.c_str(), false, false, &number, &number));
  const std::vector<int> keys(2000, -2147483647);
  EXPECT_EQ(-1, Zunt_RYN_Plugin_SetValue(1, 2, 3, keys.data(), 2000));
  EXPECT_EQ(kOld, number);
  EXPECT_EQ(0U, m_browser.requests.depth());
}

TEST_F(PluginRequestsTest, OfAChildListOnlyWholeFieldsAreRead) {
  const auto children = [&](const std::string& reply) {
    return exchange([] { return callForChildren(1, 2); }, nullptr, &reply);
  };
  EXPECT_EQ("0: 0 77 77 77 77 77 77", children(R"({"appNum":0,"appidArray":"               1"})"));
  EXPECT_EQ("0: -2 77 77 77 77 77 77", children(R"({"appNum":-2,"appidArray":"               1"})"));
  // A count without fields, fields cut off, and fields that hold no number.
  EXPECT_EQ("0: 2147483647 77 77 77 77 77 77", children(R"({"appNum":2147483647})"));
  EXPECT_EQ(
      "0: 3 1 77 2 77 77 77",
      children(R"({"appNum":3,"appidArray":"               1               2      3","orgidArray":"1"})"));
  EXPECT_EQ("0: 2 77 9 4 77 77 77",
            children(R"({"appNum":2,"appidArray":"             abc               4",)"
                     R"("orgidArray":"               9                "})"));
  // A field is not read beyond its sixteen characters.
  EXPECT_EQ("0: 2 1 77 2 77 77 77",
            children(R"({"appNum":2,"appidArray":"               12               ","orgidArray":""})"));
}

TEST_F(PluginRequestsTest, KeyListsAreReadAsFarAsTheyGo) {
  const auto keys = [&](const std::string& reply) {
    return exchange(&callForKeys<&Zunt_RYN_Plugin_GetOtherKeys>, nullptr, &reply);
  };
  EXPECT_EQ("0: -3 77 77 77 77", keys(R"({"num":-3,"k0":1})"));
  EXPECT_EQ("0: 2 5 0 77 77", keys(R"({"num":2,"k0":5})"));
  EXPECT_EQ("0: 20 0 0 0 0", keys(R"({"num":2147483647})"));

  int count = kOld;
  const std::string reply = R"({"num":25})";
  EXPECT_EQ(-1,
            exchange([&] { return Zunt_RYN_Plugin_GetOtherKeys(1, 2, nullptr, &count); }, nullptr, &reply));
  EXPECT_EQ(25, count);
}

TEST_F(PluginRequestsTest, SetValueWritesItsRequestToStandardOutput) {
  const std::string before = m_output.text();
  EXPECT_EQ(0, Zunt_RYN_Plugin_SetValue(1, 2, 3, nullptr, 2));
  const std::string written = m_output.text().substr(before.size());
  const std::string heading = "otherKeys is null ptr\nZunt_RYN_Plugin_SetValue: ";
  ASSERT_EQ(heading, written.substr(0, heading.size()));
  EXPECT_EQ('\n', written.back());
  const std::string sent = m_browser.nextRequest().text;
  EXPECT_TRUE(sameJson(R"({"t":234,"appid":1,"orgid":2,"value":3,"keynum":2})", sent));
  EXPECT_TRUE(sameJson(sent, written.substr(heading.size())));
}

TEST(PluginRequestsWithoutABrowserTest, ReportThatThereIsNoneAndThatTheyAreNotStarted) {
  const OutputCapture output(stdout);
  g_old_flag = true;
  for (const bool started : {true, false}) {
    if (started) Zunt_RYN_Plugin_Initialize();
    for (const auto& request : kRequests) {
      std::string failed = std::string("-3:") + request.untouched;
      std::replace(failed.begin(), failed.end(), 'f', '1');
      EXPECT_EQ(failed, request.call()) << request.message;
    }
    if (started) Zunt_RYN_Plugin_Finalize();
    const RawPeer exists_from_now_on(kRequestKey);
  }
}

}  // namespace
}  // namespace hbbtv_ryn::test
