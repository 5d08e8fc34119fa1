#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <ctime>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "log/loopback_socket.h"
#include "tools/support/deadline.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

class TraceTest : public testing::Test {
 protected:
  struct Trace {
    long long sequence;
    std::string thread;
    std::string what;  // queue, way, kind, code, whether a time was measured, and what went wrong
    std::string text;
  };

  TraceTest() { insert_modules_list("ryn_trace", 1); }
  ~TraceTest() override {
    clear_modules_list();
    Zunt_RYN_Plugin_Finalize();
    Zunt_RYN_Browser_Finalize();
    Zunt_RYN_Browser_UnregisterCallback();
  }

  Trace next() {
    const std::string bytes = reader->next().bytes;
    const std::string header = bytes.substr(0, bytes.find('\n'));
    const std::string text = bytes.substr(header.size() + 1);
    const std::regex form("ryn-trace 1 pid=" + std::to_string(getpid()) +
                          " tid=([0-9]+) seq=([0-9]+) time=([0-9]+)[.][0-9]{6} queue=(0x[0-9a-f]{8})"
                          " way=(in|out) kind=([a-z]+) code=([0-9]+) length=([0-9]+)"
                          "( (waited|handling)=[0-9]+)?(.*)");
    std::smatch part;
    EXPECT_TRUE(std::regex_match(header, part, form)) << header;
    EXPECT_LE(std::time(nullptr) - std::stoll(part[3]), kDeadline.count());
    std::string what = part.format("$4 $5 $6 $7") + (part[9].matched ? " timed" : "") + part.str(11);
    if (part[8] != std::to_string(text.size())) {
      EXPECT_TRUE(bytes.size() == 4096 && std::stoul(part[8]) > 4096) << header;
      EXPECT_EQ("[cut]", bytes.substr(bytes.size() - 5));
      what += " cut";
    }
    return {std::stoll(part[2]), part[1], what, text};
  }

  std::optional<LoopbackSocket> reader{std::in_place, kTracePort};
};

TEST_F(TraceTest, ARequesterTracesItsRequestTheAnswerAndWhatItCannotUse) {
  bool visible = false;
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  EXPECT_EQ(-3, Zunt_RYN_Plugin_OpApp_SetStatus(std::string(5000, 's')));
  EXPECT_EQ("0x92101081 out request 280 cut", next().what);
  EXPECT_EQ("0x92101081 out request 280 timed drop=not-sent result=-3 cut", next().what);

  RawPeer browser(kRequestKey);
  const auto answerTo = [&](const char* reply, int result) {
    Concurrently asking([&] { return Zunt_RYN_Plugin_GetVisible(1, 10, &visible); });
    const std::string request = browser.nextRequest().text;
    const Trace sent = next();
    EXPECT_EQ("0x92101081 out request 216", sent.what);
    EXPECT_EQ(request, sent.text);
    reply == nullptr ? browser.fail() : browser.reply(reply);
    EXPECT_EQ(result, asking.result());
    const Trace answered = next();
    EXPECT_EQ(sent.sequence + 1, answered.sequence);
    EXPECT_EQ(reply == nullptr ? "" : reply, answered.text);
    return answered.what;
  };
  EXPECT_EQ("0x92101081 in reply 216 timed", answerTo("{\"visible\":1}", 0));
  EXPECT_EQ("0x92101081 in failure 216 timed result=-1", answerTo(nullptr, -1));
  for (const char* unusable : {"{\"visible\":", "{\"visible\":[]}"}) {
    EXPECT_EQ("0x92101081 in reply 216 timed", answerTo(unusable, -1));
    EXPECT_EQ("0x92101081 in reply 216 drop=unparseable result=-1", next().what);
  }
}

TEST_F(TraceTest, AServerTracesRequestsRepliesAndWhatItDrops) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetValue = [](int, int, int*) { throw std::runtime_error("host"); };
  handlers.GetKeyIcon = [](int, int, int, std::string& icon) { icon.assign(17000, 'i'); };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  RawPeer plugin(kRequestKey);
  const struct {
    const char* request;
    const char* received;
    const char* then;
  } exchanges[] = {
      {R"({"t":216,"appid":1})", "in request 216", "out reply 216 timed"},
      {"not json", "in unknown 0 drop=unparseable", nullptr},
      {R"({"t":240})", "in unknown 240 drop=unknown-code", nullptr},  // a notification's code
      {R"({"t":{}})", "in unknown 0 drop=threw", nullptr},
      {R"({"t":222,"appid":1})", "in request 222", "in request 222 timed drop=threw"},
      {R"({"t":235,"code":403})", "in request 235", "out reply 235 timed drop=reply-too-long cut"},
  };
  for (const auto& exchange : exchanges) {
    const std::string answer = plugin.ask(exchange.request).text;
    const Trace received = next();
    EXPECT_EQ(std::string("0x92101081 ") + exchange.received, received.what);
    EXPECT_EQ(exchange.request, received.text);
    EXPECT_NE(std::to_string(getpid()), received.thread);
    if (exchange.then == nullptr) continue;
    const Trace then = next();
    EXPECT_EQ(std::string("0x92101081 ") + exchange.then, then.what);
    EXPECT_EQ(received.thread, then.thread);
    if (then.what.find("drop") == std::string::npos) {
      EXPECT_EQ(answer, then.text);
    }
  }
}

TEST_F(TraceTest, OneWayMessagesAreTracedAtBothEndsAndNobodyIsDelayedByAReader) {
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  EXPECT_EQ(-3, Zunt_RYN_Browser_SendAppLoaded(1, 1));
  EXPECT_EQ("0x92101091 out oneway 240", next().what);
  EXPECT_EQ("0x92101091 out oneway 240 drop=not-sent result=-3", next().what);
  RawQueue notifications(kNotificationKey);
  EXPECT_EQ(-1, Zunt_RYN_Browser_OpApp_Update(1, 1, std::string(17000, 'u')));
  next();
  EXPECT_EQ("0x92101091 out oneway 277 drop=not-sent result=-1 cut", next().what);
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
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  const rlimit none{0, files.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);  // so that the trace has no socket
  notify(1);
  setrlimit(RLIMIT_NOFILE, &files);
  reader.reset();
  notify(1);
  reader.emplace(kTracePort);
  reader->keepFew();
  notify(300);
  const auto first = next().sequence;
  EXPECT_LT(reader->discardWaiting(), 300 - 1);
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  Zunt_RYN_Browser_SendAppUnloaded(3, 4);
  const Trace sent = next();
  EXPECT_EQ("0x92101091 out oneway 241", sent.what);
  EXPECT_EQ(first + 300, sent.sequence);  // the gap shows what was lost
  EXPECT_EQ("0x92101091 in oneway 241", next().what);
}

}  // namespace
}  // namespace hbbtv_ryn::test
