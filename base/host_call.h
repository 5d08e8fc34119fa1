// Calls into host code, whose exceptions must not leave a function or a thread of the library.
#ifndef HBBTV_RYN_BASE_HOST_CALL_H
#define HBBTV_RYN_BASE_HOST_CALL_H

#include <cxxabi.h>

namespace hbbtv_ryn {

// Calls `call()`. False when an exception left it, of whatever type. Not sanitized: the runtime binds
// the reference with which a cancellation is caught to nothing.
template <typename Call>
__attribute__((no_sanitize("undefined"))) bool returnsNormally(Call&& call) {
  try {
    call();
    return true;
  } catch (abi::__forced_unwind&) {
    // Thread cancellation unwinds as an exception of this type and aborts the process when it is swallowed.
    throw;
  } catch (...) {
    return false;
  }
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_BASE_HOST_CALL_H
