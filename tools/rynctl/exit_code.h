/// @file
/// How rynctl ends. Scripts rely on these numbers; rynctl(1) lists them.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_EXIT_CODE_H
#define HBBTV_RYN_TOOLS_RYNCTL_EXIT_CODE_H

#include <stdexcept>
#include <string>

namespace hbbtv_ryn::rynctl {

enum class ExitCode : int {
  Done = 0,
  Refused = 1,  // the peer said no
  Usage = 2,
  NoPeer = 3,    // nobody to speak with, or no way to reach them
  NoAnswer = 4,  // the peer lives and does not answer
  NoRoom = 5,    // queue full, or message too large
  Malformed = 6,
};

/// Ends a command: main() prints the text, which says what to do, and exits with the code.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_EXIT_CODE_H
