#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "log/loopback_socket.h"
#include "support/deadline.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

constexpr key_t kRequests = static_cast<key_t>(0x92101081U);
constexpr key_t kNotifications = static_cast<key_t>(0x92101091U);

/// A datagram, taken apart.
struct Trace {
  explicit Trace(const std::string& datagram)
      : bytes(datagram), text(datagram.substr(datagram.find('\n') + 1)) {
    std::istringstream words(datagram.substr(0, datagram.find('\n')));
    for (std::string word; words >> word;) {
      fields[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    }
    what = fields["way"] + ' ' + fields["kind"] + ' ' + fields["code"];
    if (fields.count("drop") != 0) what += ' ' + fields["drop"];
    if (fields.count("result") != 0) what += ' ' + fields["result"];
  }
  long long number(const char* field) const { return std::stoll(fields.at(field)); }

  std::string bytes;
  std::string text;
  std::map<std::string, std::string> fields;
  std::string what;  // way, kind, code, and what went wrong
};

class TraceTest : public testing::Test {
 protected:
  TraceTest() { insert_modules_list("ryn_trace", 1); }
  ~TraceTest() override {
    clear_modules_list();
    Zunt_RYN_Plugin_Finalize();
    Zunt_RYN_Browser_Finalize();
    Zunt_RYN_Browser_UnregisterCallback();
  }

  Trace next() { return Trace(reader->next().bytes); }

  std::optional<LoopbackSocket> reader{std::in_place, kTracePort};
};

TEST_F(TraceTest, ARequesterTracesItsRequestTheAnswerAndWhatItCannotUse) {
  bool visible = false;
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  EXPECT_EQ(-3, Zunt_RYN_Plugin_OpApp_SetStatus(std::string(5000, 's')));
  const Trace cut = next();
  EXPECT_EQ(4096U, cut.bytes.size());
  EXPECT_EQ("sss[cut]", cut.bytes.substr(4096 - 8));
  EXPECT_GT(cut.number("length"), 5000);
  EXPECT_EQ("out request 280 not-sent -3", next().what);

  RawPeer browser(kRequests);
  const auto answerTo = [&](const char* reply, int result) {
    Concurrently asking([&] { return Zunt_RYN_Plugin_GetVisible(1, 10, &visible); });
    const std::string request = browser.nextRequest().text;
    const Trace sent = next();
    const std::regex wire("ryn-trace 1 pid=" + std::to_string(getpid()) +
                          " tid=[0-9]+ seq=[0-9]+ time=[0-9]+[.][0-9]{6} queue=0x92101081 way=out"
                          " kind=request code=216 length=" +
                          std::to_string(request.size()) + "\n[^]*");
    EXPECT_TRUE(std::regex_match(sent.bytes, wire)) << sent.bytes;
    EXPECT_EQ(request, sent.text);
    EXPECT_LE(std::time(nullptr) - sent.number("time"), kDeadline.count());
    reply == nullptr ? browser.fail() : browser.reply(reply);
    EXPECT_EQ(result, asking.result());
    const Trace answered = next();
    EXPECT_EQ(sent.number("seq") + 1, answered.number("seq"));
    EXPECT_GE(answered.number("waited"), 0);
    return answered;
  };
  const Trace answered = answerTo("{\"visible\":1}", 0);
  EXPECT_EQ("in reply 216", answered.what);
  EXPECT_EQ("{\"visible\":1}", answered.text);
  EXPECT_EQ("in failure 216 -1", answerTo(nullptr, -1).what);
  for (const char* unusable : {"{\"visible\":", "{\"visible\":[]}"}) {
    EXPECT_EQ("in reply 216", answerTo(unusable, -1).what);
    EXPECT_EQ("in reply 216 unparseable -1", next().what) << unusable;
  }
}

TEST_F(TraceTest, AServerTracesRequestsRepliesAndWhatItDrops) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetVisible = [](int, int, bool* visible) { *visible = true; };
  handlers.GetValue = [](int, int, int*) { throw std::runtime_error("host"); };
  handlers.GetKeyIcon = [](int, int, int, std::string& icon) { icon.assign(17000, 'i'); };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  RawPeer plugin(kRequests);
  const struct {
    const char* request;
    std::vector<std::string> traced;
  } exchanges[] = {
      {"not json", {"in unknown 0 unparseable"}},
      {R"({"t":240})", {"in unknown 240 unknown-code"}},  // a notification's code
      {R"({"t":{}})", {"in unknown 0 threw"}},
      {R"({"t":222,"appid":1})", {"in request 222", "in request 222 threw"}},
      {R"({"t":235,"code":403})", {"in request 235", "out reply 235 reply-too-long"}},
  };
  for (const auto& exchange : exchanges) {
    plugin.ask(exchange.request);
    for (const std::string& what : exchange.traced) {
      const Trace trace = next();
      EXPECT_EQ(what, trace.what);
      EXPECT_TRUE(what[0] == 'o' || trace.text == exchange.request) << trace.bytes;
    }
  }
  const std::string answer = plugin.ask("{\"t\":216,\"appid\":1}").text;
  const Trace received = next();
  const Trace answered = next();
  EXPECT_EQ("out reply 216", answered.what);
  EXPECT_EQ(answer, answered.text);
  EXPECT_GE(answered.number("handling"), 0);
  EXPECT_EQ(received.number("tid"), answered.number("tid"));
  EXPECT_NE(getpid(), answered.number("tid"));
}

TEST_F(TraceTest, OneWayMessagesAreTracedAtBothEndsAndNobodyIsDelayedByAReader) {
  RawQueue notifications(kNotifications);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  const auto notify = [&](int times) {
    for (int i = 0; i < times; ++i) {
      errno = 0;
      ASSERT_EQ(0, Zunt_RYN_Browser_SendAppLoaded(1, 1));
      ASSERT_EQ(0, errno);
      notifications.take();
    }
  };
  insert_modules_list("ryn_trace", 2);
  notify(1);
  clear_modules_list();
  notify(1);
  EXPECT_EQ(0, reader->discardWaiting());

  insert_modules_list("ryn_trace", 1);
  reader.reset();
  notify(10);
  reader.emplace(kTracePort);
  notify(3000);
  const auto first = next().number("seq");
  EXPECT_LT(reader->discardWaiting(), 3000 - 1);
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  Zunt_RYN_Browser_SendAppUnloaded(3, 4);
  const Trace sent = next();
  const Trace received = next();
  EXPECT_EQ("out oneway 241", sent.what);
  EXPECT_EQ(first + 3000, sent.number("seq"));  // the gap shows what was lost
  EXPECT_EQ("in oneway 241", received.what);
  EXPECT_EQ("0x92101091", received.fields.at("queue"));
}

}  // namespace
}  // namespace hbbtv_ryn::test
