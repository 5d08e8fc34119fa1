#include "tools/rynctl/commands/command.h"
namespace hbbtv_ryn::rynctl { void addReplayCommand(CLI::App&, Action&) {} }
