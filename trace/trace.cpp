#include "trace/trace.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "base/cancellation_off.h"
#include "base/loopback.h"

namespace hbbtv_ryn::trace {

ModuleSwitch g_switch{kModule};

namespace {

constexpr int kNoSocket = -1;

// One per process, made by the first event and kept until the process ends.
std::atomic<int> g_socket{kNoSocket};
// Counts the events of the process, those that could not be sent included.
std::atomic<std::uint64_t> g_sequence{0};

int openSocket() {
  const int opened = openLoopbackSocket();
  if (opened == kNoSocket) return kNoSocket;
  int first = kNoSocket;
  if (g_socket.compare_exchange_strong(first, opened)) return opened;
  close(opened);  // another thread was faster
  return first;
}

std::int64_t microseconds(clockid_t clock, std::int64_t* rest = nullptr) {
  constexpr std::int64_t kPerSecond = 1000000;
  timespec time{};
  clock_gettime(clock, &time);
  const std::int64_t part = time.tv_nsec / 1000;
  if (rest == nullptr) return static_cast<std::int64_t>(time.tv_sec) * kPerSecond + part;
  *rest = part;
  return static_cast<std::int64_t>(time.tv_sec);
}

const char* nameOf(Way way) {
  return kWayNames[static_cast<std::size_t>(way)];
}
const char* nameOf(Kind kind) {
  return kKindNames[static_cast<std::size_t>(kind)];
}
const char* nameOf(Drop drop) {
  return kDropNames[static_cast<std::size_t>(drop)];
}

// The line in front of the text. Every field is bounded, so that the capacity below holds it.
class Header {
 public:
  explicit Header(const Event& event) {
    std::int64_t part = 0;
    const std::int64_t seconds = microseconds(CLOCK_REALTIME, &part);
    const std::uint64_t sequence = g_sequence.fetch_add(1, std::memory_order_relaxed) + 1;
    add("%s pid=%d tid=%ld seq=%" PRIu64 " time=%" PRId64 ".%06" PRId64
        " queue=0x%08x way=%s kind=%s code=%d length=%zu",
        kMagic, static_cast<int>(getpid()), syscall(SYS_gettid), sequence, seconds, part,
        static_cast<unsigned>(event.queue), nameOf(event.way), nameOf(event.kind), event.code,
        event.text.size());
    if (event.waited != kNotMeasured) add(" waited=%" PRId64, event.waited);
    if (event.handling != kNotMeasured) add(" handling=%" PRId64, event.handling);
    if (event.drop != Drop::kNone) add(" drop=%s", nameOf(event.drop));
    if (event.result != 0) add(" result=%d", event.result);
    add("\n");
  }

  iovec bytes() { return {text_, used_}; }

 private:
  // NOLINTNEXTLINE(cert-dcl50-cpp): vsnprintf() formats it
  __attribute__((format(printf, 2, 3))) void add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not see va_start() here
    const int length = std::vsnprintf(text_ + used_, sizeof text_ - used_, format, arguments);
    va_end(arguments);
    if (length > 0) used_ = std::min(used_ + static_cast<std::size_t>(length), sizeof text_ - 1);
  }

  static constexpr std::size_t kCapacity = 512;
  static_assert(kCapacity < kMaxDatagram / 2);

  char text_[kCapacity];
  std::size_t used_ = 0;
};

iovec bytesOf(std::string_view text) {
  return {const_cast<char*>(text.data()), text.size()};  // sendmsg() only reads
}

void send(const Event& event) {
  int socket = g_socket.load(std::memory_order_acquire);
  if (socket == kNoSocket) socket = openSocket();
  if (socket == kNoSocket) return;

  Header header(event);
  iovec parts[] = {header.bytes(), bytesOf(event.text), bytesOf("")};
  const std::size_t room = kMaxDatagram - parts[0].iov_len;
  if (event.text.size() > room) {
    parts[2] = bytesOf(kCutMark);
    parts[1].iov_len = room - parts[2].iov_len;
  }
  sockaddr_in reader = loopbackAddress(kPort);
  msghdr datagram{};
  datagram.msg_name = &reader;
  datagram.msg_namelen = sizeof reader;
  datagram.msg_iov = parts;
  datagram.msg_iovlen = sizeof parts / sizeof parts[0];
  (void)sendmsg(socket, &datagram, MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace

void emit(const Event& event) {
  const int callers_errno = errno;
  {
    // sendmsg() is a cancellation point, and a trace must not be where a receive thread ends: it is also
    // written from destructors.
    const CancellationOff off;
    send(event);
  }
  errno = callers_errno;
}

std::int64_t now() {
  return microseconds(CLOCK_MONOTONIC);
}

}  // namespace hbbtv_ryn::trace
