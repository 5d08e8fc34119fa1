/// @file
/// What the log control thread and a tool that speaks with it agree on. docs/logging.md describes the
/// datagrams for readers without this source.
#ifndef HBBTV_RYN_LOG_CONTROL_PROTOCOL_H
#define HBBTV_RYN_LOG_CONTROL_PROTOCOL_H

#include <cstddef>
#include <cstdint>

namespace hbbtv_ryn {

/// Reports go to this UDP port of 127.0.0.1; a command goes back to the port a report came from.
inline constexpr std::uint16_t kLogReportPort = 54321;

/// A control thread reports, and takes at most one command, once in this many seconds.
inline constexpr unsigned kLogCycleSeconds = 1;

/// A command: text with its NUL in the first bytes, then one byte with the value.
inline constexpr std::size_t kLogCommandTextBytes = 1024;
inline constexpr std::size_t kLogCommandBytes = kLogCommandTextBytes + 1;

/// The text that empties the list. The spelling is the wire's.
inline constexpr char kLogClearCommand[] = "__CLIEAR_LOG_MODULES__";

inline constexpr char kModuleSeparator = '|';

inline constexpr std::size_t kMaxModules = 20;
inline constexpr std::size_t kMaxModuleName = 32;  // bytes, without a NUL

/// Values of a listed module. Every other value than these lists for error records as well.
inline constexpr std::uint8_t kModuleRemoved = 0;
inline constexpr std::uint8_t kModuleFull = 1;
inline constexpr std::uint8_t kModuleErrorsOnly = 2;

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_LOG_CONTROL_PROTOCOL_H
