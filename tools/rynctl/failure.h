// How rynctl ends.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_FAILURE_H
#define HBBTV_RYN_TOOLS_RYNCTL_FAILURE_H

#include <stdexcept>
#include <utility>

#include "tools/rynctl/text/format.h"

namespace hbbtv_ryn::rynctl {

/// Scripts rely on these numbers; `rynctl --help` says what each means.
enum class ExitCode : int {
  kDone = 0,
  kRefused = 1,
  kUsage = 2,
  kNoPeer = 3,
  kNoAnswer = 4,
  kNoRoom = 5,
  kMalformed = 6,
  kBroken = 7,
};

/// Ends a command: main() prints the text, which says what to do, and exits with the code.
class Failure : public std::runtime_error {
 public:
  template <typename... Arguments>
  Failure(ExitCode code, fmt::format_string<Arguments...> text, Arguments&&... arguments)
      : std::runtime_error(compose(text, std::forward<Arguments>(arguments)...)), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_FAILURE_H
