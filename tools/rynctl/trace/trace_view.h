// Makes one line per message out of what both processes trace.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_TRACE_TRACE_VIEW_H
#define HBBTV_RYN_TOOLS_RYNCTL_TRACE_TRACE_VIEW_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "tools/rynctl/system/wait.h"
#include "tools/rynctl/trace/exchange.h"

namespace hbbtv_ryn::rynctl {

/// A message is traced where it is sent and where it is received, an answer where it is given and where it
/// arrives. When both ends are traced the second sight of a message is not shown, and an answer is shown
/// with what both ends know of it.
class TraceView {
 public:
  struct Filter {
    std::string glob = "*";
    std::optional<double> slow;  // only answers that took so many milliseconds
    bool errors = false;         // only what went wrong
  };

  explicit TraceView(Filter filter) : filter_(std::move(filter)) {}

  /// Prints what is to be shown now.
  void take(const TraceEvent& event);
  /// Prints the answers whose other end has not been seen for so long.
  void showLeft(Clock::duration patience = {});

  /// Messages shown or hidden by the filter, without second sights.
  std::uint64_t messages() const { return messages_; }
  /// Datagrams that are missing between the first and the last of each process.
  std::uint64_t lost() const;

 private:
  struct Numbers {
    std::uint64_t first = UINT64_MAX;
    std::uint64_t last = 0;
    std::uint64_t count = 0;
  };
  /// Given to a traced client, not yet seen to arrive.
  struct Answer {
    TraceEvent event;
    std::shared_ptr<const Exchange> exchange;
    Clock::time_point seen;
  };

  void count(const TraceEvent& event);
  void show(const TraceEvent& event, const Exchange& exchange);
  bool isShown(const TraceEvent& event, const Exchange& exchange) const;

  const Filter filter_;
  std::map<pid_t, Numbers> numbers_;
  Exchanges exchanges_;
  std::deque<Answer> answers_;
  std::uint64_t messages_ = 0;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_TRACE_TRACE_VIEW_H
