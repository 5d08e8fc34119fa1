// What `rynctl monitor --save` has written, read again. The file is anybody's.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CAPTURE_H
#define HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CAPTURE_H

#include <map>
#include <string>
#include <vector>

#include "tools/rynctl/capture/conversation.h"

namespace hbbtv_ryn::rynctl {

/// A process of the capture.
struct TracedProcess {
  /// Traces that are missing between two that are there.
  struct Gap {
    std::uint64_t count;
    Sight behind;
  };
  std::string name;  // empty when it is not known
  Side side;
  Sight first;
  Sight last;
  std::uint64_t traces = 0;
  std::vector<Gap> gaps;
};

struct Capture {
  /// Memory stays bounded whatever the file holds: lines that are no trace are passed over, and what comes
  /// behind the first few hundred thousand traces is left out. `notes` says so, with line numbers.
  /// Throws Failure: Usage when the file cannot be read, Malformed when no line of it is a trace.
  static Capture load(const std::string& file);

  Conversation conversation;
  std::map<pid_t, TracedProcess> processes;
  std::vector<std::string> notes;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CAPTURE_H
