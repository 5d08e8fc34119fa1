#include <gtest/gtest.h>
#include <json/writer.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/plugin.h"
#include "support/output_capture.h"
#include "tool.h"
#include "tools/support/deadline.h"

namespace hbbtv_ryn::test {
namespace {

/// A capture made line by line, both processes being traced, one message in a millisecond.
class CaptureTest : public testing::Test {
 protected:
  CaptureTest() : file("rynctl_capture_" + std::to_string(getpid()) + ".json"), lines(file) {}
  ~CaptureTest() override {
    for (const std::string& made : {file, page(), junit()}) std::remove(made.c_str());
  }

  std::string page() const { return file.substr(0, file.size() - 4) + "html"; }
  std::string junit() const { return file + ".xml"; }
  static std::string contentOf(const std::string& name) {
    std::ifstream stream(name);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  void trace(const std::string& way, const std::string& kind, int code, key_t queue,
             const std::string& text, const std::string& more = "{}") {
    const bool reads = (way == "in") != (kind == "reply" || kind == "failure");
    Json::Value line = parsed(more);
    line["pid"] = reads == (queue == kRequestKey) ? 812 : 830;
    line["seq"] = ++sequence;
    line["time"] = 1700000000 + sequence / 1000.0;
    line["queue"] = queue == kRequestKey ? "0x92101081" : queue == kQueryKey ? "0x92101093" : "0x92101091";
    line["way"] = way;
    line["kind"] = kind;
    line["code"] = code;
    if (!line.isMember("length")) line["length"] = Json::UInt64{text.size()};
    line["text"] = text;
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    lines << Json::writeString(builder, line) << std::endl;
  }
  void tells(int code, key_t queue, const std::string& text) {
    trace("out", "oneway", code, queue, text);
    trace("in", "oneway", code, queue, text);
  }
  void asks(int code, key_t queue, const std::string& text, const std::string& answer) {
    trace("out", "request", code, queue, text);
    trace("in", "request", code, queue, text);
    const std::string kind = answer.empty() ? "failure" : "reply";
    trace("out", kind, code, queue, answer);
    trace("in", kind, code, queue, answer);
  }
  void asksVisible(int appid, int visible) {
    asks(216, kRequestKey, "{\"t\":216,\"appid\":" + std::to_string(appid) + ",\"orgid\":10}",
         "{\"t\":217,\"visible\":" + std::to_string(visible) + "}");
  }
  Words replay(const std::string& side, const Words& more = {}, const char* timeout = "1") const {
    Words words = {"replay", file, "--as", side, "--timeout", timeout};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  static void expectPlayed(const ToolResult& result, int exit_code, const std::string& out,
                           const std::string& summary) {
    EXPECT_EQ(exit_code, result.exit_code) << result.err;
    EXPECT_EQ(out, result.out);
    EXPECT_TRUE(holds(result.err, summary)) << result.err;
  }

  const std::string file;
  std::ofstream lines;
  int sequence = 0;
};

TEST_F(CaptureTest, ADamagedCaptureIsTakenAsFarAsItGoes) {
  expectEnd({"report", "nothing.json"}, 2, "nothing.json cannot be read");
  expectEnd({"report", file}, 6, "no traces are in it; 'rynctl monitor --save' writes them");
  expectEnd({"report", file, "-o", "./" + file}, 2, "would take the place of the capture");
  lines << "no json\n" << std::flush;
  expectEnd({"report", file}, 6, ":1: no JSON object");
  asksVisible(1, 1);
  const std::string good = R"("pid":1,"seq":1,"time":1,"queue":"0x92101081","way":"in","kind":"oneway")";
  const Words bad_lines = {"[]",
                           R"({"pid":1})",
                           '{' + good + R"(,"code":1e400})",
                           '{' + good + R"(,"code":99999999999999999999})",
                           '{' + good + R"(,"text":7})",
                           '{' + good + R"(,"waited":-1})",
                           R"({"pid":1,"seq":1,"time":1e300,"queue":"0x92101081"})",
                           R"({"pid":1,"seq":1,"time":1,"queue":"0x1"})",
                           std::string(200000, '['),
                           std::string(20000, '['),
                           '{' + good + ",\"text\":\"" + std::string(100000, 'x') + "\"}"};
  for (const std::string& bad : bad_lines) {
    lines << bad << '\n';
  }
  lines << '{' << good << ",\"text\":\"" << std::flush;
  const ToolResult result = rynctl({"report", file});
  EXPECT_EQ(0, result.exit_code) << result.err;
  EXPECT_EQ(page() + "\n", result.out);
  EXPECT_TRUE(holds(result.err, "13 lines could not be read, the first: " + file + ":1: no JSON"))
      << result.err;
  EXPECT_TRUE(holds(result.err, "1 message\n")) << result.err;
  EXPECT_TRUE(holds(contentOf(page()), "\"name\":\"GetVisible\""));
}

TEST_F(CaptureTest, NoTextLeavesThePlaceOfTheData) {
  trace("out", "oneway", 212, kRequestKey, "</script><!--<script>\xff");
  ASSERT_EQ(0, rynctl({"report", file}).exit_code);
  const std::string html = contentOf(page());
  EXPECT_TRUE(holds(html, "\"text\":\"\\u003c/script>\\u003c!--\\u003cscript>\\ufffd\""));
  EXPECT_EQ(2, occurrences(html, "</script>"));
}

TEST_F(CaptureTest, TheBrowserIsAskedAgainAndEveryMemberCompared) {
  Host browser("browser");
  asksVisible(1, 1);
  asks(237, kRequestKey, R"({"t":237,"appid":1,"orgid":10,"code":403})", "");  // threw then, and throws now
  expectPlayed(rynctl(replay("plugin")), 0, "", "2 messages compared, 0 differences\n");

  asksVisible(2, 1);
  trace("out", "request", 222, kRequestKey, R"({"t":222,"appid":1,[cut])", R"({"length":5000})");
  asks(278, kRequestKey, R"({"t":278})", R"({"flag":1})");  // reads as the true that comes
  const std::string difference = "line 9: GetVisible appid=2 orgid=10  visible: 1 -> 0\n";
  const ToolResult result = rynctl(replay("plugin", {"--junit", junit()}));
  expectPlayed(result, 1, difference, "4 messages compared, 1 difference\n");
  EXPECT_TRUE(holds(result.err, "line 13: GetValue {\"t\":222,\"appid\":1,[cut]: cut; left out\n"))
      << result.err;
  const std::string xml = contentOf(junit());
  EXPECT_EQ(5, occurrences(xml, "<testcase ")) << xml;
  EXPECT_TRUE(holds(xml, "appid=2 orgid=10\"><failure message=\"visible: 1 -&#62; 0\"/>")) << xml;
  expectPlayed(rynctl(replay("plugin", {"--ignore", "visible", "--fast"})), 0, "", "4 messages compared");
  expectPlayed(rynctl(replay("plugin", {"--only", "OpApp_*"})), 0, "", "1 message compared");
  expectEnd(replay("browser"), 3, "place on the queue 'requests' is held by");
}

TEST_F(CaptureTest, APeerThatDiesOrHangsInTheMiddleEndsThePlay) {
  Host browser("browser");
  asksVisible(1, 0);
  asks(222, kRequestKey, R"({"t":222,"appid":1,"orgid":10})", R"({"t":223,"value":31})");  // hangs
  ToolResult hung = rynctl(replay("plugin", {"--junit", junit()}));
  expectPlayed(hung, 4, "line 1: GetVisible appid=1 orgid=10  visible: 0 -> 1\n", "not played to the end");
  EXPECT_TRUE(holds(contentOf(junit()), "<error message=\"GetValue: the browser process lives"));

  browser.kill();
  Host second("browser");
  Tool dying(replay("plugin", {"--force"}, "20"));
  waitUntil("the first answer is compared", [&] { return holds(dying.out(), "visible"); });
  second.kill();
  expectPlayed(dying.result(), 3, hung.out, "2 messages compared, 1 difference; not played to the end");
}

TEST_F(CaptureTest, ApplicationsAreToldApartByWhatIsSaidOfThem) {
  asks(209, kRequestKey, R"({"t":209,"appid":0,"orgid":0,"url":"http://a","child":0,"opapp":0})",
       R"({"t":210,"appid":1,"orgid":10})");
  tells(240, kNotificationKey, R"({"t":240,"appid":1,"orgid":10})");
  asks(207, kRequestKey, R"({"t":207,"appid":1,"orgid":10})",
       R"({"t":208,"appNum":1,"appidArray":"               1","orgidArray":"              10"})");
  tells(242, kNotificationKey, R"({"t":242,"appid":1,"orgid":10,"topmost":true})");
  tells(244, kNotificationKey, R"({"t":244,"appid":1,"orgid":10,"key":403,"keytype":1})");

  // A message without organisation, and an answer that repeats the number of the question.
  asks(201, kRequestKey, R"({"t":201,"appid":1})", R"({"t":202,"appid":1,"orgid":0})");

  ZuntRynBrowserEventCallback handlers{};
  handlers.CreateApp = [](int, int, const char*, bool, bool, int* appid, int* orgid) {
    *appid = 36;
    *orgid = 10;
    Zunt_RYN_Browser_SendAppLoaded(36, 10);
  };
  handlers.GetChildApps = [](int appid, int orgid, int* appids, int* orgids, int* count) {
    appids[0] = appid;
    orgids[0] = orgid;
    *count = 1;
    Zunt_RYN_Browser_SendTopMost(appid, orgid, false);
  };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  const ToolResult result = rynctl(replay("plugin", {"--force"}));
  Zunt_RYN_Browser_Finalize();
  expectPlayed(result, 1,
               "line 11: SendTopMost appid=1 orgid=10 topmost=true  topmost: true -> false\n"
               "line 13: SendKey appid=1 orgid=10 key=403 keytype=1  recorded, and did not come\n",
               "6 messages compared, 2 differences\n");
}

TEST_F(CaptureTest, TheBrowserAnswersAsRecordedAndSpeaksInItsPlace) {
  asksVisible(1, 1);
  asksVisible(1, 0);
  tells(240, kNotificationKey, R"({"t":240,"appid":1,"orgid":10})");
  asks(245, kQueryKey, R"({"t":245,"appid":1,"orgid":10})", R"({"t":246,"blocked":1})");
  static std::atomic<int> loaded;
  loaded = 0;
  ZuntRynEventCallback callback;
  callback.onApp = [](int, int, void*) { ++loaded; };
  Zunt_RYN_Plugin_RegisterRynEventCallback(ZUNT_RYN_EVENT_APP_LOADED, callback);

  Tool browser(replay("browser", {"--force"}));
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  bool visible = false;
  waitUntil("the browser is there", [&] { return Zunt_RYN_Plugin_GetVisible(9, 10, &visible) == 0; });
  EXPECT_FALSE(visible);
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(1, 10, &visible));
  EXPECT_TRUE(visible);
  EXPECT_EQ(0, loaded);
  EXPECT_EQ(0, Zunt_RYN_Plugin_GetVisible(1, 10, &visible));
  EXPECT_FALSE(visible);
  const ToolResult result = browser.result();
  Zunt_RYN_Plugin_Finalize();
  EXPECT_EQ(1, loaded);
  expectPlayed(result, 1,
               "GetVisible appid=9 orgid=10  never recorded, answered by default\n"
               "line 11: IsParentalRatingBlocked appid=1 orgid=10  blocked: 1 -> 0\n",
               "5 messages compared, 2 differences\n");
}

TEST(RynctlReplayTest, TheEveningThatIsShippedPlaysAgainWithoutADifference) {
  if (kEmulated) GTEST_SKIP() << "the demo is started by a shell";
  const ToolResult result =
      Tool({"replay", EXAMPLE_CAPTURE, "--as", "plugin", "--fast"}, DEMO_BROWSER
           " >/dev/null 2>&1 & until ipcs -q | grep -q 0x92101081; do sleep 0.05; done; "
           "\"$@\"; code=$?; kill $!; exit $code;")
          .result();
  EXPECT_EQ(0, result.exit_code) << result.err << result.out;
  EXPECT_EQ("70 messages compared, 0 differences\n", result.err);
}

}  // namespace
}  // namespace hbbtv_ryn::test
