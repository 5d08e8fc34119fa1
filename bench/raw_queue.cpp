// The System V queue without anything of the library but its record format.
#include <hbbtv_ryn/ipc.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cstring>

#include "check.h"
#include "peer_transport.h"

namespace bench {
namespace {

constexpr std::size_t kRecordBytes = ipc_record_bytes(IPC_CHUNK_SIZE) - sizeof(long);
constexpr std::size_t kChunkBytes = IPC_CHUNK_SIZE + 1;

class RawQueue final : public QueueLink {
 public:
  RawQueue() : QueueLink(make(), make()) {
    record_.mtype = 1;
    record_.marker = 1;
  }

 protected:
  void send(const std::string& text) override {
    record_.total_length = static_cast<int32_t>(text.size());
    record_.sequence = 0;
    std::size_t offset = 0;
    do {
      const std::size_t part = std::min(text.size() - offset, kChunkBytes);
      std::memcpy(record_.data, text.data() + offset, part);
      offset += part;
      record_.chunk_length = static_cast<int32_t>(part);
      record_.sequence += 1;
      record_.last = offset == text.size() ? 1 : 0;
      check(msgsnd(outgoing_, &record_, kRecordBytes, 0), "msgsnd");
    } while (offset < text.size());
  }

  void receive(std::string& text) override {
    text.clear();
    do {
      check(msgrcv(incoming_, &record_, kRecordBytes, 1, 0), "msgrcv");
      text.append(record_.data, static_cast<std::size_t>(record_.chunk_length));
    } while (record_.last == 0);
  }

 private:
  static int make() { return check(msgget(IPC_PRIVATE, 0600), "msgget"); }

  IpcRecord record_{};
};

}  // namespace

std::unique_ptr<Link> makeRawQueue() {
  return std::make_unique<RawQueue>();
}

}  // namespace bench
