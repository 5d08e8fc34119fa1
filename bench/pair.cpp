#include "pair.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <stdexcept>

#include "check.h"

namespace bench {
namespace {

// A flood that waits for 100 ms with every fifteenth record takes two minutes and a half.
constexpr unsigned kRunSeconds = 300;
constexpr int kFailed = 1;

void writeSetting(const char* path, const std::string& value) {
  std::ofstream file(path);
  file << value << std::flush;
  if (!file) throw std::runtime_error(std::string("cannot write ") + path);
}

SharedPage* mapPage() {
  void* memory =
      mmap(nullptr, sizeof(SharedPage), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) check(-1, "mmap");
  return new (memory) SharedPage;
}

void pin(int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<std::size_t>(cpu), &set);
  check(sched_setaffinity(0, sizeof set, &set), "sched_setaffinity");
}

/// Standard output of this process goes to a file in memory: the channel reports there that a queue is
/// full.
class OutputCatcher {
 public:
  OutputCatcher() : file_(check(memfd_create("output", 0), "memfd_create")) {
    check(dup2(file_, STDOUT_FILENO), "dup2");
  }

  [[nodiscard]] std::uint64_t fullQueuePauses() const {
    check(std::fflush(stdout), "fflush");
    std::string text(static_cast<std::size_t>(check(lseek(file_, 0, SEEK_END), "lseek")), '\0');
    check(pread(file_, text.data(), text.size(), 0), "pread");
    std::uint64_t pauses = 0;
    constexpr const char* kLine = "###### msgsnd EAGAIN";
    for (std::size_t at = text.find(kLine); at != std::string::npos; at = text.find(kLine, at + 1))
      ++pauses;
    return pauses;
  }

 private:
  int file_;
};

/// A child that is killed with this object and with this process.
class Receiver {
 public:
  Receiver(Work work, Transport& transport, SharedPage& page) : process_(check(fork(), "fork")) {
    if (process_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      check(dup2(check(open("/dev/null", O_WRONLY), "open"), STDOUT_FILENO), "dup2");
      transport.receive(work, page);
    } catch (const std::exception& error) {
      std::cerr << "receiver: " << error.what() << '\n';
    }
    _exit(kFailed);
  }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;
  ~Receiver() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  [[nodiscard]] pid_t process() const { return process_; }

 private:
  pid_t process_;
};

// Each run has queues that nobody has used, with the size asked for.
void prepare(const Conditions& conditions) {
  check(unshare(CLONE_NEWIPC), "unshare");
  writeSetting("/proc/sys/kernel/msgmnb", std::to_string(conditions.queue_bytes));
  // The defaults of POSIX queues, ten messages of 8192 bytes, hold neither a burst nor the sweep.
  writeSetting("/proc/sys/fs/mqueue/msg_max", "16");
  writeSetting("/proc/sys/fs/mqueue/msgsize_max", "16384");
  if (conditions.pinned) pin(conditions.cpu);
}

void runSender(const Row& row, const Conditions& conditions, const Amount& amount,
               const std::string& directory, SharedPage& page) {
  prepare(conditions);
  const std::unique_ptr<Transport> transport = row.make(directory);
  const Receiver receiver(conditions.work, *transport, page);
  page.waitForReceiver();
  const OutputCatcher output;
  transport->startSender(conditions.work);
  measure(conditions.work, amount, *transport, receiver.process(), page);
  page.outcome.full_queue_pauses = output.fullQueuePauses();
}

std::string describeEnd(int status) {
  if (WIFSIGNALED(status)) return std::string("ended by signal: ") + strsignal(WTERMSIG(status));
  return "failed";
}

}  // namespace

void enterPrivateNamespace() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  check(unshare(user == 0 ? CLONE_NEWIPC : CLONE_NEWUSER | CLONE_NEWIPC), "unshare");
  if (user == 0) return;
  // Root of its own user namespace, and so allowed to make further namespaces and to set their limits.
  writeSetting("/proc/self/setgroups", "deny");
  writeSetting("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
  writeSetting("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

PairRun::PairRun(const Row& row, const Conditions& conditions, const Amount& amount,
                 const std::string& directory)
    : row_(row), conditions_(conditions), directory_(directory + "/XXXXXX"), page_(mapPage()) {
  if (mkdtemp(directory_.data()) == nullptr) check(-1, "mkdtemp");
  sender_ = check(fork(), "fork");
  if (sender_ != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  alarm(kRunSeconds);
  int result = 0;
  try {
    runSender(row_, conditions_, amount, directory_, *page_);
  } catch (const std::exception& error) {
    std::cerr << row_.name << ": " << error.what() << '\n';
    result = kFailed;
  }
  _exit(result);
}

PairRun::~PairRun() {
  if (sender_ != 0) {
    kill(sender_, SIGKILL);
    waitpid(sender_, nullptr, 0);
  }
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
  munmap(page_, sizeof(SharedPage));
}

Run PairRun::finish() {
  int status = 0;
  check(waitpid(sender_, &status, 0), "waitpid");
  sender_ = 0;
  Run run;
  if (status != 0) run.failure = describeEnd(status);
  run.outcome = page_->outcome;
  run.samples.assign(page_->samples.begin(),
                     page_->samples.begin() + static_cast<std::ptrdiff_t>(page_->sample_count));
  return run;
}

}  // namespace bench
