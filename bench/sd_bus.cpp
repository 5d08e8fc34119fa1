#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "check.h"
#include "peer_transport.h"

namespace bench {
namespace {

constexpr const char* kBusName = "ryn.bench.Receiver";
constexpr const char* kPath = "/ryn/bench";
constexpr const char* kInterface = "ryn.bench.Messages";
constexpr const char* kMember = "Message";

class SdBus : public Link {
 public:
  void exchange(const std::string& request, std::string& reply) final {
    sd_bus_message* call = newCall(request);
    sd_bus_message* answered = nullptr;
    checkErrno(sd_bus_call(bus_, call, 0, nullptr, &answered), "sd_bus_call");
    sd_bus_message_unref(call);
    const char* text = nullptr;
    checkErrno(sd_bus_message_read(answered, "s", &text), "sd_bus_message_read");
    reply = text;
    sd_bus_message_unref(answered);
  }

  void post(const std::string& message) final {
    sd_bus_message* call = newCall(message);
    checkErrno(sd_bus_message_set_expect_reply(call, 0), "sd_bus_message_set_expect_reply");
    checkErrno(sd_bus_send(bus_, call, nullptr), "sd_bus_send");
    sd_bus_message_unref(call);
    // Costs a comparison unless the socket was full and the message had to be kept.
    checkErrno(sd_bus_flush(bus_), "sd_bus_flush");
  }

  void serve() final {
    for (;;) {
      const int worked = checkErrno(sd_bus_process(bus_, nullptr), "sd_bus_process");
      if (failure_) std::rethrow_exception(failure_);
      if (worked == 0) {
        checkErrno(sd_bus_wait(bus_, UINT64_MAX), "sd_bus_wait");
      }
    }
  }

 protected:
  explicit SdBus(const char* destination) : destination_(destination) {}

  void addObject() {
    checkErrno(sd_bus_add_object(bus_, nullptr, kPath, &SdBus::onMessage, this), "sd_bus_add_object");
  }

  sd_bus* bus_ = nullptr;

 private:
  sd_bus_message* newCall(const std::string& text) {
    sd_bus_message* call = nullptr;
    checkErrno(sd_bus_message_new_method_call(bus_, &call, destination_, kPath, kInterface, kMember),
               "sd_bus_message_new_method_call");
    checkErrno(sd_bus_message_append(call, "s", text.c_str()), "sd_bus_message_append");
    return call;
  }

  // An exception must not cross the frames of a C library: serve() throws it again.
  static int onMessage(sd_bus_message* message, void* self, sd_bus_error*) {
    auto& link = *static_cast<SdBus*>(self);
    try {
      const char* text = nullptr;
      checkErrno(sd_bus_message_read(message, "s", &text), "sd_bus_message_read");
      if (link.respond_(text, link.reply_)) {
        checkErrno(sd_bus_reply_method_return(message, "s", link.reply_.c_str()),
                   "sd_bus_reply_method_return");
      }
    } catch (const std::exception&) {
      link.failure_ = std::current_exception();
    }
    return 1;
  }

  const char* destination_;
  std::exception_ptr failure_;
  std::string reply_;
};

class PeerToPeer final : public SdBus {
 public:
  PeerToPeer() : SdBus(nullptr) {
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, sockets_.data()),
          "socketpair");
    checkErrno(sd_id128_randomize(&id_), "sd_id128_randomize");
  }

  void openReceiver() override {
    use(sockets_[0]);
    checkErrno(sd_bus_set_server(bus_, 1, id_), "sd_bus_set_server");
    addObject();
    checkErrno(sd_bus_start(bus_), "sd_bus_start");
  }
  void openSender() override {
    use(sockets_[1]);
    checkErrno(sd_bus_start(bus_), "sd_bus_start");
  }

 private:
  void use(int socket) {
    checkErrno(sd_bus_new(&bus_), "sd_bus_new");
    checkErrno(sd_bus_set_fd(bus_, socket, socket), "sd_bus_set_fd");
  }

  std::array<int, 2> sockets_{};
  sd_id128_t id_{};
};

// A bus daemon of this run alone, without services, and open to its own user only.
class ThroughDaemon final : public SdBus {
 public:
  explicit ThroughDaemon(const std::string& directory)
      : SdBus(kBusName), address_("unix:path=" + directory + "/bus") {
    const std::string configuration = directory + "/bus.conf";
    std::ofstream(configuration) << "<busconfig><type>session</type><listen>" << address_
                                 << "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                    "<allow send_destination=\"*\"/><allow own=\"*\"/>"
                                    "<allow receive_sender=\"*\"/></policy></busconfig>\n";
    start("--config-file=" + configuration, directory + "/bus.log");
  }
  ~ThroughDaemon() override {
    kill(daemon_, SIGKILL);
    waitpid(daemon_, nullptr, 0);
  }

  void openReceiver() override {
    connect();
    addObject();
    checkErrno(sd_bus_request_name(bus_, kBusName, 0), "sd_bus_request_name");
  }
  void openSender() override { connect(); }
  [[nodiscard]] pid_t helper() const override { return daemon_; }

 private:
  // The daemon prints its address once it listens.
  void start(const std::string& configuration, const std::string& log) {
    std::array<int, 2> ends{};
    check(pipe(ends.data()), "pipe");
    daemon_ = check(fork(), "fork");
    if (daemon_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      // It warns of limits that it may not raise, which does not matter here.
      dup2(::open(log.c_str(), O_CREAT | O_WRONLY, 0600), STDERR_FILENO);
      const std::string print = "--print-address=" + std::to_string(ends[1]);
      execlp("dbus-daemon", "dbus-daemon", "--nofork", "--nopidfile", "--nosyslog", configuration.c_str(),
             print.c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    char first = 0;
    const ssize_t size = read(ends[0], &first, 1);
    close(ends[0]);
    if (size == 1) return;
    std::ostringstream said;
    said << std::ifstream(log).rdbuf();
    throw std::runtime_error("dbus-daemon (package dbus-daemon) does not start: " + said.str());
  }

  void connect() {
    checkErrno(sd_bus_new(&bus_), "sd_bus_new");
    checkErrno(sd_bus_set_address(bus_, address_.c_str()), "sd_bus_set_address");
    checkErrno(sd_bus_set_bus_client(bus_, 1), "sd_bus_set_bus_client");
    checkErrno(sd_bus_start(bus_), "sd_bus_start");
  }

  std::string address_;
  pid_t daemon_ = 0;
};

}  // namespace

std::unique_ptr<Link> makeSdBusPeerToPeer() {
  return std::make_unique<PeerToPeer>();
}

std::unique_ptr<Link> makeSdBusThroughDaemon(const std::string& directory) {
  return std::make_unique<ThroughDaemon>(directory);
}

}  // namespace bench
