#include "tool.h"

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <system_error>

#include "support/deadline.h"

namespace hbbtv_ryn::test {
namespace {

void check(bool good, const char* what) {
  if (!good) throw std::system_error(errno, std::generic_category(), what);
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (auto& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

std::vector<std::string> commandFor(const std::vector<std::string>& arguments) {
  std::vector<std::string> command;
  if (const char* emulator = std::getenv("HBBTV_RYN_EMULATOR")) {
    std::istringstream words(emulator);
    for (std::string word; words >> word;) command.push_back(word);
  }
  command.emplace_back(RYNCTL);
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& added) {
  std::vector<std::string> result = added;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    if (text.rfind("NO_COLOR=", 0) != 0 && text.rfind("TERM=", 0) != 0) result.push_back(text);
  }
  return result;
}

}  // namespace

Tool::Tool(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
           Output output)
    : m_err(memfd_create("standard error", MFD_CLOEXEC)) {
  std::array<int, 2> ends{};
  check(output == Output::Terminal ? openpty(ends.data(), ends.data() + 1, nullptr, nullptr, nullptr) == 0
                                   : pipe2(ends.data(), O_CLOEXEC) == 0,
        "cannot take the tool's output");
  m_out = ends[0];
  fcntl(m_out, F_SETFD, FD_CLOEXEC);
  fcntl(m_out, F_SETFL, O_NONBLOCK);

  auto command = commandFor(arguments);
  auto variables = environmentWith(environment);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, m_err, STDERR_FILENO);
  errno = posix_spawnp(&m_pid, command.front().c_str(), &actions, nullptr, pointers(command).data(),
                       pointers(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  check(errno == 0 || m_pid > 0, "cannot start rynctl");
}

Tool::~Tool() {
  if (m_pid > 0) {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
  close(m_out);
  close(m_err);
}

void Tool::signal(int number) const {
  check(kill(m_pid, number) == 0, "cannot signal rynctl");
}

const std::string& Tool::out() {
  std::array<char, 4096> piece{};
  for (ssize_t length = 0; (length = read(m_out, piece.data(), piece.size())) > 0;) {
    m_text.append(piece.data(), static_cast<std::size_t>(length));
  }
  return m_text;
}

std::string Tool::err() const {
  std::string text(static_cast<std::size_t>(lseek(m_err, 0, SEEK_END)), '\0');
  check(pread(m_err, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
        "cannot read the errors");
  return text;
}

ToolResult Tool::result() {
  int status = 0;
  waitUntil("rynctl ends", [&] {
    out();
    return waitpid(m_pid, &status, WNOHANG) == m_pid;
  });
  m_pid = -1;
  out();
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), m_text, err()};
}

ToolResult rynctl(const std::vector<std::string>& arguments, const std::vector<std::string>& environment) {
  return Tool(arguments, environment).result();
}

}  // namespace hbbtv_ryn::test
