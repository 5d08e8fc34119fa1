/// @file
/// What the control thread does with a datagram that it has taken.
#ifndef HBBTV_RYN_LOG_CONTROL_COMMAND_H
#define HBBTV_RYN_LOG_CONTROL_COMMAND_H

#include "log/control_protocol.h"

namespace hbbtv_ryn {

/// Keeps the command in g_modules_info and carries it out, if its text ends in time.
/// @param command  as it came, zero past its end.
void applyLogCommand(const char (&command)[kLogCommandBytes]);

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_LOG_CONTROL_COMMAND_H
