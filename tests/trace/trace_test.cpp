#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "support/deadline.h"
#include "support/output_capture.h"
#include "support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

constexpr key_t kRequests = static_cast<key_t>(0x92101081U);
constexpr key_t kNotifications = static_cast<key_t>(0x92101091U);

struct Datagram {
  std::string bytes;
  std::map<std::string, std::string> fields;
  std::string text;

  std::string operator[](const std::string& name) const {
    const auto found = fields.find(name);
    return found == fields.end() ? "" : found->second;
  }
  std::string what() const { return (*this)["way"] + ' ' + (*this)["kind"] + ' ' + (*this)["code"]; }
};

/// The port that traces go to, read without any code of the library.
class Reader {
 public:
  Reader() : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(54322);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval deadline{kDeadline.count(), 0};
    if (setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline) != 0 ||
        bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot read traces");
    }
  }
  ~Reader() { close(m_socket); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  std::size_t discardWaiting() {
    std::size_t count = 0;
    for (char byte = 0; recv(m_socket, &byte, 1, MSG_DONTWAIT) > 0;) ++count;
    return count;
  }

  Datagram next() {
    std::string bytes(65536, '\0');
    const ssize_t length = recv(m_socket, bytes.data(), bytes.size(), 0);
    if (length < 0) throw std::runtime_error("no trace came");
    bytes.resize(static_cast<std::size_t>(length));
    Datagram datagram{bytes, {}, bytes.substr(bytes.find('\n') + 1)};
    std::istringstream words(bytes.substr(0, bytes.find('\n')));
    std::string word;
    words >> word >> word;
    while (words >> word) datagram.fields[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    return datagram;
  }

 private:
  int m_socket;
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

  Reader reader;
};

TEST_F(TraceTest, ARequesterTracesItsRequestAndTheAnswer) {
  RawPeer browser(kRequests);
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  bool visible = false;
  Concurrently asking([&] { return Zunt_RYN_Plugin_GetVisible(1, 10, &visible); });
  const std::string request = browser.nextRequest().text;
  const Datagram sent = reader.next();
  const std::string start = "ryn-trace 1 pid=" + std::to_string(getpid()) + " tid=";
  EXPECT_EQ(start, sent.bytes.substr(0, start.size()));
  EXPECT_EQ("out request 216", sent.what());
  EXPECT_EQ("0x92101081", sent["queue"]);
  EXPECT_EQ(request, sent.text);
  EXPECT_EQ(std::to_string(request.size()), sent["length"]);
  EXPECT_NEAR(static_cast<double>(std::time(nullptr)), std::stod(sent["time"]), kDeadline.count());

  browser.reply("{\"visible\":1}");
  EXPECT_EQ(0, asking.result());
  const Datagram answered = reader.next();
  EXPECT_EQ("in reply 216", answered.what());
  EXPECT_EQ("{\"visible\":1}", answered.text);
  EXPECT_GE(std::stoll(answered["waited"]), 0);
  EXPECT_EQ("", answered["drop"]);
  EXPECT_EQ(std::stoull(sent["seq"]) + 1, std::stoull(answered["seq"]));
}

TEST_F(TraceTest, AServerTracesRequestsRepliesAndWhatItDrops) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetVisible = [](int, int, bool* visible) { *visible = true; };
  handlers.GetValue = [](int, int, int*) { throw std::runtime_error("host"); };
  handlers.GetKeyIcon = [](int, int, int, std::string& icon) { icon.assign(17000, 'i'); };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  RawPeer plugin(kRequests);
  plugin.ask("{\"t\":216,\"appid\":1}");
  const Datagram received = reader.next();
  EXPECT_EQ("in request 216", received.what());
  EXPECT_EQ("{\"t\":216,\"appid\":1}", received.text);
  const Datagram answered = reader.next();
  EXPECT_EQ("out reply 216", answered.what());
  EXPECT_GE(std::stoll(answered["handling"]), 0);
  EXPECT_NE(std::string::npos, answered.text.find("\"visible\" : 1"));
  EXPECT_EQ(received["tid"], answered["tid"]);
  EXPECT_NE(std::to_string(getpid()), answered["tid"]);

  struct Drop {
    const char* request;
    int events;  // the drop is the last of them
    const char* what;
    const char* reason;
  };
  for (const Drop& expected :
       {Drop{"not json", 1, "in unknown 0", "unparseable"},
        {R"({"t":240})", 1, "in unknown 240", "unknown-code"},  // a notification's code
        {R"({"t":{}})", 1, "in unknown 0", "threw"},
        {R"({"t":222,"appid":1})", 2, "in request 222", "threw"},
        {R"({"t":235,"code":403})", 2, "out reply 235", "reply-too-long"}}) {
    SCOPED_TRACE(expected.request);
    plugin.ask(expected.request);
    for (int i = 1; i < expected.events; ++i) reader.next();
    const Datagram drop = reader.next();
    EXPECT_EQ(expected.what, drop.what());
    EXPECT_EQ(expected.reason, drop["drop"]);
    EXPECT_EQ("0x92101081", drop["queue"]);
    if (expected.what[0] == 'i') {
      EXPECT_EQ(expected.request, drop.text);
    }
  }
}

TEST_F(TraceTest, OneWayMessagesAreTracedAtBothEnds) {
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  ASSERT_EQ(0, Zunt_RYN_Browser_SendAppLoaded(3, 4));
  EXPECT_EQ("out oneway 240", reader.next().what());
  const Datagram received = reader.next();
  EXPECT_EQ("in oneway 240", received.what());
  EXPECT_EQ("0x92101091", received["queue"]);
}

TEST_F(TraceTest, WhatARequesterCannotUseIsTracedWithTheReason) {
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  bool visible = false;
  EXPECT_EQ(-3, Zunt_RYN_Plugin_GetVisible(1, 2, &visible));
  EXPECT_EQ("out request 216", reader.next().what());
  Datagram drop = reader.next();
  EXPECT_EQ("not-sent", drop["drop"]);
  EXPECT_EQ("-3", drop["result"]);
  EXPECT_EQ(-3, Zunt_RYN_Plugin_ShowApp(1, 2));
  reader.next();
  EXPECT_EQ("not-sent", reader.next()["drop"]);

  RawPeer browser(kRequests);
  const auto ask = [&](auto answer) {
    Concurrently asking([&] { return Zunt_RYN_Plugin_GetVisible(1, 2, &visible); });
    browser.nextRequest();
    answer();
    EXPECT_EQ(-1, asking.result());
    reader.next();
    return reader.next();
  };
  const Datagram failure = ask([&] { browser.fail(); });
  EXPECT_EQ("in failure 216", failure.what());
  EXPECT_EQ("-1", failure["result"]);
  for (const char* unusable : {"{\"visible\":", "{\"visible\":[]}"}) {
    EXPECT_EQ("in reply 216", ask([&] { browser.reply(unusable); }).what());
    drop = reader.next();
    EXPECT_EQ("unparseable", drop["drop"]) << unusable;
    EXPECT_EQ("-1", drop["result"]);
  }
}

TEST_F(TraceTest, ATextThatDoesNotFitIsCutWithAMark) {
  RawQueue requests(kRequests);
  ASSERT_EQ(0, Zunt_RYN_Plugin_Initialize());
  EXPECT_EQ(-3, Zunt_RYN_Plugin_OpApp_SetStatus(std::string(5000, 's')));  // no reply queue
  const Datagram cut = reader.next();
  EXPECT_EQ(4096U, cut.bytes.size());
  EXPECT_EQ("sss[cut]", cut.bytes.substr(4096 - 8));
  EXPECT_GT(std::stoul(cut["length"]), 5000U);
  EXPECT_EQ("280", cut["code"]);
}

TEST_F(TraceTest, NothingIsSentWhileTheModuleIsOffOrListedForErrors) {
  RawQueue notifications(kNotifications);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  insert_modules_list("ryn_trace", 2);
  Zunt_RYN_Browser_SendAppLoaded(1, 1);
  clear_modules_list();
  Zunt_RYN_Browser_SendAppLoaded(2, 2);
  insert_modules_list("ryn_trace", 1);
  Zunt_RYN_Browser_SendAppUnloaded(3, 3);
  EXPECT_EQ("out oneway 241", reader.next().what());
}

TEST(TraceWithoutReaderTest, CallersNoticeNothing) {
  RawQueue notifications(kNotifications);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  insert_modules_list("ryn_trace", 1);
  const OutputCapture out(stdout);
  for (int i = 0; i < 3000; ++i) {
    errno = 0;
    ASSERT_EQ(0, Zunt_RYN_Browser_SendAppLoaded(i, 1));
    ASSERT_EQ(0, errno);
    notifications.take();
  }
  EXPECT_EQ("", out.text());
  clear_modules_list();
  Zunt_RYN_Browser_Finalize();
}

TEST_F(TraceTest, AReaderThatDoesNotReadDelaysNobodyAndSeesTheGap) {
  RawQueue notifications(kNotifications);
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  constexpr std::size_t kMessages = 3000;
  for (std::size_t i = 0; i < kMessages; ++i) {
    ASSERT_EQ(0, Zunt_RYN_Browser_SendAppLoaded(1, 1));
    notifications.take();
  }
  const auto first = std::stoull(reader.next()["seq"]);
  const std::size_t kept = reader.discardWaiting() + 1;
  EXPECT_LT(kept, kMessages);
  Zunt_RYN_Browser_SendAppUnloaded(1, 1);
  EXPECT_EQ(first + kMessages, std::stoull(reader.next()["seq"]));
}

}  // namespace
}  // namespace hbbtv_ryn::test
