// Any messages on a queue, received and joined. The input: a byte that chooses the chunk size and the
// receiver, then per message two bytes of length (low byte first) and as many bytes, all behind the type.
#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "fuzzing.h"
#include "ipc/record.h"
#include "tools/support/isolation.h"

using namespace hbbtv_ryn;  // NOLINT(google-build-using-namespace)

namespace {

constexpr long kChannel = 1;
constexpr int kQueueBytes = 1 << 20;
constexpr int kChunkSizes[] = {1, 16, 1024, 4000};

int g_queue = -1;

void fillQueue(const uint8_t* data, std::size_t size) {
  struct {
    long type = kChannel;
    char body[8192];  // the largest message that the kernel takes, unless told otherwise
  } datagram;
  while (size >= 2) {
    const std::size_t bytes =
        std::min({std::size_t{data[0]} + 256U * data[1], size - 2, sizeof datagram.body});
    std::memcpy(datagram.body, data + 2, bytes);
    if (msgsnd(g_queue, &datagram, bytes, IPC_NOWAIT) != 0) return;
    data += 2 + bytes;
    size -= 2 + bytes;
  }
}

void receiveBounded(int chunk_size, IpcRecord* record, JoinedText* text) {
  const int result = receiveMessage(g_queue, kChannel, chunk_size, record, text, false);
  fuzz::require(text->bytes != nullptr, "the buffer is kept");
  fuzz::require(text->capacity <= std::max(kJoinLimit, 2 * chunk_size + 1), "the buffer stays small");
  if (result != 0) return;
  fuzz::require(text->length < text->capacity && text->bytes.get()[text->length] == '\0', "the NUL");
  fuzz::use(text->bytes.get(), static_cast<std::size_t>(text->length));
  const int32_t reported = reportedLength(*record, text);
  fuzz::require(reported >= 0 && reported < text->capacity, "the reported length");
  fuzz::use(text->bytes.get(), static_cast<std::size_t>(reported) + 1);
}

void receivePublic(int chunk_size, IpcRecord* record, JoinedText* text) {
  char* bytes = text->bytes.release();
  const int result = ipc_rcv_internal(g_queue, kChannel, chunk_size, record, &bytes, &text->capacity);
  text->bytes.reset(bytes);
  fuzz::require(bytes != nullptr && text->capacity >= 1, "the buffer is kept");
  if (result == 0) fuzz::use(bytes, std::strlen(bytes));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::silenceLibrary();
  test::isolateProcess();
  test::setQueueCapacity(kQueueBytes);
  g_queue = msgget(IPC_PRIVATE, 0600);
  fuzz::require(g_queue >= 0, "a queue can be made");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const int chunk_size = kChunkSizes[data[0] % std::size(kChunkSizes)];
  fillQueue(data + 1, size - 1);
  // A whole message, so that the last receive ends as well.
  char letter[] = "e";
  const IpcMessage end{1, letter};
  ipc_snd_internal(g_queue, kChannel, chunk_size, &end, IPC_KIND_ONEWAY);
  const auto record = newRecord(chunk_size);
  JoinedText text;
  fuzz::require(record && text.allocate(chunk_size), "memory");
  const auto receive = data[0] < 128 ? &receiveBounded : &receivePublic;
  while (hasWaiting(g_queue, kChannel)) receive(chunk_size, record.get(), &text);
  return 0;
}
