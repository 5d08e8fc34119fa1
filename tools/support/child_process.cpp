#include "tools/support/child_process.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tools/support/deadline.h"

namespace hbbtv_ryn::test {
namespace {

constexpr int kChildSocket = 3;
const std::string kRoleOption = "--child-role=";
constexpr std::size_t kMaxText = 131072;

std::map<std::string, ChildRole::Body>& roles() {
  static std::map<std::string, ChildRole::Body> by_name;
  return by_name;
}

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void sendText(int socket, const std::string& text) {
  if (send(socket, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
    fail("cannot speak to the other process");
  }
}

std::string receiveText(int socket) {
  std::string text(kMaxText, '\0');
  const ssize_t length = recv(socket, text.data(), text.size(), 0);
  if (length < 0) fail("cannot hear the other process");
  if (length == 0) throw std::runtime_error("the other process has ended");
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::vector<std::string> commandFor(const ChildRole& role, const std::vector<std::string>& arguments) {
  std::vector<std::string> command;
  if (const char* emulator = std::getenv("HBBTV_RYN_EMULATOR")) {
    std::istringstream words(emulator);
    for (std::string word; words >> word;) command.push_back(word);
  }
  command.push_back(std::filesystem::read_symlink("/proc/self/exe"));
  command.push_back(kRoleOption + role.name());
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

}  // namespace

void Parent::say(const std::string& text) const {
  sendText(socket_, text);
}

std::string Parent::hear() const {
  return receiveText(socket_);
}

ChildRole::ChildRole(const char* name, Body body) : name_(name) {
  if (!roles().emplace(name, body).second) throw std::logic_error(std::string("two roles named ") + name);
}

ChildProcess::ChildProcess(const ChildRole& role, const std::vector<std::string>& arguments,
                           int error_output) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) fail("socketpair");
  socket_ = ends[0];

  auto command = commandFor(role, arguments);
  std::vector<char*> argv;
  argv.reserve(command.size() + 1);
  for (auto& word : command) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    dup2(ends[1], kChildSocket);
    dup2(error_output, STDERR_FILENO);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  close(ends[1]);
  if (pid_ < 0) fail("fork");
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(socket_);
}

void ChildProcess::say(const std::string& text) const {
  sendText(socket_, text);
}

std::string ChildProcess::hear() const {
  pollfd readable{socket_, POLLIN, 0};
  const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(kDeadline);
  if (poll(&readable, 1, static_cast<int>(limit.count())) <= 0) {
    throw std::runtime_error("the child said nothing");
  }
  return receiveText(socket_);
}

int ChildProcess::wait() {
  int status = 0;
  waitUntil("the child ended", [&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool ChildProcess::lives() const {
  siginfo_t ended{};
  return waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         ended.si_pid == 0;
}

void ChildProcess::halt() const {
  signal(SIGSTOP);
  int status = 0;
  waitUntil("the child stood still",
            [&] { return waitpid(pid_, &status, WNOHANG | WUNTRACED) == pid_ && WIFSTOPPED(status); });
}

void ChildProcess::signal(int signal) const {
  if (::kill(pid_, signal) != 0) fail("kill");
}

std::optional<int> runAsChild(int argc, char** argv) {
  if (argc < 2 || std::string(argv[1]).rfind(kRoleOption, 0) != 0) return std::nullopt;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const std::string name = std::string(argv[1]).substr(kRoleOption.size());
  Parent parent(kChildSocket, std::vector<std::string>(argv + 2, argv + argc));
  try {
    return roles().at(name)(parent);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "child %s: %s\n", name.c_str(), error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace hbbtv_ryn::test
