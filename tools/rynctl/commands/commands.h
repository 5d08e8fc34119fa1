// What each command does, and what the command line tells it.
#ifndef HBBTV_RYN_TOOLS_RYNCTL_COMMANDS_COMMANDS_H
#define HBBTV_RYN_TOOLS_RYNCTL_COMMANDS_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/rynctl/failure.h"
#include "tools/rynctl/replay/player.h"
#include "tools/rynctl/text/message_text.h"
#include "tools/rynctl/trace/trace_view.h"

namespace hbbtv_ryn::rynctl {

struct CatalogueOptions {
  std::string name = "*";
  bool json = false;
};
ExitCode list(const CatalogueOptions& options);
ExitCode describe(const CatalogueOptions& options);

struct CallOptions {
  std::string name;
  std::vector<std::string> assignments;
  std::string json = "{}";
  double timeout = 10;
  unsigned repeat = 1;
  unsigned every = 0;
  bool force = false;
};
ExitCode call(const CallOptions& options);
ExitCode send(const CallOptions& options);

struct ServeOptions {
  Side side;
  std::string script;
  std::vector<std::string> names;
  unsigned count = 0;
  bool blocked = false;
  bool supported = false;
  bool force = false;
};
ExitCode listen(const ServeOptions& options);
ExitCode serve(const ServeOptions& options);

struct QueueOptions {
  double watch = 0;
  bool json = false;
  std::string queue;
  unsigned count = 0;
  bool all = false;
  bool yes = false;
};
ExitCode queues(const QueueOptions& options);
ExitCode peek(const QueueOptions& options);
ExitCode reset(const QueueOptions& options);

struct MonitorOptions {
  TraceView::Filter filter;
  std::string file;
};
ExitCode monitor(const MonitorOptions& options);

struct ReportOptions {
  std::string capture;
  std::string page;
};
ExitCode report(const ReportOptions& options);

struct ReplayOptions {
  std::string capture;
  Player::Rules rules;
  bool fast = false;
  std::string junit;
  bool force = false;
};
ExitCode replay(const ReplayOptions& options);

struct DoctorOptions {
  bool json = false;
};
ExitCode doctor(const DoctorOptions& options);

struct LogOptions {
  std::optional<std::uint16_t> port;
  bool watch = false;
  bool json = false;
  std::vector<std::string> modules;
};
ExitCode showLogs(const LogOptions& options);
/// @param value   what becomes of the modules in the list.
/// @param effect  the same in words.
ExitCode editLogs(const LogOptions& options, std::uint8_t value, const char* effect);

}  // namespace hbbtv_ryn::rynctl

#endif  // HBBTV_RYN_TOOLS_RYNCTL_COMMANDS_COMMANDS_H
