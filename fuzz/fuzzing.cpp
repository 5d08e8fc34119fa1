#include "fuzzing.h"

#include <json/value.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <numeric>

#include "base/malloc_ptr.h"
#include "ipc/protocol/envelope.h"

namespace hbbtv_ryn::fuzz {

void require(bool holds, const char* what) {
  if (holds) return;
  // The library's diagnostics are off; the descriptor is not.
  dprintf(2, "does not hold: %s\n", what);
  std::abort();
}

void silenceLibrary() {
  std::FILE* nowhere = std::fopen("/dev/null", "w");
  require(nowhere != nullptr, "/dev/null can be opened");
  stdout = nowhere;
  stderr = nowhere;
}

void serveAndCheck(ServeCallback callback, const uint8_t* data, std::size_t size) {
  const std::unique_ptr<char[]> text(new char[size + 1]());
  std::copy(data, data + size, text.get());
  const IpcMessage request{static_cast<int32_t>(size), text.get()};
  IpcMessage* answer = nullptr;
  try {
    answer = callback(&request, IPC_KIND_REQUEST, nullptr);
  } catch (const std::exception&) {
    return;  // the server answers with its failure reply
  }
  if (answer == nullptr) return;
  const std::unique_ptr<IpcMessage> owner(answer);
  const MallocPtr<char> answer_text(answer->text);
  require(answer->length == static_cast<int32_t>(std::strlen(answer->text)), "the answer's length");
  Json::Value members;
  require(parse(answer->text, &members), "the answer is a JSON object");
}

void use(const void* memory, std::size_t bytes) {
  const auto* const first = static_cast<const unsigned char*>(memory);
  // Never true of memory that is there; the compiler cannot know.
  require(std::accumulate(first, first + bytes, uint64_t{1}) != 0, "the memory can be read");
}

}  // namespace hbbtv_ryn::fuzz
