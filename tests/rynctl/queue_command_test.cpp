#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "hbbtv_ryn/ipc.h"
#include "hbbtv_ryn/log.h"
#include "support/output_capture.h"
#include "tool.h"
#include "tools/support/deadline.h"
#include "tools/support/isolation.h"
#include "tools/support/raw_peer.h"

namespace hbbtv_ryn::test {
namespace {

/// What is shown of the requests, which come first.
Json::Value requestsShown() {
  const std::string lines = rynctl({"queues", "--json"}).out;
  return parsed(lines.substr(0, lines.find('\n')));
}

TEST(RynctlJsonTest, WhatIsShownIsAnObjectOnEachLine) {
  const Host browser("browser", "net");
  RawQueue(kNotificationKey).sendMessage(IPC_KIND_ONEWAY, "{}");
  const struct {
    Words command;
    const char* member;
  } commands[] = {
      {{"list"}, "code"},      {{"describe", "ShowApp"}, "request"},
      {{"queues"}, "state"},   {{"peek", "notifications"}, "kind"},
      {{"log"}, "modules"},    {{"log", "--watch"}, "modules"},
      {{"doctor"}, "verdict"}, {{"queues", "--watch", "0.1"}, "servers"},
  };
  for (auto each : commands) {
    each.command.emplace_back("--json");
    Tool tool(each.command);
    waitUntil("there is a line", [&] { return holds(tool.out(), "\n"); });
    tool.signal(SIGINT);
    const std::string line = tool.out().substr(0, tool.out().find('\n'));
    EXPECT_TRUE(parsed(line).isMember(each.member)) << line;
  }
  EXPECT_TRUE(holds(rynctl({"doctor", "--json"}).out, "\"fix\":\"start the plug-in process"));
  EXPECT_FALSE(parsed(rynctl({"describe", "SendTopMost", "--json"}).out).isMember("reply"));
}

TEST(RynctlQueuesTest, WatchingGoesOnUntilInterrupted) {
  const RawQueue requests(kRequestKey);
  Tool watch({"queues", "--watch", "0.1"});
  waitUntil("it is shown again", [&] { return occurrences(watch.out(), "requests  ") > 1; });
  watch.signal(SIGINT);
  EXPECT_EQ(0, watch.result().exit_code);
}

/// Waits out the second in which a read and a hang look alike.
void awaitState(const char* state) {
  waitUntil(state, [&] { return requestsShown()["state"] == state; });
}

TEST(RynctlQueuesTest, StatesFollowTheReaderAndTheDoctorKnowsWhatMendsThem) {
  if (kEmulated) GTEST_SKIP() << "the kernel knows programs by the name of their emulator";
  const Words show_app = {"send", "ShowApp", "appid=1", "orgid=2"};
  EXPECT_TRUE(holds(rynctl({"queues"}).out, "no queue exists"));
  auto browser = std::make_unique<Host>("browser");
  RawQueue requests(kRequestKey);
  EXPECT_EQ(0, rynctl(show_app).exit_code);
  requests.waitUntilEmpty();
  Json::Value shown = requestsShown();
  EXPECT_EQ("idle", shown["state"].asString());
  EXPECT_EQ("0x92101081", shown["key"].asString());
  EXPECT_EQ(1, shown["servers"].asInt());
  EXPECT_EQ(browser->pid(), shown["reader"]["pid"].asInt());  // not the thread that reads

  browser->halt();
  EXPECT_EQ(0, rynctl(show_app).exit_code);
  awaitState("STUCK");
  EXPECT_EQ(1, requestsShown()["messages"].asInt());
  EXPECT_TRUE(holds(rynctl({"queues"}).out, browser->text()));
  EXPECT_TRUE(
      holds(rynctl({"doctor"}).out, "-> look where it hangs: gdb -p " + std::to_string(browser->pid())));

  browser.reset();
  awaitState("ORPHANED");
  EXPECT_TRUE(holds(rynctl({"doctor"}).out, "-> rynctl reset --stale\n"));

  // This test is a browser that shows no life, and takes over.
  requests.take();
  EXPECT_TRUE(holds(rynctl({"queues"}).out, std::to_string(getpid()) + "), plain"));
  EXPECT_TRUE(holds(rynctl({"doctor"}).out, "which shows no life"));
  const Host next("browser");
  awaitState("idle");
}

TEST(RynctlQueuesTest, AQueueThatIsReadSlowlyIsBusyAndNotStuck) {
  IpcServer* server = nullptr;
  ASSERT_EQ(0, zunt_ipc_server_create(kRequestKey, 1, 1, IPC_CHUNK_SIZE, &server));
  zunt_ipc_server_register_callback(
      server,
      [](const IpcMessage*, void*) -> IpcMessage* {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return nullptr;
      },
      nullptr);
  RawQueue requests(kRequestKey);
  std::atomic<bool> done{false};
  std::thread sender([&] {
    while (!done) {
      if (requests.depth() < 8) requests.sendMessage(IPC_KIND_ONEWAY, "{}");
    }
  });
  waitUntil("messages wait", [&] { return requests.depth() > 4; });
  EXPECT_EQ("busy", requestsShown()["state"].asString());
  done = true;
  sender.join();
  zunt_ipc_server_destroy(server);
}

TEST(RynctlPeekTest, MessagesAreDecodedAndStayWhereTheyAre) {
  expectEnd({"peek", "requests"}, 3, "does not exist");
  RawQueue requests(kRequestKey);
  EXPECT_TRUE(holds(rynctl({"peek", "0x92101081"}).out, "nothing waits"));
  const std::string url(2500, 'u');
  requests.sendMessage(IPC_KIND_REQUEST, R"({"t":209,"appid":1,"url":")" + url + R"(","child":0})");
  requests.sendMessage(IPC_KIND_ONEWAY, "not \033 json");
  IpcRecord lying = rawRecord(IPC_KIND_ONEWAY, "x");
  lying.chunk_length = 99999;
  requests.send(lying);
  requests.sendBytes("short");
  IpcRecord first = rawRecord(IPC_KIND_ONEWAY, "beginning");
  first.last = 0;
  requests.send(first);
  requests.sendMessage(IPC_KIND_ONEWAY, R"({"t":212,"appid":1,"orgid":2})");
  const std::size_t depth = requests.depth();

  const std::string table = rynctl({"peek", "requests"}).out;
  EXPECT_EQ("1  request  3        CreateApp appid=1 url=" + url + " child=0\n" +
                "2  one-way  1        not \\x1b json\n"
                "3  one-way  1        (its chunk length is 99999)\n"
                "4  ?        1        (shorter than a record)\n"
                "5  one-way  1        (its last record is missing) beginning\n"
                "6  one-way  1        ShowApp appid=1 orgid=2\n",
            table.substr(table.find('\n') + 1));
  EXPECT_EQ(3, parsed(rynctl({"peek", "requests", "-n", "1", "--json"}).out)["records"].asInt());
  EXPECT_EQ(depth, requests.depth());
}

TEST(RynctlResetTest, OnlyWhatDeadProcessesLeftIsTakenOff) {
  RawPeer queues(kRequestKey);
  queues.notify("{}");  // by this process, which lives
  queues.reply("{}");
  const ToolResult result = rynctl({"reset", "--yes"});
  EXPECT_TRUE(holds(result.err, "1 on 'requests', 1 on 'request-replies'")) << result.err;

  EXPECT_EQ(0, rynctl({"send", "ShowApp", "appid=1", "orgid=2", "--force"}).exit_code);
  expectEnd({"reset"}, 2, "add --yes");
  EXPECT_EQ(2U, queues.requests.depth());
  EXPECT_EQ("took 2 off 'requests'\n", rynctl({"reset", "--stale", "--yes"}).out);
  EXPECT_EQ(0U, queues.requests.depth());
  EXPECT_EQ("took 1 off 'request-replies'\n", rynctl({"reset", "--all", "--yes"}).out);
  EXPECT_EQ(0U, queues.replies.depth());
}

TEST(RynctlDoctorTest, EachProblemComesWithWhatMendsIt) {
  if (!isIsolated()) GTEST_SKIP() << "kernel.msgmnb cannot be set here";
  setQueueCapacity(65536);
  const Host browser("browser");
  {
    const Host plugin("plugin");
    const ToolResult healthy = rynctl({"doctor"});
    EXPECT_EQ(0, healthy.exit_code) << healthy.out;
    EXPECT_TRUE(holds(healthy.out, "2 processes report its log modules")) << healthy.out;
  }
  RawQueue notifications(kNotificationKey);
  notifications.sendMessage(IPC_KIND_ONEWAY, "{}");  // nobody reads it
  notifications.setCapacity(16384);
  IpcServer* second = nullptr;
  ASSERT_EQ(0, zunt_ipc_server_create(kRequestKey, 1, 1, IPC_CHUNK_SIZE, &second));
  insert_modules_list("ryn_trace", 1);
  zunt_log_initialize(1);  // this process traces, and nobody watches
  setQueueCapacity(16384);

  const ToolResult result = rynctl({"doctor"});
  EXPECT_EQ(1, result.exit_code);
  for (const char* expected :
       {"-> sysctl -w kernel.msgmnb=65536\n", "'requests': 2 servers share it",
        "'notifications': 1 message waits for a plug-in process", "-> start the plug-in",
        "notifications: made with 16384 bytes", "stop both processes, then ipcrm -Q 0x92101091\n",
        "-> rynctl log off ryn_trace\n", "\n5 things are wrong.\n"}) {
    EXPECT_TRUE(holds(result.out, expected)) << expected << "\n" << result.out;
  }
  clear_modules_list();
  zunt_ipc_server_destroy(second);
}

}  // namespace
}  // namespace hbbtv_ryn::test
