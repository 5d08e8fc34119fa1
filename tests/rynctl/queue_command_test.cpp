#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>
#include <sys/wait.h>

#include <csignal>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "support/child_process.h"
#include "support/deadline.h"
#include "support/isolation.h"
#include "support/raw_peer.h"
#include "tool.h"

namespace hbbtv_ryn::test {
namespace {

constexpr key_t kRequests = static_cast<key_t>(0x92101081U);
constexpr key_t kReplies = static_cast<key_t>(0x92101082U);
constexpr key_t kNotifications = static_cast<key_t>(0x92101091U);

const ChildRole kReportingHost("reporting host", [](Parent& parent) {
  zunt_log_initialize(1);
  const bool browser = parent.argument(0) == "browser";
  const int result = browser ? Zunt_RYN_Browser_Initialize() : Zunt_RYN_Plugin_Initialize();
  parent.say("ready");
  parent.hear();
  return result;
});

const ChildRole kSender("sender", [](Parent& parent) {
  RawQueue(kRequests).sendMessage(kRawOneWay, R"({"t":212,"appid":1,"orgid":2})");
  parent.say("sent");
  parent.hear();
  return 0;
});

struct ReportingHost : ChildProcess {
  explicit ReportingHost(const std::string& side) : ChildProcess(kReportingHost, {side}) { hear(); }
};

bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

Json::Value parsed(const std::string& line) {
  Json::Value value;
  EXPECT_TRUE(Json::Reader().parse(line, value)) << line;
  return value;
}

/// By queue.
std::map<std::string, Json::Value> queues() {
  std::map<std::string, Json::Value> result;
  std::istringstream lines(rynctl({"queues", "--json"}).out);
  for (std::string line; std::getline(lines, line);) {
    const Json::Value value = parsed(line);
    result[value["queue"].asString()] = value;
  }
  return result;
}

std::string stateOfRequests() {
  return queues()["requests"]["state"].asString();
}

void stopProcess(const ChildProcess& child) {
  kill(child.pid(), SIGSTOP);
  int status = 0;
  waitpid(child.pid(), &status, WUNTRACED);
}

/// Waits out the second in which a read and a hang look alike.
void awaitState(const std::string& state) {
  waitUntil(("the requests are " + state).c_str(), [&] { return stateOfRequests() == state; });
}

TEST(RynctlQueuesTest, StatesFollowTheReader) {
  if (isEmulated()) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  EXPECT_TRUE(holds(rynctl({"queues"}).out, "no queue exists"));
  auto browser = std::make_unique<ReportingHost>("browser");
  auto state = queues()["requests"];
  EXPECT_EQ("idle", state["state"].asString());
  EXPECT_EQ(1, state["servers"].asInt());
  EXPECT_EQ("0x92101081", state["key"].asString());

  stopProcess(*browser);
  RawQueue(kRequests).sendMessage(kRawOneWay, R"({"t":212,"appid":1,"orgid":2})");
  awaitState("STUCK");
  state = queues()["requests"];
  EXPECT_EQ(1, state["messages"].asInt());
  EXPECT_EQ(getpid(), state["writer"]["pid"].asInt());
  EXPECT_EQ("rynctl_test", state["writer"]["process"].asString());
  const std::string table = rynctl({"queues"}).out;
  EXPECT_EQ(0, table.find("QUEUE"));
  EXPECT_TRUE(holds(table, "rynctl_test (" + std::to_string(browser->pid()) + ")")) << table;

  browser.reset();
  awaitState("ORPHANED");
  const ReportingHost next("browser");
  RawQueue(kRequests).waitUntilEmpty();
  EXPECT_EQ("idle", stateOfRequests());
}

TEST(RynctlQueuesTest, AThreadThatReadsIsShownAsItsProcess) {
  ASSERT_EQ(0, Zunt_RYN_Browser_Initialize());
  RawPeer plugin(kRequests);
  plugin.ask(R"({"t":216,"appid":1,"orgid":2})");
  EXPECT_EQ(getpid(), queues()["requests"]["reader"]["pid"].asInt());
  Zunt_RYN_Browser_Finalize();
}

TEST(RynctlQueuesTest, WatchingGoesOnUntilInterrupted) {
  Tool tool({"queues", "--watch", "0.1"});
  waitUntil("it was shown twice", [&] {
    return tool.out().find("no queue", tool.out().find("no queue") + 1) != std::string::npos;
  });
  tool.signal(SIGINT);
  EXPECT_EQ(0, tool.result().exit_code);
}

TEST(RynctlPeekTest, MessagesAreDecodedAndStayWhereTheyAre) {
  EXPECT_EQ(3, rynctl({"peek", "requests"}).exit_code);
  EXPECT_EQ(2, rynctl({"peek", "request"}).exit_code);
  RawQueue requests(kRequests);
  EXPECT_TRUE(holds(rynctl({"peek", "0x92101081"}).out, "nothing waits"));
  const std::string url(2500, 'u');
  requests.sendMessage(kRawRequest,
                       R"({"t":209,"appid":1,"orgid":2,"url":")" + url + R"(","child":0,"opapp":0})");
  requests.sendMessage(kRawOneWay, "not \033 json");
  RawRecord lying = rawRecord(kRawOneWay, "x");
  lying.chunk_length = 99999;
  requests.send(lying);
  requests.sendBytes("short");
  RawRecord first = rawRecord(kRawOneWay, "beginning");
  first.last = 0;
  requests.send(first);
  requests.sendMessage(kRawOneWay, R"({"t":212,"appid":1,"orgid":2})");
  const std::size_t depth = requests.depth();

  const std::string table = rynctl({"peek", "requests"}).out;
  EXPECT_TRUE(holds(table, "CreateApp appid=1 orgid=2 url=" + url + " child=0 opapp=0\n")) << table;
  EXPECT_TRUE(holds(table, "1  request  3        CreateApp")) << table;
  EXPECT_TRUE(holds(table, "not \\x1b json")) << table;
  EXPECT_TRUE(holds(table, "3  one-way  1        (its chunk length is 99999)\n")) << table;
  EXPECT_TRUE(holds(table, "4  ?        1        (shorter than a record)\n")) << table;
  EXPECT_TRUE(holds(table, "(its last record is missing) beginning")) << table;
  EXPECT_TRUE(holds(table, "6  one-way  1        ShowApp appid=1 orgid=2\n")) << table;
  EXPECT_EQ(depth, requests.depth());

  const Json::Value only = parsed(rynctl({"peek", "requests", "-n", "1", "--json"}).out);
  EXPECT_EQ(3, only["records"].asInt());
  EXPECT_EQ("request", only["kind"].asString());
}

TEST(RynctlResetTest, OnlyWhatDeadProcessesLeftIsTakenOff) {
  RawQueue requests(kRequests);
  RawQueue replies(kReplies);
  auto sender = std::make_unique<ChildProcess>(kSender);
  sender->hear();
  replies.sendMessage(kRawReply, "{}");  // by this process, which lives, for the sender, which lives
  ToolResult result = rynctl({"reset", "--yes"});
  EXPECT_EQ(0, result.exit_code);
  EXPECT_EQ("nothing to take off\n", result.out);
  EXPECT_TRUE(holds(result.err,
                    "kept, since a living process sent or reads them: 1 on 'requests', 1 on "
                    "'request-replies'"))
      << result.err;

  sender.reset();
  result = rynctl({"reset"});
  EXPECT_EQ(2, result.exit_code);
  EXPECT_TRUE(holds(result.err, "add --yes")) << result.err;
  EXPECT_EQ(1U, requests.depth());

  EXPECT_EQ("took 1 off 'requests'\n", rynctl({"reset", "--stale", "--yes"}).out);
  EXPECT_EQ(0U, requests.depth());
  EXPECT_EQ(1U, replies.depth());
  EXPECT_EQ("took 1 off 'request-replies'\n", rynctl({"reset", "--all", "--yes"}).out);
  EXPECT_EQ(0U, replies.depth());
  EXPECT_EQ(2, rynctl({"reset", "--all", "--stale"}).exit_code);
}

/// The problems, each with what mends it.
std::map<std::string, std::string> problems(int exit_code) {
  const ToolResult result = rynctl({"doctor", "--json"});
  EXPECT_EQ(exit_code, result.exit_code) << result.out;
  std::map<std::string, std::string> wrong;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    const Json::Value value = parsed(line);
    if (value["verdict"] == "WRONG") wrong[value["text"].asString()] = value["mend"].asString();
  }
  return wrong;
}

TEST(RynctlDoctorTest, AHealthySetIsSaidToBeHealthy) {
  if (!isIsolated()) GTEST_SKIP() << "kernel.msgmnb cannot be set here";
  setQueueCapacity(65536);
  const ReportingHost browser("browser");
  const ReportingHost plugin("plugin");
  const ToolResult result = rynctl({"doctor"});
  EXPECT_EQ(0, result.exit_code) << result.out;
  EXPECT_TRUE(holds(result.out, "Nothing is wrong.\n")) << result.out;
  EXPECT_TRUE(holds(result.out, "2 processes report its log modules")) << result.out;
}

TEST(RynctlDoctorTest, EachProblemComesWithWhatMendsIt) {
  if (!isIsolated()) GTEST_SKIP() << "kernel.msgmnb cannot be set here";
  setQueueCapacity(65536);
  RawQueue notifications(kNotifications);
  notifications.sendMessage(kRawOneWay, "{}");  // nobody reads it
  const ReportingHost browser("browser");
  IpcServer* second = nullptr;
  ASSERT_EQ(0, zunt_ipc_server_create(kRequests, 1, 1, IPC_CHUNK_SIZE, &second));
  stopProcess(browser);
  notifications.setCapacity(16384);
  insert_modules_list("ryn_trace", 1);
  zunt_log_initialize(1);  // this process traces, and nobody watches
  setQueueCapacity(16384);

  const auto wrong = problems(1);
  const auto mendOf = [&](const std::string& part) {
    for (const auto& [text, mend] : wrong) {
      if (holds(text, part)) return mend;
    }
    return std::string("not found");
  };
  EXPECT_EQ("sysctl -w kernel.msgmnb=65536", mendOf("kernel.msgmnb is 16384"));
  EXPECT_TRUE(holds(mendOf("'requests': 2 servers share it"), "end all but one"));
  EXPECT_TRUE(holds(mendOf("'notifications': 1 message waits for a plug-in process"), "start the plug-in"));
  EXPECT_TRUE(holds(mendOf("notifications: made with 16384 bytes"), "ipcrm -Q 0x92101091"));
  EXPECT_EQ("rynctl log off ryn_trace", mendOf("nobody watches"));
  EXPECT_EQ(5U, wrong.size());
  clear_modules_list();
  zunt_ipc_server_destroy(second);
}

TEST(RynctlDoctorTest, APeerThatHangsAndWhatTheDeadLeftAreFound) {
  auto browser = std::make_unique<ReportingHost>("browser");
  stopProcess(*browser);
  {
    ChildProcess sender(kSender);
    sender.hear();
  }
  awaitState("STUCK");
  EXPECT_TRUE(holds(rynctl({"doctor"}).out, "gdb -p " + std::to_string(browser->pid())));
  browser.reset();
  EXPECT_TRUE(holds(rynctl({"doctor"}).out, "-> rynctl reset --stale\n"));
}

}  // namespace
}  // namespace hbbtv_ryn::test
