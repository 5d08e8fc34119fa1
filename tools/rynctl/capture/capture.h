// What `rynctl monitor --save` has written, read again. The file is anybody's.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CAPTURE_H
#define HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CAPTURE_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/rynctl/trace/exchange.h"

namespace hbbtv_ryn::rynctl {

struct TracedProcess {
  std::string name;  // empty when it is not known
  Side side;
  std::map<std::uint64_t, Sight> traces;  // by their sequence numbers
};

struct Capture {
  /// Memory stays bounded whatever the file holds: lines that are no trace are passed over, and what comes
  /// behind the first few hundred thousand traces is left out. `notes` says so, with line numbers.
  /// Throws Failure: Usage when the file cannot be read, Malformed when no line of it is a trace.
  static Capture load(const std::string& file);

  std::vector<std::shared_ptr<const Exchange>> exchanges;
  std::map<pid_t, TracedProcess> processes;
  std::vector<std::string> notes;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_CAPTURE_CAPTURE_H
