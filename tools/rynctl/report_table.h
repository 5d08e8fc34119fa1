/// @file
/// The reporting processes as `rynctl log` shows them.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_REPORT_TABLE_H
#define HBBTV_RYN_TOOLS_RYNCTL_REPORT_TABLE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "log_control.h"
#include "socket_owner.h"

namespace hbbtv_ryn::rynctl {

class ReportTable {
 public:
  void update(const LogReport& report);
  /// Forgets the processes that have been silent for longer than kReportPatience.
  void dropSilentOnes();

  /// Aligned columns under a heading, one line for each process, in the order of their ports.
  std::string text(bool colour) const;
  /// The last report of one process as a line of JSON.
  std::string json(std::uint16_t port) const;
  bool empty() const { return rows_.empty(); }
  /// Grows whenever the table shows something new, other than an age.
  unsigned changes() const { return changes_; }

 private:
  struct Row {
    std::vector<std::string> modules;
    std::optional<SocketOwner> owner;
    Clock::time_point last_report;
  };

  std::map<std::uint16_t, Row> rows_;
  unsigned changes_ = 0;
};

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_REPORT_TABLE_H
