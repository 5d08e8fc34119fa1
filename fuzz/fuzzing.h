/// @file
/// What the fuzzers share.
#ifndef HBBTV_RYN_FUZZ_FUZZING_H
#define HBBTV_RYN_FUZZ_FUZZING_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "ipc/server.h"

namespace hbbtv_ryn::fuzz {

/// Ends the process with a report when it does not hold, in every build.
void require(bool holds, const char* what);

/// Takes the library's own diagnostics away, which a fuzzer would write by the million.
void silenceLibrary();

/// Calls a server callback as the server does: with the input in a block of just its size and a NUL, so
/// that a byte read too far is seen. What it answers must be a text of a JSON object with its true length.
void serveAndCheck(ServeCallback callback, const uint8_t* data, std::size_t size);

/// Makes the compiler believe that a handler uses what it is given, every byte of it.
void use(const void* memory, std::size_t bytes);
inline void use(const std::string& text) {
  use(text.data(), text.size());
}

}  // namespace hbbtv_ryn::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

#endif  // HBBTV_RYN_FUZZ_FUZZING_H
