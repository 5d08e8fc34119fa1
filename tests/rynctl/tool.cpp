#include "tool.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <system_error>

#include "hbbtv_ryn/browser.h"
#include "hbbtv_ryn/log.h"
#include "hbbtv_ryn/plugin.h"
#include "tools/support/deadline.h"

namespace hbbtv_ryn::test {
namespace {

const ChildRole kHost("host", [](Parent& parent) {
  ZuntRynBrowserEventCallback handlers{};
  handlers.GetVisible = [](int appid, int orgid, bool* visible) { *visible = appid == 1 && orgid == 10; };
  handlers.GetValue = [](int, int, int*) { pause(); };
  handlers.GetKeyLabel = [](int, int, int, std::string&) { throw 1; };
  Zunt_RYN_Browser_RegisterCallback(handlers, nullptr);
  insert_modules_list(parent.argument(1).c_str(), 1);
  zunt_log_initialize(1);
  const bool browser = parent.argument(0) == "browser";
  const int result = browser ? Zunt_RYN_Browser_Initialize() : Zunt_RYN_Plugin_Initialize();
  parent.say(std::to_string(result));
  for (;;) parent.say(std::to_string(zunt_log_getLevel(parent.hear().c_str())));
  return 0;
});

}  // namespace

Tool::Tool(const Words& arguments, const std::string& before) {
  Words words = {"/bin/sh", "-c", before + "exec $HBBTV_RYN_EMULATOR \"$@\"", "sh", RYNCTL};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (auto& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out_.descriptor(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err_.descriptor(), STDERR_FILENO);
  const int error = posix_spawn(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::system_error(error, std::generic_category(), "cannot start rynctl");
}

Tool::~Tool() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

ToolResult Tool::result() {
  int status = 0;
  waitUntil("rynctl ends", [&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
  pid_ = -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), out(), err()};
}

void expectEnd(const ToolResult& result, int exit_code, const std::string& reason) {
  EXPECT_EQ(exit_code, result.exit_code) << result.err;
  EXPECT_TRUE(holds(result.err, reason)) << result.err;
  EXPECT_EQ("", result.out);
}

Host::Host(const std::string& side, const std::string& modules) : ChildProcess(kHost, {side, modules}) {
  EXPECT_EQ("0", hear());
}

int Host::levelOf(const std::string& module) {
  say(module);
  return std::stoi(hear());
}

Json::Value parsed(const std::string& json) {
  Json::Value value;
  EXPECT_TRUE(Json::Reader().parse(json, value)) << json;
  return value;
}

}  // namespace hbbtv_ryn::test
