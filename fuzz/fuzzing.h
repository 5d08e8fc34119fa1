/// @file
/// What the fuzzers share.
#ifndef HBBTV_RYN_FUZZ_FUZZING_H
#define HBBTV_RYN_FUZZ_FUZZING_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "hbbtv_ryn/ipc.h"

namespace hbbtv_ryn::fuzz {

/// Ends the process with a report when it does not hold, in every build.
void require(bool holds, const char* what);

/// Takes the library's own diagnostics away, which a fuzzer would write by the million.
void silenceLibrary();

/// The input as the server hands it to a callback: NUL-terminated in a block of just that size, so that a
/// byte read too far is seen.
class Request {
 public:
  Request(const uint8_t* data, std::size_t size);
  const IpcMessage* message() const { return &m_message; }

 private:
  std::unique_ptr<char[]> m_text;
  IpcMessage m_message;
};

/// Calls a server callback as the server does. What it answers must be a text of a JSON object with its
/// true length.
void serveAndCheck(IpcServerCallback callback, const Request& request);

/// Makes the compiler believe that a handler uses what it is given, every byte of it.
void use(const void* memory, std::size_t bytes);

}  // namespace hbbtv_ryn::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

#endif  // HBBTV_RYN_FUZZ_FUZZING_H
